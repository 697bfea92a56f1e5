#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "KivPlatform/KivStorageService/ArchiveLimits.h"
#include "KivPlatform/KivStorageService/archive/ArchiveDirectory.h"
#include "KivPlatform/KivStorageService/archive/ArchiveReader.h"
#include "KivPlatform/KivStorageService/archive/ArchiveTree.h"

namespace kiv::storage {

/// An archive that has passed every check that needs no decoding.
struct ArchivePlan {
  std::vector<ArchiveEntry> entries;
  std::unique_ptr<ArchiveReader> reader;
  ArchiveTree tree;
};

/// Checks the archive and plans its unpacking; nothing and an objection if it is rejected.
std::optional<ArchivePlan> planArchive(const Data& archive, const ArchiveLimits& limits,
                                       ArchiveObjection& objection);

}  // namespace kiv::storage
