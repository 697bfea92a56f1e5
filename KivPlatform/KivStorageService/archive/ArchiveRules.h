#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "KivPlatform/KivStorageService/ArchiveLimits.h"
#include "KivPlatform/KivStorageService/archive/ArchiveDirectory.h"

/// What an entry of an archive may be. Pure checks; an answer goes on after "which".
namespace kiv::storage {

/// The path of an entry that its name stands for, without what says nothing: "./" at the start,
/// which some archivers write, and "/" at the end, which marks a directory. Empty for "./" itself.
std::string_view pathOfEntryName(std::string_view name);

/// True for what macOS adds to the archives that it packs: beside each file another one, in a
/// folder
/// "__MACOSX" at the top, with attributes that mean nothing elsewhere. Checked as any entry, and
/// not unpacked.
bool isLeftOut(std::string_view name);

/// Why a file or directory may not have the name, UTF-8, as an archive gives it: it would lie
/// outside the directory, or on another system it would, or no file system takes it.
std::optional<std::string> validateEntryName(std::string_view name, const ArchiveLimits& limits);

/// Why the entry may not be unpacked, whatever its name: encrypted, packed in an unknown way, a
/// link or a device, or larger than the limits allow by what it says itself.
std::optional<std::string> validateEntryKind(const ArchiveEntry& entry,
                                             const ArchiveLimits& limits);

}  // namespace kiv::storage
