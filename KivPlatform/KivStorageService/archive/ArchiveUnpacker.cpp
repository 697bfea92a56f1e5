// Every check that needs no decompression is done before the first byte is written. The declared
// sizes in an archive may be false (a zip bomb), so all limits on sizes are checked again on the
// bytes that come out of the decoder, before these are written.

#include "KivPlatform/KivStorageService/archive/ArchiveUnpacker.h"

#include <memory>
#include <utility>
#include <vector>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/Foundation/text/Unicode.h"
#include "KivPlatform/KivStorageService/ArchiveNames.h"
#include "KivPlatform/KivStorageService/archive/ArchiveDirectory.h"
#include "KivPlatform/KivStorageService/archive/ArchiveReader.h"
#include "KivPlatform/KivStorageService/archive/ArchiveRules.h"
#include "KivPlatform/KivStorageService/store/FreeSpace.h"
#include "KivPlatform/KivStorageService/store/StorageErrors.h"

namespace kiv::storage {

namespace {

/// An archive that has passed every check that needs no decompression.
struct ArchivePlan {
  std::vector<ArchiveEntry> entries;
  std::unique_ptr<ArchiveReader> reader;
  ArchiveTree tree;
};

/// Checks what is known of an entry before libzip has decoded its name.
std::optional<std::string> validateListedEntry(const ArchiveEntry& entry,
                                               const ArchiveLimits& limits) {
  if (entry.rawName.find('\0') != entry.rawName.npos) return "has a NUL character in its name";
  if (auto problem = validateEntryKind(entry, limits)) return problem;
  if (entry.saysUTF8() && !unicode::isUTF8(entry.rawName)) return "has a name that is no UTF-8";
  return std::nullopt;
}

Status checkList(const std::vector<ArchiveEntry>& entries, const Archive& archive) {
  const ArchiveLimits& limits = archive.limits;
  std::uint64_t total = 0;
  for (const ArchiveEntry& entry : entries) {
    if (const auto rule = validateListedEntry(entry, limits)) {
      return archive.refusal(entry.rawName, *rule);
    }
    if (isLeftOut(entry.rawName)) continue;
    total += entry.size;  // no overflow: the number of entries and each size are limited
    if (total > limits.totalBytes) {
      return archive.refusal("holds more than " + std::to_string(limits.totalBytes) +
                             " bytes unpacked");
    }
  }
  return {};
}

std::optional<std::string> addEntry(const ArchivePlan& plan, std::uint64_t index,
                                    const ArchiveLimits& limits, ArchiveTree& tree) {
  const std::string name = plan.reader->name(index);
  if (auto problem = validateEntryName(name, limits)) return problem;
  const std::string_view path = pathOfEntryName(name);
  if (path.empty() || isLeftOut(name)) return std::nullopt;
  return name.ends_with('/') ? tree.addDirectory(path) : tree.addFile(path, index);
}

/// Checks that libzip sees the same entries as the strict parser, and adds them to the tree. The
/// names are checked as libzip decodes them, since those are the names that files will get.
Status layOut(ArchivePlan& plan, const Archive& archive) {
  const std::string_view ambiguous = "can be read in two ways";
  if (plan.reader->entryCount() != plan.entries.size()) return archive.refusal(ambiguous);
  for (std::uint64_t index = 0; index < plan.entries.size(); ++index) {
    const std::string& name = plan.entries[static_cast<std::size_t>(index)].rawName;
    if (plan.reader->rawName(index) != name) return archive.refusal(name, ambiguous);
    if (const auto rule = addEntry(plan, index, archive.limits, plan.tree)) {
      return archive.refusal(name, *rule);
    }
  }
  return {};
}

/// Checks the archive and plans its unpacking. The archive must outlive the plan.
Result<ArchivePlan> planArchive(const Archive& archive) {
  auto directory = ArchiveDirectory::read(archive);
  if (!directory) return directory.error();
  if (Status status = checkList(directory->entries(), archive); !status) return status;
  auto reader = ArchiveReader::open(archive);
  if (!reader) return reader.error();
  ArchivePlan plan{directory->entries(), *std::move(reader), ArchiveTree(archive.limits.items)};
  if (Status status = layOut(plan, archive); !status) return status;
  return plan;
}

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
    batch_ = files_.beginBatchSyncAtPath(path);
    if (batch_ && !batch_->pays(plan_.entries.size())) batch_.reset();
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
