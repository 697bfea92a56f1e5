// The declared sizes in an archive may be false (a zip bomb). All limits on sizes are therefore
// checked again on the bytes that come out of the decoder, before these are written.

#include "KivPlatform/KivStorageService/archive/ArchiveUnpacker.h"

#include <memory>
#include <utility>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/KivStorageService/ArchiveNames.h"
#include "KivPlatform/KivStorageService/archive/ArchivePlan.h"
#include "KivPlatform/KivStorageService/archive/ArchiveRules.h"
#include "KivPlatform/KivStorageService/store/FreeSpace.h"
#include "KivPlatform/KivStorageService/store/StorageErrors.h"

namespace kiv::storage {

namespace {

/// Writes the files of a plan. The plan has checked the declared sizes; this class checks the
/// actual ones.
class Unpacker {
 public:
  Unpacker(const Archive& archive, const ArchivePlan& plan)
      : archive_(archive), plan_(plan), files_(FileManager::defaultManager()) {}

  /// Creates the directory with everything below the node, and syncs it: with one batch sync if
  /// that is possible and faster, otherwise each file after it is written and each directory after
  /// its entries are created.
  Status makeTree(const ArchiveNode& top, const std::string& path) {
    if (Status status = files_.createDirectoryAtPath(path); !status) return status;
    batch_ = files_.beginBatchSyncAtPath(path, plan_.entries.size());
    if (Status status = fillDirectory(top, path); !status) return status;
    return batch_ ? batch_->synchronize() : Status();
  }

 private:
  Status fillDirectory(const ArchiveNode& directory, const std::string& path) {
    for (const auto& [folded, child] : directory.children) {
      const std::string childPath = path::appendingPathComponent(path, child->name);
      Status status = child->isDirectory() ? makeDirectory(*child, childPath)
                                           : makeFile(*child->entry, childPath);
      if (!status) return status;
    }
    return batch_ ? Status() : files_.synchronizeDirectoryAtPath(path);
  }

  Status makeDirectory(const ArchiveNode& directory, const std::string& path) {
    if (Status status = files_.createDirectoryAtPath(path); !status) return status;
    return fillDirectory(directory, path);
  }

  Status makeFile(std::uint64_t index, const std::string& path) {
    const auto created = files_.createFileAtPath(path);
    if (!created) return created.error();
    WritableFile& file = **created;
    if (Status status = writeContents(index, file); !status) return status;
    if (!batch_) {
      if (Status status = file.synchronize(); !status) return status;
    }
    return file.close();
  }

  Status writeContents(std::uint64_t index, WritableFile& file) {
    const ArchiveEntry& entry = plan_.entries[static_cast<std::size_t>(index)];
    std::uint64_t size = 0;
    Status status = plan_.reader->read(index, [&](std::string_view piece) -> Status {
      size += piece.size();
      total_ += piece.size();
      if (const auto rule = validateSize(entry, size))
        return archive_.refusal(entry.rawName, *rule);
      return file.write(piece);
    });
    if (!status || size == entry.size) return status;
    return archive_.refusal(entry.rawName, "is shorter than the archive says");
  }

  [[nodiscard]] std::optional<std::string> validateSize(const ArchiveEntry& entry,
                                                        std::uint64_t size) const {
    if (size > entry.size) return "is longer than the archive says";
    if (size > archive_.limits.fileBytes) {
      return "is larger than " + std::to_string(archive_.limits.fileBytes) + " bytes";
    }
    if (total_ > archive_.limits.totalBytes) {
      return "brings the archive beyond " + std::to_string(archive_.limits.totalBytes) + " bytes";
    }
    if (isTooDense(size, entry.packedSize) || isTooDense(total_, archive_.data.size())) {
      return "unpacks to more than " + std::to_string(archive_.limits.ratio) + " times its size";
    }
    return std::nullopt;
  }

  [[nodiscard]] bool isTooDense(std::uint64_t unpacked, std::uint64_t packed) const {
    const ArchiveLimits& limits = archive_.limits;
    return unpacked > limits.ratioFreeBytes && unpacked / limits.ratio > packed;
  }

  const Archive& archive_;
  const ArchivePlan& plan_;
  FileManager& files_;
  std::unique_ptr<BatchSync> batch_;  ///< If null, each file and directory is synced.
  std::uint64_t total_ = 0;
};

/// Cannot overflow: the plan has checked each size and their sum against the limits.
std::uint64_t unpackedSize(const ArchivePlan& plan) {
  std::uint64_t size = 0;
  for (const ArchiveEntry& entry : plan.entries) {
    if (!isLeftOut(entry.rawName)) size += entry.size;
  }
  return size;
}

}  // namespace

Status unpackArchive(const Data& data, std::string_view name, const std::string& path,
                     const ArchiveLimits& limits) {
  const Archive archive{data, name, limits};
  const auto plan = planArchive(archive);
  if (!plan) return plan.error();
  const ArchiveNode& top = plan->tree.top(archiveEntryPage);
  const ArchiveNode* const page = top.child(archiveEntryPage);
  if (!page || page->isDirectory()) {
    return storageError(
        KivStorageServiceErrorCode::noEntryPage,
        "The archive " + quoted(name) + " has no " + quoted(archiveEntryPage) + " at its top.");
  }
  // If the file system does not report its free space, try anyway.
  if (const auto space = FileManager::defaultManager().spaceAtPath(path)) {
    Status status = storage::checkRoom(unpackedSize(*plan), "archive", name, *space);
    if (!status) return status;
  }
  return Unpacker(archive, *plan).makeTree(top, path);
}

}  // namespace kiv::storage
