#pragma once

#include <string>
#include <string_view>

#include "KivPlatform/Foundation/values/Data.h"
#include "KivPlatform/Foundation/values/Result.h"
#include "KivPlatform/KivStorageService/ArchiveLimits.h"

namespace kiv::storage {

/// Unpacks the archive into a new directory at the path, and syncs it. Fails before anything is
/// written if the archive is invalid or the disk has no room. After any failure the caller removes
/// the directory. The archive's name is for error messages.
Status unpackArchive(const Data& archive, std::string_view archiveName, const std::string& path,
                     const ArchiveLimits& limits);

}  // namespace kiv::storage
