#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "KivPlatform/Foundation/Export.h"

/// Checks of file names from servers and archives.
namespace kiv::filename {

/// The limit on the bytes of a name on common file systems.
inline constexpr std::size_t longestName = 255;

/// Why the name may not be used for a file in a directory, as the end of a sentence ("is empty"),
/// or nothing. Rejected are the empty name, "." and "..", names with a NUL or a separator of any
/// system, and names that are too long.
KIV_EXPORT std::optional<std::string> objection(std::string_view name);

/// True if there is no objection.
KIV_EXPORT bool isHarmless(std::string_view name);

}  // namespace kiv::filename
