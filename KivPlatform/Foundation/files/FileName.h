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

/// Nothing if the name is a valid file name, otherwise an objection as a predicate ("is empty").
/// Rejects the empty name, "." and "..", names with a NUL or a path separator of any operating
/// system, names that are too long, and those that are not portable.
KIV_EXPORT std::optional<std::string> objection(std::string_view name);

/// The objection if there is an operating system that cannot store a file under this name, or to
/// which the name means something else: the console, a stream of another file, the name without
/// its last dot.
KIV_EXPORT std::optional<std::string> portabilityObjection(std::string_view name);

/// True if there is no objection.
KIV_EXPORT bool isHarmless(std::string_view name);

}  // namespace kiv::filename
