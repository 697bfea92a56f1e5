#pragma once

#include <optional>
#include <string>

#include "KivResource/KivResource.h"

namespace kiv::session {

/// The resource as JSON: its class, the common properties, the current state of its files, its
/// dictionary, and the properties of its class. Call it on the manager's queue.
Dictionary resourceJSON(const KivResource& resource);

/// The resources as an array, in order.
Array resourcesJSON(const ResourceArray& resources);

/// The error as JSON, or null.
Value errorJSON(const std::optional<Error>& error);

/// The value as JSON on one line, without insignificant whitespace.
std::string compactJSON(const Value& value);

}  // namespace kiv::session
