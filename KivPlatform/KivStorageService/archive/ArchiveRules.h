#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "KivPlatform/KivStorageService/ArchiveLimits.h"
#include "KivPlatform/KivStorageService/archive/ArchiveDirectory.h"

/// What an entry of an archive may be. Answers are objections that follow "which".
namespace kiv::storage {

/// The entry's path: its name without a leading "./", which some archivers write, and without the
/// trailing "/" of a directory. Empty for "./" itself.
std::string_view pathOfEntryName(std::string_view name);

/// True for the "__MACOSX" entries that macOS adds to archives. They are checked but not unpacked.
bool isLeftOut(std::string_view name);

/// Why a file or directory may not have that name, in UTF-8: it would lie outside the directory, on
/// this or another system, or no file system allows it.
std::optional<std::string> validateEntryName(std::string_view name, const ArchiveLimits& limits);

/// Why the entry may not be unpacked, whatever its name: encrypted, an unknown compression method,
/// a link or a device, or a declared size beyond the limits.
std::optional<std::string> validateEntryKind(const ArchiveEntry& entry,
                                             const ArchiveLimits& limits);

}  // namespace kiv::storage
