#pragma once

namespace kiv {

class FileManager;

/// The file manager that works on the operating system's files. Never destroyed.
FileManager& systemFileManager();

}  // namespace kiv
