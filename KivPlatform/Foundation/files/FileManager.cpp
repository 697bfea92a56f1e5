#include "KivPlatform/Foundation/files/FileManager.h"

#include <atomic>
#include <utility>

#include "KivPlatform/Foundation/files/RemovalGuard.h"
#include "KivPlatform/Foundation/files/SystemFileManager.h"

namespace kiv {

namespace {

std::atomic<FileManager*> replacement{nullptr};

}  // namespace

FileManager& FileManager::defaultManager() {
  FileManager* const manager = replacement.load(std::memory_order_acquire);
  return manager ? *manager : systemFileManager();
}

FileManager* FileManager::setDefaultManager(FileManager* manager) {
  return replacement.exchange(manager, std::memory_order_acq_rel);
}

void FileManager::setRemovalRoots(std::optional<std::vector<std::string>> roots) {
  removal::setRoots(std::move(roots));
}

void FileManager::restoreRemovalRoots() {
  removal::restoreOwnDirectories();
}

std::optional<std::vector<std::string>> FileManager::removalRoots() {
  return removal::roots();
}

std::optional<FileIdentity> FileManager::identityOfFileAtPath(std::string_view path,
                                                              std::optional<Error>* error) {
  return systemFileManager().identityOfFileAtPath(path, error);
}

bool FileManager::createPrivateDirectoryAtPath(std::string_view path, std::optional<Error>* error) {
  if (!createDirectoryAtPath(path, error)) return false;
  makePrivateItemAtPath(path);
  return true;
}

std::unique_ptr<WritableFile> FileManager::createPrivateFileAtPath(std::string_view path,
                                                                   std::optional<Error>* error) {
  auto file = createFileAtPath(path, error);
  if (file) makePrivateItemAtPath(path);
  return file;
}

void FileManager::makePrivateItemAtPath(std::string_view path) {
  systemFileManager().makePrivateItemAtPath(path);
}

void FileManager::discardItemAtPath(std::string_view path) {
  static_cast<void>(removeItemAtPath(path));
}

bool FileManager::copyAccessToFileAtPath_fromFileAtPath(std::string_view path,
                                                        std::string_view otherPath,
                                                        std::optional<Error>* error) {
  return systemFileManager().copyAccessToFileAtPath_fromFileAtPath(path, otherPath, error);
}

}  // namespace kiv
