// The directories above a file are synced when first used. Otherwise a power failure could lose a
// synced file, because the directory entry of one of its parents was not on the disk.

#include "KivPlatform/KivStorageService/store/StorageRoot.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <optional>
#include <system_error>
#include <utility>

#include "KivPlatform/Foundation/Mutex.h"
#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/files/FileName.h"
#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/Foundation/system/OperatingSystem.h"
#include "KivPlatform/KivStorageService/store/FreeSpace.h"

namespace kiv::storage {

namespace {

/// An upper bound on the disk space of a file of that size: its blocks and one more.
std::uint64_t sizeOnDisk(std::uint64_t bytes) {
  constexpr std::uint64_t block = 4096;
  return (bytes / block + 2) * block;
}

std::string parentOf(const std::string& path) {
  return std::string(path::deletingLastPathComponent(path));
}

/// The path itself, or its deepest ancestor that exists.
std::string existingAncestor(std::string path) {
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
Status synchronizeAncestors(const std::string& top, const std::string& bottom) {
  for (std::string path = bottom; path.size() > top.size();) {
    path = parentOf(path);
    Status status = FileManager::defaultManager().synchronizeDirectoryAtPath(path);
    if (!status) return status;
  }
  return {};
}

// --- The open roots ------------------------------------------------------------------------------

/// Never destroyed, because a thread may save while the process exits. The next process removes the
/// orphaned lock file and the empty directory.
struct OpenRoots {
  Mutex mutex;
  std::map<std::string, std::weak_ptr<StorageRoot>> byPath KIV_GUARDED_BY(mutex);
  /// The root of the process, and the path that the host has set for it.
  std::shared_ptr<StorageRoot> current KIV_GUARDED_BY(mutex);
  std::optional<std::string> namedPath KIV_GUARDED_BY(mutex);
};

OpenRoots& inUse() {
  static auto& shared = *new OpenRoots;
  return shared;
}

std::shared_ptr<StorageRoot> open(OpenRoots& shared, const std::string& path)
    KIV_REQUIRES(shared.mutex) {
  if (path.empty()) return nullptr;
  if (auto root = shared.byPath[path].lock()) {
    ProcessDirectory::sweep(path);
    return root;
  }
  std::erase_if(shared.byPath, [](const auto& entry) { return entry.second.expired(); });
  auto root = std::make_shared<StorageRoot>(path);
  shared.byPath[path] = root;
  return root;
}

std::string tidied(std::string path) {
  if (!path.starts_with('/') || path.find('\0') != path.npos) return {};
  while (path.size() > 1 && path.ends_with('/'))
    path.pop_back();
  return path;
}

/// Made absolute, so that a later change of the working directory has no effect.
std::string namedPath(const std::string& path) {
  if (path.empty()) return path;
  std::error_code failure;
  return tidied(std::filesystem::absolute(path, failure).string());
}

/// The name of this program's directory among the user's application data.
std::string directoryName() {
  std::string name = system::programName();
  return filename::isValid(name) ? name : "KivResource";
}

/// The path of that name in the user's directory; empty if there is no such directory.
std::string pathInUserDirectory(const std::string& directory, const std::string& name) {
  return directory.empty() ? directory : tidied(path::appendingPathComponent(directory, name));
}

std::string defaultPath() {
  return pathInUserDirectory(system::userDataDirectory(), directoryName());
}

std::string currentPathOf(const OpenRoots& shared) KIV_REQUIRES(shared.mutex) {
  if (shared.current) return shared.current->path();
  return shared.namedPath ? *shared.namedPath : defaultPath();
}

std::shared_ptr<StorageRoot> currentOf(OpenRoots& shared) KIV_REQUIRES(shared.mutex) {
  if (!shared.current) shared.current = open(shared, currentPathOf(shared));
  return shared.current;
}

}  // namespace

StorageRoot::StorageRoot(std::string path) : path_(std::move(path)) {
  ProcessDirectory::sweep(path_);
}

Result<Temporary> StorageRoot::makeTemporary(std::string_view suffix) {
  auto directory = processDirectory();
  if (!directory) return directory.error();
  std::string path;
  do {
    path = (*directory)->nextPath().append(suffix);
  } while (FileManager::defaultManager().itemExistsAtPath(path));
  return Temporary(std::move(path), *std::move(directory));
}

/// Does not check first whether the path exists: O_EXCL does that without a race.
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
  if (seen_.processDirectoryExists) return processDirectory_;
  if (!processDirectory_ || !processDirectory_->exists()) {
    auto created = ProcessDirectory::create(path_);
    processDirectory_ = created ? *created : nullptr;
    if (!created) return created.error();
  }
  seen_.processDirectoryExists = isInBatch();
  return processDirectory_;
}

Status StorageRoot::prepareDirectory(const std::string& directory) {
  FileManager& files = FileManager::defaultManager();
  const MutexLock guard(mutex_);
  if (seen_.existingDirectories.contains(directory)) return {};
  const bool exists = files.itemExistsAtPath(directory);
  if (exists && durableDirectories_.contains(directory)) {
    if (isInBatch()) seen_.existingDirectories.insert(directory);
    return {};
  }
  // An existing directory is synced too: the process that created it may have died before its
  // fsync.
  const std::string existing = existingAncestor(directory);
  const std::string& top = existing.size() < path_.size() ? existing : path_;
  if (!exists) {
    if (Status status = files.createDirectoryAtPath(directory); !status) return status;
  }
  if (Status status = synchronizeAncestors(top, directory); !status) return status;
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

/// Succeeds if the file system does not report its free space.
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

/// Syncs all directories even if one fails, and returns the last error.
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

std::string StorageRoot::pathInUserCache(const std::optional<std::string>& name) {
  if (name && !filename::isValid(*name)) return {};
  return pathInUserDirectory(system::userCacheDirectory(), name ? *name : directoryName());
}

std::string StorageRoot::currentPath() {
  const MutexLock guard(inUse().mutex);
  return currentPathOf(inUse());
}

void StorageRoot::setCurrentPath(std::optional<std::string> path) {
  const MutexLock guard(inUse().mutex);
  // Release the old root first. If the new one has the same path, its sweep then finds no lock that
  // this process holds.
  inUse().current.reset();
  inUse().namedPath = path ? std::optional(namedPath(*path)) : std::nullopt;
  if (inUse().namedPath) currentOf(inUse());
}

std::shared_ptr<StorageRoot> StorageRoot::current() {
  const MutexLock guard(inUse().mutex);
  return currentOf(inUse());
}

std::shared_ptr<StorageRoot> StorageRoot::open(const std::string& path) {
  const MutexLock guard(inUse().mutex);
  return storage::open(inUse(), namedPath(path));
}

}  // namespace kiv::storage
