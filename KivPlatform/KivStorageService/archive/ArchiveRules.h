#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "KivPlatform/KivStorageService/ArchiveLimits.h"
#include "KivPlatform/KivStorageService/archive/ArchiveDirectory.h"

/// The rules for archive entries. A check returns nothing if the entry is valid. Otherwise it
/// returns an objection that completes a clause beginning with "which".
namespace kiv::storage {

/// The entry's path: its name without leading "./", which some archivers write, and without the
/// trailing "/" of a directory. Empty for "./" itself.
std::string_view pathOfEntryName(std::string_view name);

/// True for the "__MACOSX" entries that macOS adds to archives. They are checked but not unpacked.
bool isLeftOut(std::string_view name);

/// Checks the name (UTF-8). Rejects names that leave the target directory on this or another
/// operating system, that file systems do not allow, or that exceed the limits.
std::optional<std::string> validateEntryName(std::string_view name, const ArchiveLimits& limits);

/// Checks everything but the name. Rejects an encrypted entry, an unknown compression method, a
/// link or a device, a directory with contents, and a declared size that exceeds the limits.
std::optional<std::string> validateEntryKind(const ArchiveEntry& entry,
                                             const ArchiveLimits& limits);

}  // namespace kiv::storage
