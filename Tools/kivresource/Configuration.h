#pragma once

#include <optional>
#include <string>

#include "KivPlatform/Foundation/values/Value.h"

namespace tool {

/// The configuration in the file at the path, or on standard input for "-". Nothing, and one line
/// that says why, with line and column for what is no JSON, where it cannot be read or is no JSON
/// object.
std::optional<kiv::Value> readConfiguration(const std::string& path, std::string& objection);

}  // namespace tool
