#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "KivPlatform/Foundation/Export.h"

/// Rules for file names that come from servers and archives. They are the same on every operating
/// system, so that a configuration or a cache that works on one works on all.
namespace kiv::filename {

/// The limit on the bytes of a name on common file systems.
inline constexpr std::size_t longestName = 255;

/// What is wrong with the name, as a predicate ("is empty"); nothing if it is a valid file name.
/// Rejects the empty name, "." and "..", names with a NUL or a path separator of any operating
/// system, names that are too long, and those that are not portable.
KIV_EXPORT std::optional<std::string> validate(std::string_view name);

/// What is wrong with the name if some operating system cannot store a file under it, or takes it
/// for something else: the console, a stream of another file, the name without its last dot.
KIV_EXPORT std::optional<std::string> validatePortability(std::string_view name);

/// True if validate() finds nothing wrong.
KIV_EXPORT bool isValid(std::string_view name);

}  // namespace kiv::filename
