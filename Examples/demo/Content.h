#pragma once

#include <optional>
#include <string>

#include "KivResource/KivResource.h"

namespace demo {

/// The whole file, or nothing where it cannot be read.
std::optional<std::string> readFile(const std::string& path);

/// True where both files can be read and hold the same bytes.
bool sameBytes(const std::string& path, const std::string& other);

/// True where something lies at the path.
bool exists(const std::string& path);

/// The configuration in the file; null where it does not read, which is then said on standard
/// error.
kiv::Value readConfig(const std::string& path);

}  // namespace demo
