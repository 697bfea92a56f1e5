#pragma once

#include <string>

#include "KivResource/KivResource.h"

namespace tool {

/// Why the framework makes no resource of an item, for the person who wrote it: the first key that
/// is missing, or that holds something else.
std::string validateItem(const kiv::Value& item);

/// What the person may not have meant about a resource of a configuration; empty if nothing is
/// odd about it.
std::string remarkOn(const KivResource& resource);

}  // namespace tool
