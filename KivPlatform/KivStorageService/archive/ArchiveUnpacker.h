#pragma once

#include <string>
#include <string_view>

#include "KivPlatform/Foundation/values/Data.h"
#include "KivPlatform/Foundation/values/Result.h"
#include "KivPlatform/KivStorageService/ArchiveLimits.h"

namespace kiv::storage {

/// Unpacks the archive into a new directory at the path, and syncs it. Fails before anything is
/// written if the disk has no room. On failure the caller removes what was written. The archive's
/// name is for the messages.
Status unpackArchive(const Data& archive, std::string_view archiveName, const std::string& path,
                     const ArchiveLimits& limits);

}  // namespace kiv::storage
