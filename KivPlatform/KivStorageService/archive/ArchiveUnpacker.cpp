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

Error refusal(std::string_view archiveName, const ArchiveObjection& objection) {
  return storageError(KivStorageServiceErrorCode::invalidArchive,
                      "The archive " + quoted(archiveName) + " " + objection + ".");
}

/// Writes what a plan lays out, and counts what really comes out of the archive.
class Unpacker {
 public:
  Unpacker(const ArchivePlan& plan, std::uint64_t archiveBytes, const ArchiveLimits& limits,
           std::string_view archiveName)
      : plan_(plan),
        archiveBytes_(archiveBytes),
        limits_(limits),
        archiveName_(archiveName),
        files_(FileManager::defaultManager()) {}

  /// Makes the directory with everything that lies below the node, and has it reach the disk: all
  /// at once where that is possible and faster, and otherwise each file when it is written, and
  /// each directory when all of its entries are there.
  bool makeTree(const ArchiveNode& top, const std::string& path, std::optional<Error>* error) {
    if (!files_.createDirectoryAtPath(path, error)) return false;
    batch_ = files_.beginBatchSyncAtPath(path, plan_.entries.size());
    return fillDirectory(top, path, error) && (!batch_ || batch_->synchronize(error));
  }

 private:
  bool fillDirectory(const ArchiveNode& directory, const std::string& path,
                     std::optional<Error>* error) {
    for (const auto& [folded, child] : directory.children) {
      const std::string childPath = path::appendingPathComponent(path, child->name);
      const bool made = child->isDirectory() ? files_.createDirectoryAtPath(childPath, error) &&
                                                   fillDirectory(*child, childPath, error)
                                             : makeFile(*child->entry, childPath, error);
      if (!made) return false;
    }
    return batch_ || files_.synchronizeDirectoryAtPath(path, error);
  }

  bool makeFile(std::uint64_t index, const std::string& path, std::optional<Error>* error) {
    const auto file = files_.createFileAtPath(path, error);
    return file && writeContents(index, *file, error) && (batch_ || file->synchronize(error)) &&
           file->close(error);
  }

  bool writeContents(std::uint64_t index, WritableFile& file, std::optional<Error>* error) {
    const ArchiveEntry& entry = plan_.entries[static_cast<std::size_t>(index)];
    std::uint64_t size = 0;
    std::optional<std::string> rule;
    bool isWritten = true;
    std::string reason;
    const auto outcome = plan_.reader->read(
        index,
        [&](std::string_view piece) {
          size += piece.size();
          total_ += piece.size();
          rule = validateSize(entry, size);
          return !rule && (isWritten = file.write(piece, error));
        },
        reason);
    if (!isWritten) return false;
    if (outcome == ArchiveReader::Outcome::broken) rule = "cannot be decoded: " + reason;
    if (!rule && size != entry.size) rule = "is shorter than the archive says";
    if (!rule) return true;
    return fail(error, refusal(archiveName_, entryObjection(entry.rawName, *rule)));
  }

  [[nodiscard]] std::optional<std::string> validateSize(const ArchiveEntry& entry,
                                                        std::uint64_t size) const {
    if (size > entry.size) return "is longer than the archive says";
    if (size > limits_.fileBytes) {
      return "is larger than " + std::to_string(limits_.fileBytes) + " bytes";
    }
    if (total_ > limits_.totalBytes) {
      return "brings the archive beyond " + std::to_string(limits_.totalBytes) + " bytes";
    }
    if (isTooDense(size, entry.packedSize) || isTooDense(total_, archiveBytes_)) {
      return "unpacks to more than " + std::to_string(limits_.ratio) + " times its size";
    }
    return std::nullopt;
  }

  [[nodiscard]] bool isTooDense(std::uint64_t unpacked, std::uint64_t packed) const {
    return unpacked > limits_.ratioFreeBytes && unpacked / limits_.ratio > packed;
  }

  const ArchivePlan& plan_;
  std::uint64_t archiveBytes_;
  const ArchiveLimits& limits_;
  std::string_view archiveName_;
  FileManager& files_;
  std::unique_ptr<BatchSync> batch_;  ///< syncs all files at once; none where each syncs itself
  std::uint64_t total_ = 0;
};

/// Each size is below its limit, and so is their sum.
std::uint64_t unpackedSize(const ArchivePlan& plan) {
  std::uint64_t size = 0;
  for (const ArchiveEntry& entry : plan.entries) {
    if (!isLeftOut(entry.rawName)) size += entry.size;
  }
  return size;
}

}  // namespace

bool unpackArchive(const Data& archive, std::string_view archiveName, const std::string& path,
                   const ArchiveLimits& limits, std::optional<Error>* error) {
  ArchiveObjection objection;
  const auto plan = planArchive(archive, limits, objection);
  if (!plan) return fail(error, refusal(archiveName, objection));
  const ArchiveNode& top = plan->tree.top(archiveEntryPage);
  const ArchiveNode* const page = top.child(archiveEntryPage);
  if (!page || page->isDirectory()) {
    return fail(error, storageError(KivStorageServiceErrorCode::noEntryPage,
                                    "The archive " + quoted(archiveName) + " has no " +
                                        quoted(archiveEntryPage) + " at its top."));
  }
  // A disk that does not tell its room is tried.
  const auto space = FileManager::defaultManager().spaceAtPath(path);
  auto full =
      space ? validateSize(unpackedSize(*plan), "archive", archiveName, *space) : std::nullopt;
  if (full) return fail(error, std::move(*full));
  return Unpacker(*plan, archive.size(), limits, archiveName).makeTree(top, path, error);
}

}  // namespace kiv::storage
