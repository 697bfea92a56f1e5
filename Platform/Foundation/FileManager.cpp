#include "Platform/Foundation/FileManager.h"

#include <atomic>
#include <mutex>
#include <utility>

#include "Platform/Foundation/SystemFileManager.h"

namespace kiv {

namespace {

std::atomic<FileManager*> replacement{nullptr};

/// Never destroyed: things are removed while the process exits.
struct RemovalGuard {
  std::mutex mutex;
  std::optional<std::vector<std::string>> roots;
};

RemovalGuard& removalGuard() {
  static auto& shared = *new RemovalGuard;
  return shared;
}

}  // namespace

FileManager& FileManager::defaultManager() {
  FileManager* const manager = replacement.load(std::memory_order_acquire);
  return manager ? *manager : systemFileManager();
}

FileManager* FileManager::setDefaultManager(FileManager* manager) {
  return replacement.exchange(manager, std::memory_order_acq_rel);
}

void FileManager::setRemovalRoots(std::optional<std::vector<std::string>> roots) {
  const std::lock_guard guard(removalGuard().mutex);
  removalGuard().roots = std::move(roots);
}

std::optional<std::vector<std::string>> FileManager::removalRoots() {
  const std::lock_guard guard(removalGuard().mutex);
  return removalGuard().roots;
}

std::optional<FileIdentity> FileManager::identityOfFileAtPath(std::string_view path,
                                                              std::optional<Error>* error) {
  return systemFileManager().identityOfFileAtPath(path, error);
}

}  // namespace kiv
