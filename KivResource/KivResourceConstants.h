#pragma once

#include <array>
#include <string_view>

#include "KivPlatform/KivStorageService/ArchiveNames.h"

/// How an archive is recognised: the suffix that marks the name of an archive file, and the name of
/// the entry page at the top of the unpacked archive.
inline constexpr std::array<std::string_view, 2> KivResouceArchiveKey = {
    kiv::storage::archiveSuffix, kiv::storage::archiveEntryPage};

/// Domain of the errors that the storage module makes.
inline constexpr std::string_view KivResourceStorageModuleErrorDomain =
    "kiv.KivResource.KivResourceStorageModule";
