#pragma once

#include <memory>
#include <vector>

#include "KivPlatform/Foundation/values/Result.h"
#include "KivPlatform/KivStorageService/archive/ArchiveDirectory.h"
#include "KivPlatform/KivStorageService/archive/ArchiveReader.h"
#include "KivPlatform/KivStorageService/archive/ArchiveTree.h"

namespace kiv::storage {

/// An archive that has passed every check that needs no decompression.
struct ArchivePlan {
  std::vector<ArchiveEntry> entries;
  std::unique_ptr<ArchiveReader> reader;
  ArchiveTree tree;
};

/// Checks the archive and plans its unpacking. The archive must outlive the plan.
Result<ArchivePlan> planArchive(const Archive& archive);

}  // namespace kiv::storage
