#pragma once

#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "Platform/KivStorageService/ArchiveCeilings.h"
#include "Platform/KivStorageService/ArchiveDirectory.h"
#include "Platform/KivStorageService/ArchiveReader.h"
#include "Platform/KivStorageService/ArchiveTree.h"

namespace kiv::storage {

/// An archive that holds nothing that it may not hold, as far as that shows before its contents are
/// decoded.
struct ArchivePlan {
  std::vector<ArchiveEntry> entries;
  std::unique_ptr<ArchiveReader> reader;
  ArchiveTree tree;
};

/// The plan for the archive, whose bytes must outlive it; nothing and an objection otherwise.
std::optional<ArchivePlan> planArchive(std::string_view bytes, const ArchiveCeilings& ceilings,
                                       ArchiveObjection& objection);

}  // namespace kiv::storage
