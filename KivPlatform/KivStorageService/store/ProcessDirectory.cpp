// A process that crashes leaves its directory orphaned. The operating system releases its lock, so
// any process that gets the lock knows that it may remove the directory. Before that it reads the
// notes of DirectorySwap, and moves directories of interrupted swaps back to their paths.

#include "KivPlatform/KivStorageService/store/ProcessDirectory.h"

#include <random>
#include <set>
#include <string_view>
#include <system_error>
#include <utility>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/KivStorageService/store/StoredPath.h"

namespace kiv::storage {

namespace {

constexpr std::string_view lockSuffix = ".lock";
constexpr int mostAttempts = 8;

/// The suffix of a note. What precedes it is the path of the directory that was moved aside.
constexpr std::string_view noteSuffix = ".replaced";

std::string randomName() {
  constexpr std::string_view digits = "0123456789abcdef";
  std::random_device random;
  std::string name;
  for (int i = 0; i < 16; ++i)
    name += digits[random() & 15];
  return name;
}

std::string lockPath(const std::string& directory) {
  return directory + std::string(lockSuffix);
}

/// True if another process holds the lock of the new name, because it is sweeping right now.
bool isHeldElsewhere(const Error& error) {
  return isSystemError(error, std::errc::resource_unavailable_try_again);
}

/// Moves a directory back to the path in its note, unless that path exists.
void undoSwap(const std::string& notePath, const std::string& rootPath) {
  FileManager& files = FileManager::defaultManager();
  const auto note = files.contentsAtPath(notePath);
  if (!note || validateRelativePath(note->view()) || note->empty()) return;
  const std::string spare = notePath.substr(0, notePath.size() - noteSuffix.size());
  const std::string path = path::appendingPathComponent(rootPath, note->view());
  if (!files.itemExistsAtPath(spare) || files.itemExistsAtPath(path)) return;
  if (files.moveItemAtPath_toPath(spare, path)) {
    // If this fails, the move is done but may not survive a power failure.
    static_cast<void>(files.synchronizeDirectoryAtPath(path::deletingLastPathComponent(path)));
  }
}

/// Moves back the directories that interrupted swaps of that process moved aside.
void undoInterruptedSwaps(const std::string& processDirectory, const std::string& rootPath) {
  FileManager& files = FileManager::defaultManager();
  if (!files.directoryExistsAtPath(processDirectory)) return;
  const auto names = files.contentsOfDirectoryAtPath(processDirectory);
  if (!names) return;
  for (const std::string& name : *names) {
    if (!name.ends_with(noteSuffix)) continue;
    undoSwap(path::appendingPathComponent(processDirectory, name), rootPath);
  }
}

/// Requires the directory's lock. The lock file is removed last, and only if the directory is gone.
/// Otherwise another process could lock a new file of that name.
void removeLocked(const std::string& directory, const std::string& rootPath) {
  FileManager& files = FileManager::defaultManager();
  undoInterruptedSwaps(directory, rootPath);
  const bool isGone = !files.itemExistsAtPath(directory) || files.removeItemAtPath(directory);
  if (isGone) files.discardItemAtPath(lockPath(directory));
}

}  // namespace

ProcessDirectory::ProcessDirectory(std::string path, std::string rootPath,
                                   std::unique_ptr<FileLock> lock)
    : parent_(std::string(path::deletingLastPathComponent(path))),
      path_(std::move(path)),
      rootPath_(std::move(rootPath)),
      lock_(std::move(lock)) {}

ProcessDirectory::~ProcessDirectory() {
  removeLocked(path_, rootPath_);
}

std::string ProcessDirectory::swapNotePath(const std::string& spare) {
  return spare + std::string(noteSuffix);
}

Result<std::shared_ptr<ProcessDirectory>> ProcessDirectory::create(const std::string& rootPath) {
  const std::string parent = path::appendingPathComponent(rootPath, privateDirectory);
  FileManager& files = FileManager::defaultManager();
  if (Status status = files.createPrivateDirectoryAtPath(parent); !status) return status;
  for (int attempt = 1;; ++attempt) {
    const std::string path = path::appendingPathComponent(parent, randomName());
    auto lock = files.lockFileAtPath(lockPath(path));
    if (lock) {
      std::shared_ptr<ProcessDirectory> directory(
          new ProcessDirectory(path, rootPath, *std::move(lock)));
      if (Status status = files.createPrivateDirectoryAtPath(path); !status) return status;
      return directory;
    }
    if (!isHeldElsewhere(lock.error()) || attempt == mostAttempts) return lock.error();
  }
}

void ProcessDirectory::sweep(const std::string& rootPath) {
  const std::string parent = path::appendingPathComponent(rootPath, privateDirectory);
  FileManager& files = FileManager::defaultManager();
  const removal::PrivateDirectory root(parent);
  if (!files.directoryExistsAtPath(parent)) return;
  files.makePrivateItemAtPath(parent);
  const auto items = files.contentsOfDirectoryAtPath(parent);
  if (!items) return;
  std::set<std::string_view> names;
  for (std::string_view item : *items) {
    if (isLockName(item)) item.remove_suffix(lockSuffix.size());
    names.insert(item);
  }
  for (const std::string_view name : names) {
    const std::string directory = path::appendingPathComponent(parent, name);
    const auto lock = files.lockFileAtPath(lockPath(directory));
    if (!lock) continue;
    removeLocked(directory, rootPath);
  }
}

bool ProcessDirectory::isLockName(std::string_view name) noexcept {
  return name.ends_with(lockSuffix);
}

bool ProcessDirectory::exists() const {
  FileManager& files = FileManager::defaultManager();
  return files.directoryExistsAtPath(path_) && files.fileExistsAtPath(lockPath(path_));
}

std::string ProcessDirectory::nextPath() {
  return path::appendingPathComponent(path_, std::to_string(counter_++));
}

Temporary::Temporary(std::string path, std::shared_ptr<ProcessDirectory> home)
    : path_(std::move(path)), home_(std::move(home)) {}

Temporary::~Temporary() {
  if (!home_) return;
  FileManager& files = FileManager::defaultManager();
  if (files.itemExistsAtPath(path_)) files.discardItemAtPath(path_);
}

}  // namespace kiv::storage
