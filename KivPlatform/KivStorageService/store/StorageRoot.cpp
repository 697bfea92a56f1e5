// Directories are synced once, when they are first used: a stored file must not be lost in a power
// cut because the entry of its directory was not on the disk.

#include "KivPlatform/KivStorageService/store/StorageRoot.h"

#include <algorithm>
#include <utility>

#include "KivPlatform/Foundation/Mutex.h"
#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/KivStorageService/store/FreeSpace.h"
#include "KivPlatform/KivStorageService/store/StorageErrors.h"
#include "KivPlatform/KivStorageService/store/StoredPath.h"
#include "KivPlatform/KivStorageService/store/SwapNote.h"

namespace kiv::storage {

namespace {

/// What a file of that size takes at most, as far as one can say without knowing the disk.
std::uint64_t sizeOnDisk(std::uint64_t bytes) {
  constexpr std::uint64_t block = 4096;
  return (bytes / block + 2) * block;
}

std::string parentOf(const std::string& path) {
  return std::string(path::deletingLastPathComponent(path));
}

/// The lowest directory at or above the path that is there.
std::string standingAncestor(std::string path) {
  while (path.size() > 1 && !FileManager::defaultManager().itemExistsAtPath(path)) {
    path = parentOf(path);
  }
  return path;
}

std::unique_ptr<WritableFile> createFile(const std::string& path, Access access,
                                         std::optional<Error>* error) {
  FileManager& files = FileManager::defaultManager();
  return access == Access::owner ? files.createPrivateFileAtPath(path, error)
                                 : files.createFileAtPath(path, error);
}

/// Syncs the entries of every directory from `top` down to the parent of `bottom`.
bool synchronizeWay(const std::string& top, const std::string& bottom,
                    std::optional<Error>* error) {
  for (std::string path = bottom; path.size() > top.size();) {
    path = parentOf(path);
    if (!FileManager::defaultManager().synchronizeDirectoryAtPath(path, error)) return false;
  }
  return true;
}

}  // namespace

StorageRoot::StorageRoot(std::string path) : path_(std::move(path)) {
  ProcessDirectory::sweep(path::appendingPathComponent(path_, privateDirectory), salvage());
}

ProcessDirectory::Salvage StorageRoot::salvage() const {
  return [root = path_](const std::string& directory) { undoInterruptedSwaps(directory, root); };
}

std::optional<Temporary> StorageRoot::makeTemporary(std::optional<Error>* error) {
  auto directory = processDirectory(error);
  if (!directory) return std::nullopt;
  std::string path;
  do {
    path = directory->nextPath();
  } while (FileManager::defaultManager().itemExistsAtPath(path));
  return Temporary(std::move(path), std::move(directory));
}

/// Without a look before: the creation itself fails if something lies.
std::optional<StorageRoot::TemporaryFile> StorageRoot::createTemporaryFile(
    Access access, std::optional<Error>* error) {
  auto directory = processDirectory(error);
  if (!directory) return std::nullopt;
  constexpr int mostAttempts = 100;
  std::optional<Error> problem;
  for (int attempt = 0; attempt < mostAttempts; ++attempt) {
    std::string path = directory->nextPath();
    auto file = createFile(path, access, &problem);
    if (file) return TemporaryFile{{std::move(path), std::move(directory)}, std::move(file)};
    if (!isSystemError(problem, std::errc::file_exists)) break;
  }
  if (error) *error = std::move(problem);
  return std::nullopt;
}

std::shared_ptr<ProcessDirectory> StorageRoot::processDirectory(std::optional<Error>* error) {
  const MutexLock guard(mutex_);
  if (seen_.processDirectoryStands) return processDirectory_;
  if (!processDirectory_ || !processDirectory_->stands()) {
    processDirectory_ = ProcessDirectory::create(
        path::appendingPathComponent(path_, privateDirectory), salvage(), error);
  }
  seen_.processDirectoryStands = isInBatch() && processDirectory_;
  return processDirectory_;
}

bool StorageRoot::prepareDirectory(const std::string& directory, std::optional<Error>* error) {
  FileManager& files = FileManager::defaultManager();
  const MutexLock guard(mutex_);
  if (seen_.standingDirectories.contains(directory)) return true;
  const bool stands = files.itemExistsAtPath(directory);
  if (stands && durableDirectories_.contains(directory)) {
    if (isInBatch()) seen_.standingDirectories.insert(directory);
    return true;
  }
  // One that stands may still be unknown to the disk: who made it may have died before syncing.
  const std::string standing = standingAncestor(directory);
  const std::string& top = standing.size() < path_.size() ? standing : path_;
  if (!stands && !files.createDirectoryAtPath(directory, error)) return false;
  if (!synchronizeWay(top, directory, error)) return false;
  durableDirectories_.insert(directory);
  return true;
}

bool StorageRoot::synchronizeEntries(const std::string& directory, std::optional<Error>* error) {
  {
    const MutexLock guard(mutex_);
    if (isInBatch()) {
      unsyncedDirectories_.insert(directory);
      return true;
    }
  }
  return FileManager::defaultManager().synchronizeDirectoryAtPath(directory, error);
}

std::optional<Error> StorageRoot::validateFile(std::uint64_t bytes, std::string_view name) {
  const std::uint64_t taken = sizeOnDisk(bytes);
  const MutexLock guard(mutex_);
  if (seen_.roomLeft < taken + largestReserve) {
    const auto space = FileManager::defaultManager().spaceAtPath(path_);
    if (!space) return std::nullopt;
    if (auto objection = validateSize(bytes, "file", name, *space)) return objection;
    seen_.roomLeft = isInBatch() ? space->available : 0;
  }
  seen_.roomLeft -= std::min(seen_.roomLeft, taken);
  return std::nullopt;
}

void StorageRoot::forgetRoom() {
  const MutexLock guard(mutex_);
  seen_.roomLeft = 0;
}

void StorageRoot::beginBatch() {
  const MutexLock guard(mutex_);
  ++openBatches_;
}

bool StorageRoot::endBatch(std::optional<Error>* error) {
  std::set<std::string> directories;
  {
    const MutexLock guard(mutex_);
    if (--openBatches_ > 0) return true;
    seen_ = {};
    directories.swap(unsyncedDirectories_);
  }
  bool isDone = true;
  for (const std::string& directory : directories) {
    isDone = FileManager::defaultManager().synchronizeDirectoryAtPath(directory, error) && isDone;
  }
  return isDone;
}

}  // namespace kiv::storage
