#pragma once

#include "KivPlatform/Foundation/files/FileManager.h"

namespace kiv {

/// The file manager that works on the operating system's files. It is never destroyed.
FileManager& systemFileManager();

}  // namespace kiv
