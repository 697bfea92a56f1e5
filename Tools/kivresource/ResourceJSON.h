#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KivResource/KivResource.h"

namespace tool {

/// The resource as JSON: its class, the common properties, the current state of its files, its
/// dictionary, and the properties of its class. Call it on the manager's queue.
kiv::Dictionary resourceJSON(const KivResource& resource);

/// The resources as an array, in order.
kiv::Array resourcesJSON(const kiv::ResourceArray& resources);

/// The error as JSON, or null.
kiv::Value errorJSON(const std::optional<kiv::Error>& error);

/// The value as JSON on one line, without insignificant whitespace.
std::string compactJSON(const kiv::Value& value);

/// Prints the value as one line to standard output and flushes it.
void printJSONLine(const kiv::Value& value);

}  // namespace tool
