#pragma once

#include <string>

namespace kiv {

/// Hands one line to the log service of the operating system, where it has one.
void writePlatformLog(const std::string& line);

}  // namespace kiv
