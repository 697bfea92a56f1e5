#include "Platform/KivStorageService/StorageRoot.h"

#include <utility>

#include "Platform/Foundation/FileManager.h"
#include "Platform/Foundation/Path.h"
#include "Platform/KivStorageService/DirectorySwap.h"

namespace kiv::storage {

namespace {

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
  std::string path = directory->nextPath();
  return Temporary(std::move(path), std::move(directory));
}

std::shared_ptr<ProcessDirectory> StorageRoot::processDirectory(std::optional<Error>* error) {
  const std::lock_guard guard(mutex_);
  if (!processDirectory_ || !processDirectory_->stands()) {
    processDirectory_ = ProcessDirectory::create(
        path::appendingPathComponent(path_, privateDirectory), salvage(), error);
  }
  return processDirectory_;
}

bool StorageRoot::prepareDirectory(const std::string& directory, std::optional<Error>* error) {
  FileManager& files = FileManager::defaultManager();
  const std::lock_guard guard(mutex_);
  const bool stands = files.itemExistsAtPath(directory);
  if (stands && durableDirectories_.contains(directory)) return true;
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
    const std::lock_guard guard(mutex_);
    if (openBatches_ > 0) {
      unsyncedDirectories_.insert(directory);
      return true;
    }
  }
  return FileManager::defaultManager().synchronizeDirectoryAtPath(directory, error);
}

void StorageRoot::beginBatch() {
  const std::lock_guard guard(mutex_);
  ++openBatches_;
}

bool StorageRoot::endBatch(std::optional<Error>* error) {
  std::set<std::string> directories;
  {
    const std::lock_guard guard(mutex_);
    if (--openBatches_ > 0) return true;
    directories.swap(unsyncedDirectories_);
  }
  bool isDone = true;
  for (const std::string& directory : directories) {
    isDone = FileManager::defaultManager().synchronizeDirectoryAtPath(directory, error) && isDone;
  }
  return isDone;
}

}  // namespace kiv::storage
