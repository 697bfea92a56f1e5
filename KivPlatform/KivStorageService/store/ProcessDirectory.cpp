#include "KivPlatform/KivStorageService/store/ProcessDirectory.h"

#include <random>
#include <set>
#include <string_view>
#include <system_error>
#include <utility>

#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/Foundation/files/RemovalGuard.h"

namespace kiv::storage {

namespace {

constexpr std::string_view lockSuffix = ".lock";
constexpr int mostAttempts = 8;

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

/// True if another process, which is just sweeping, holds the lock of the new name. Another name is
/// tried then.
bool isHeldElsewhere(const Error& error) {
  return isSystemError(error, std::errc::resource_unavailable_try_again);
}

/// The caller holds the directory's lock. The lock file is removed last, and only if it guards
/// nothing any more.
void removeLocked(const std::string& directory, const ProcessDirectory::Salvage& salvage) {
  FileManager& files = FileManager::defaultManager();
  salvage(directory);
  const bool isGone = !files.itemExistsAtPath(directory) || files.removeItemAtPath(directory);
  if (isGone) files.discardItemAtPath(lockPath(directory));
}

}  // namespace

ProcessDirectory::ProcessDirectory(std::string path, std::unique_ptr<FileLock> lock,
                                   Salvage salvage)
    : path_(std::move(path)), lock_(std::move(lock)), salvage_(std::move(salvage)) {}

ProcessDirectory::~ProcessDirectory() {
  removeLocked(path_, salvage_);
}

Result<std::shared_ptr<ProcessDirectory>> ProcessDirectory::create(const std::string& parent,
                                                                   Salvage salvage) {
  FileManager& files = FileManager::defaultManager();
  removal::setOwnDirectory(removal::OwnDirectory::temporaries, parent);
  if (Status status = files.createPrivateDirectoryAtPath(parent); !status) return status;
  for (int attempt = 1;; ++attempt) {
    const std::string path = path::appendingPathComponent(parent, randomName());
    auto lock = files.lockFileAtPath(lockPath(path));
    if (lock) {
      std::shared_ptr<ProcessDirectory> directory(
          new ProcessDirectory(path, *std::move(lock), std::move(salvage)));
      if (Status status = files.createPrivateDirectoryAtPath(path); !status) return status;
      return directory;
    }
    if (!isHeldElsewhere(lock.error()) || attempt == mostAttempts) return lock.error();
  }
}

void ProcessDirectory::sweep(const std::string& parent, const Salvage& salvage) {
  FileManager& files = FileManager::defaultManager();
  removal::setOwnDirectory(removal::OwnDirectory::temporaries, parent);
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
    removeLocked(directory, salvage);
  }
}

bool ProcessDirectory::isLockName(std::string_view name) noexcept {
  return name.ends_with(lockSuffix);
}

bool ProcessDirectory::stands() const {
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
