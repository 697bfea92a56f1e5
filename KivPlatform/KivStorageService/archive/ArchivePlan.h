#pragma once

#include <memory>
#include <vector>

#include "KivPlatform/Foundation/values/Result.h"
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

/// Checks the archive, which must outlive the plan, and plans its unpacking.
Result<ArchivePlan> planArchive(const Archive& archive);

}  // namespace kiv::storage
