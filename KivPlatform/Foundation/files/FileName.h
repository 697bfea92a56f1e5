#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "KivPlatform/Foundation/Export.h"

/// Names of files that come from outside: hostile until shown harmless.
namespace kiv::filename {

/// Bytes that one name may have on the file systems that we store on.
inline constexpr std::size_t longestName = 255;

/// Why the name may not be used for one file inside one directory, as an end of a sentence ("is
/// empty"), or nothing where it may: refused are the empty name, "." and "..", a name with a NUL
/// or a separator of any system, and one longer than the file system takes.
KIV_EXPORT std::optional<std::string> objection(std::string_view name);

/// True where there is no objection.
KIV_EXPORT bool isHarmless(std::string_view name);

}  // namespace kiv::filename
