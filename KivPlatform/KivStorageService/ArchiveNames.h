#pragma once

#include <string_view>

namespace kiv::storage {

/// The suffix of an archive's name, case-sensitive.
inline constexpr std::string_view archiveSuffix = ".zip";
/// The page that an unpacked archive must have at its top.
inline constexpr std::string_view archiveEntryPage = "index.html";

}  // namespace kiv::storage
