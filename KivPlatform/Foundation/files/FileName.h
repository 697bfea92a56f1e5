#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "KivPlatform/Foundation/Export.h"

/// Rules for file names that come from servers and archives.
namespace kiv::filename {

/// The limit on the bytes of a name on common file systems.
inline constexpr std::size_t longestName = 255;

/// Nothing if the name is a valid file name, otherwise an objection as a predicate ("is empty").
/// Rejects the empty name, "." and "..", names with a NUL or a path separator of any operating
/// system, and names that are too long.
KIV_EXPORT std::optional<std::string> objection(std::string_view name);

/// True if there is no objection.
KIV_EXPORT bool isHarmless(std::string_view name);

}  // namespace kiv::filename
