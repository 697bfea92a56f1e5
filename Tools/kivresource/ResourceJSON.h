#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KivResource/KivResource.h"

namespace tool {

/// The resource as a program sees it: its class, what every resource has, what it answers about its
/// files now, its dictionary, and the properties of its kind. To be called on the manager's queue.
kiv::Dictionary resourceJSON(const KivResource& resource);

/// The resources one after the other.
kiv::Array resourcesJSON(const kiv::ResourceArray& resources);

/// The error, or null where there is none.
kiv::Value errorJSON(const std::optional<kiv::Error>& error);

/// The value as JSON on one line, without any space between its parts.
std::string compactJSON(const kiv::Value& value);

/// Prints the value as a line of its own on standard output, at once.
void printJSONLine(const kiv::Value& value);

}  // namespace tool
