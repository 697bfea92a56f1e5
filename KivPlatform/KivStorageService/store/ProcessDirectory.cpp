#include "KivPlatform/KivStorageService/store/ProcessDirectory.h"

#include <random>
#include <set>
#include <string_view>
#include <utility>

#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/Foundation/files/RemovalGuard.h"
#include "KivPlatform/KivStorageService/store/StorageErrors.h"

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

/// True if a lock was just made, and another process that sweeps at this very moment holds it;
/// that name is then given up for another.
bool isHeldElsewhere(const std::optional<Error>& error) {
  return isSystemError(error, std::errc::resource_unavailable_try_again);
}

/// The caller holds the directory's lock. The lock file goes last, as long as it guards something.
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

std::shared_ptr<ProcessDirectory> ProcessDirectory::create(const std::string& parent,
                                                           Salvage salvage,
                                                           std::optional<Error>* error) {
  FileManager& files = FileManager::defaultManager();
  removal::setOwnDirectory(removal::OwnDirectory::temporaries, parent);
  if (!files.createPrivateDirectoryAtPath(parent, error)) return nullptr;
  std::optional<Error> lockError;
  for (int attempt = 0; attempt < mostAttempts; ++attempt) {
    const std::string path = path::appendingPathComponent(parent, randomName());
    if (auto lock = files.lockFileAtPath(lockPath(path), &lockError)) {
      std::shared_ptr<ProcessDirectory> directory(
          new ProcessDirectory(path, std::move(lock), std::move(salvage)));
      return files.createPrivateDirectoryAtPath(path, error) ? directory : nullptr;
    }
    if (!isHeldElsewhere(lockError)) break;
  }
  if (error) *error = std::move(lockError);
  return nullptr;
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
