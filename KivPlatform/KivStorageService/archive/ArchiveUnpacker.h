#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "KivPlatform/Foundation/values/Data.h"
#include "KivPlatform/Foundation/values/Error.h"
#include "KivPlatform/KivStorageService/ArchiveLimits.h"

namespace kiv::storage {

/// The page at the top without which an unpacked archive is of no use.
inline constexpr std::string_view archiveEntryPage = "index.html";

/// Unpacks the archive, whose name serves the messages, as the directory at the path, where nothing
/// must lie yet; refused before anything is written where the disk has no room for it. All of it
/// has reached the disk when this returns true. On failure something may be left there, which is
/// for the caller to remove.
bool unpackArchive(const Data& archive, std::string_view archiveName, const std::string& path,
                   const ArchiveLimits& limits, std::optional<Error>* error);

}  // namespace kiv::storage
