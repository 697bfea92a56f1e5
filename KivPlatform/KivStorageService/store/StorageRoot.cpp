// Directories are synced once, when they are first used: a stored file must not be lost in a power
// cut because the entry of its directory was not on the disk.

#include "KivPlatform/KivStorageService/store/StorageRoot.h"

#include <algorithm>
#include <system_error>
#include <utility>

#include "KivPlatform/Foundation/Mutex.h"
#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/KivStorageService/store/FreeSpace.h"
#include "KivPlatform/KivStorageService/store/StoredPath.h"
#include "KivPlatform/KivStorageService/store/SwapNote.h"

namespace kiv::storage {

namespace {

/// An upper bound of the space that a file of that size takes: its blocks and one more.
std::uint64_t sizeOnDisk(std::uint64_t bytes) {
  constexpr std::uint64_t block = 4096;
  return (bytes / block + 2) * block;
}

std::string parentOf(const std::string& path) {
  return std::string(path::deletingLastPathComponent(path));
}

/// The lowest directory at or above the path that exists.
std::string standingAncestor(std::string path) {
  while (path.size() > 1 && !FileManager::defaultManager().itemExistsAtPath(path)) {
    path = parentOf(path);
  }
  return path;
}

Result<std::unique_ptr<WritableFile>> createFile(const std::string& path, Access access) {
  FileManager& files = FileManager::defaultManager();
  return access == Access::owner ? files.createPrivateFileAtPath(path)
                                 : files.createFileAtPath(path);
}

/// Syncs the entries of every directory from `top` down to the parent of `bottom`.
Status synchronizeWay(const std::string& top, const std::string& bottom) {
  for (std::string path = bottom; path.size() > top.size();) {
    path = parentOf(path);
    Status status = FileManager::defaultManager().synchronizeDirectoryAtPath(path);
    if (!status) return status;
  }
  return {};
}

}  // namespace

StorageRoot::StorageRoot(std::string path) : path_(std::move(path)) {
  ProcessDirectory::sweep(path::appendingPathComponent(path_, privateDirectory), salvage());
}

ProcessDirectory::Salvage StorageRoot::salvage() const {
  return [root = path_](const std::string& directory) { undoInterruptedSwaps(directory, root); };
}

Result<Temporary> StorageRoot::makeTemporary() {
  auto directory = processDirectory();
  if (!directory) return directory.error();
  std::string path;
  do {
    path = (*directory)->nextPath();
  } while (FileManager::defaultManager().itemExistsAtPath(path));
  return Temporary(std::move(path), *std::move(directory));
}

/// Does not look first whether something lies at the path: the creation fails if so.
Result<StorageRoot::TemporaryFile> StorageRoot::createTemporaryFile(Access access) {
  auto directory = processDirectory();
  if (!directory) return directory.error();
  constexpr int mostAttempts = 100;
  for (int attempt = 1;; ++attempt) {
    std::string path = (*directory)->nextPath();
    auto file = createFile(path, access);
    if (file) {
      return TemporaryFile{{std::move(path), *std::move(directory)}, *std::move(file)};
    }
    const bool isTaken = isSystemError(file.error(), std::errc::file_exists);
    if (!isTaken || attempt == mostAttempts) return file.error();
  }
}

Result<std::shared_ptr<ProcessDirectory>> StorageRoot::processDirectory() {
  const MutexLock guard(mutex_);
  if (seen_.processDirectoryStands) return processDirectory_;
  if (!processDirectory_ || !processDirectory_->stands()) {
    auto created =
        ProcessDirectory::create(path::appendingPathComponent(path_, privateDirectory), salvage());
    processDirectory_ = created ? *created : nullptr;
    if (!created) return created.error();
  }
  seen_.processDirectoryStands = isInBatch();
  return processDirectory_;
}

Status StorageRoot::prepareDirectory(const std::string& directory) {
  FileManager& files = FileManager::defaultManager();
  const MutexLock guard(mutex_);
  if (seen_.standingDirectories.contains(directory)) return {};
  const bool stands = files.itemExistsAtPath(directory);
  if (stands && durableDirectories_.contains(directory)) {
    if (isInBatch()) seen_.standingDirectories.insert(directory);
    return {};
  }
  // An existing one may not be on the disk yet: the process that made it may have died before
  // syncing.
  const std::string standing = standingAncestor(directory);
  const std::string& top = standing.size() < path_.size() ? standing : path_;
  if (!stands) {
    if (Status status = files.createDirectoryAtPath(directory); !status) return status;
  }
  if (Status status = synchronizeWay(top, directory); !status) return status;
  durableDirectories_.insert(directory);
  return {};
}

Status StorageRoot::synchronizeEntries(const std::string& directory) {
  {
    const MutexLock guard(mutex_);
    if (isInBatch()) {
      unsyncedDirectories_.insert(directory);
      return {};
    }
  }
  return FileManager::defaultManager().synchronizeDirectoryAtPath(directory);
}

/// A disk that does not tell its free space is tried.
Status StorageRoot::checkRoom(std::uint64_t bytes, std::string_view name) {
  const std::uint64_t taken = sizeOnDisk(bytes);
  const MutexLock guard(mutex_);
  if (seen_.roomLeft < taken + largestReserve) {
    const auto space = FileManager::defaultManager().spaceAtPath(path_);
    if (!space) return {};
    if (Status status = storage::checkRoom(bytes, "file", name, *space); !status) return status;
    seen_.roomLeft = isInBatch() ? space->available : 0;
  }
  seen_.roomLeft -= std::min(seen_.roomLeft, taken);
  return {};
}

void StorageRoot::forgetRoom() {
  const MutexLock guard(mutex_);
  seen_.roomLeft = 0;
}

void StorageRoot::beginBatch() {
  const MutexLock guard(mutex_);
  ++openBatches_;
}

/// Syncs the other directories even if one fails; answers with the last failure.
Status StorageRoot::endBatch() {
  std::set<std::string> directories;
  {
    const MutexLock guard(mutex_);
    if (--openBatches_ > 0) return {};
    seen_ = {};
    directories.swap(unsyncedDirectories_);
  }
  Status result;
  for (const std::string& directory : directories) {
    Status status = FileManager::defaultManager().synchronizeDirectoryAtPath(directory);
    if (!status) result = std::move(status);
  }
  return result;
}

}  // namespace kiv::storage
