#pragma once

#include <string_view>

namespace kiv::storage {

/// The suffix of an archive's name, case-sensitive.
inline constexpr std::string_view archiveSuffix = ".zip";
/// The page that an archive must contain at its top level.
inline constexpr std::string_view archiveEntryPage = "index.html";

}  // namespace kiv::storage
