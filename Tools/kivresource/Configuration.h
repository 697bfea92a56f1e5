#pragma once

#include <optional>
#include <string>

#include "KivPlatform/Foundation/values/Value.h"

namespace tool {

/// Reads the configuration from the file at the path, or from standard input for "-". Returns
/// nullopt and sets `objection` to one line if it cannot be read or is not a JSON object; for
/// invalid JSON this includes line and column.
std::optional<kiv::Value> readConfiguration(const std::string& path, std::string& objection);

}  // namespace tool
