#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "KivPlatform/KivStorageService/ArchiveLimits.h"
#include "KivPlatform/KivStorageService/archive/ArchiveDirectory.h"
#include "KivPlatform/KivStorageService/archive/ArchiveReader.h"
#include "KivPlatform/KivStorageService/archive/ArchiveTree.h"

namespace kiv::storage {

/// An archive that holds nothing that it may not hold, as far as that shows before its contents are
/// decoded.
struct ArchivePlan {
  std::vector<ArchiveEntry> entries;
  std::unique_ptr<ArchiveReader> reader;
  ArchiveTree tree;
};

/// The plan for the archive; nothing and an objection otherwise.
std::optional<ArchivePlan> planArchive(const Data& archive, const ArchiveLimits& limits,
                                       ArchiveObjection& objection);

}  // namespace kiv::storage
