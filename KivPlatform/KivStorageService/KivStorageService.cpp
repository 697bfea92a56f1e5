// Each save runs the steps of an atomic replacement in one fixed order: check the names, write the
// new file or directory as a temporary, fsync it, rename it into place, fsync the parent directory.
// A reader or a crash sees the old contents or the new ones. Internally a failure is a Status; only
// the public operations convert it to the error out-argument.

#include "KivPlatform/KivStorageService/KivStorageService.h"

#include <exception>
#include <memory>
#include <utility>

#include "KivPlatform/Foundation/Mutex.h"
#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/KivStorageService/archive/ArchiveUnpacker.h"
#include "KivPlatform/KivStorageService/store/AtomicFile.h"
#include "KivPlatform/KivStorageService/store/DirectorySwap.h"
#include "KivPlatform/KivStorageService/store/FreeSpace.h"
#include "KivPlatform/KivStorageService/store/StorageErrors.h"
#include "KivPlatform/KivStorageService/store/StorageRoot.h"
#include "KivPlatform/KivStorageService/store/StoredPath.h"

namespace {

using kiv::Data;
using kiv::Error;
using kiv::FileManager;
using kiv::Result;
using kiv::Status;
using kiv::storage::Access;
using kiv::storage::AtomicFile;
using kiv::storage::quoted;
using kiv::storage::StorageRoot;

struct LimitsInUse {
  kiv::Mutex mutex;
  kiv::ArchiveLimits limits KIV_GUARDED_BY(mutex);
};

LimitsInUse& limitsInUse() {
  static auto& shared = *new LimitsInUse;
  return shared;
}

Error noRootError() {
  return kiv::storage::storageError(KivStorageServiceErrorCode::noRoot,
                                    "There is no directory to store files in.");
}

Error nameIsTakenError(std::string_view name, std::string_view sort) {
  return kiv::storage::storageError(KivStorageServiceErrorCode::nameIsTaken,
                                    "The name " + quoted(name) +
                                        " is taken by something that is not a " +
                                        std::string(sort) + ".");
}

std::string joined(std::string_view root, std::string_view relativePath,
                   std::string_view fileName) {
  std::string directory = relativePath.empty()
                              ? std::string(root)
                              : kiv::path::appendingPathComponent(root, relativePath);
  return kiv::path::appendingPathComponent(directory, fileName);
}

/// A temporary file with the bytes. If they are in a file already, that file is renamed instead of
/// copied.
Result<AtomicFile> temporaryFile(StorageRoot& root, const Data& data, std::string_view name,
                                 Access access) {
  if (access == Access::shared) {
    if (auto adopted = AtomicFile::adopt(root, data)) return *std::move(adopted);
  }
  if (Status status = root.checkRoom(data.size(), name); !status) return status;
  auto file = AtomicFile::create(root, access);
  if (!file) return file;
  if (Status status = file->write(data); !status) return status;
  return file;
}

Status saveFile(StorageRoot& root, const Data& data, const std::string& path, Access access) {
  FileManager& files = FileManager::defaultManager();
  const std::string_view name = kiv::path::lastPathComponent(path);
  const bool isReplaceable =
      !files.itemExistsAtPath(path) || files.linkExistsAtPath(path) || files.fileExistsAtPath(path);
  if (!isReplaceable) return nameIsTakenError(name, "file");
  auto file = temporaryFile(root, data, name, access);
  if (!file) return file.error();
  const std::string directory(kiv::path::deletingLastPathComponent(path));
  if (Status status = root.prepareDirectory(directory); !status) return status;
  if (Status status = file->place(path); !status) return status;
  return root.synchronizeEntries(directory);
}

Status saveArchive(StorageRoot& root, const Data& data, std::string_view fileName,
                   const std::string& path) {
  FileManager& files = FileManager::defaultManager();
  const bool isReplaceable = !files.itemExistsAtPath(path) || files.linkExistsAtPath(path) ||
                             files.directoryExistsAtPath(path);
  if (!isReplaceable) return nameIsTakenError(kiv::path::lastPathComponent(path), "directory");
  const auto temporary = root.makeTemporary();
  if (!temporary) return temporary.error();
  root.forgetRoom();
  Status status = kiv::storage::unpackArchive(data, fileName, temporary->path(),
                                              KivStorageService::archiveLimits());
  if (!status) return status;
  status = root.prepareDirectory(std::string(kiv::path::deletingLastPathComponent(path)));
  if (!status) return status;
  return kiv::storage::swapDirectoryIn(root, *temporary, path);
}

Status save(const Data& data, std::string_view fileName, std::string_view relativePath,
            Access access) {
  Status status = kiv::storage::checkSaving(fileName, relativePath);
  if (!status) return status;
  const auto root = StorageRoot::current();
  if (!root) return noRootError();
  if (!kiv::storage::isArchiveName(fileName)) {
    return saveFile(*root, data, joined(root->path(), relativePath, fileName), access);
  }
  const std::string_view stem = kiv::storage::archiveStem(fileName);
  return saveArchive(*root, data, fileName, joined(root->path(), relativePath, stem));
}

Result<Data> load(std::string_view fileName, std::string_view relativePath) {
  Status status = kiv::storage::checkPlace(fileName, relativePath);
  if (!status) return status;
  const auto root = StorageRoot::current();
  if (!root) return noRootError();
  return FileManager::defaultManager().contentsAtPath(joined(root->path(), relativePath, fileName));
}

/// Runs the operation. An exception (out of memory, or one thrown by a library) becomes an error.
template <class Operation>
auto guarded(std::string_view fileName, const Operation& operation) -> decltype(operation()) {
  try {
    return operation();
  } catch (const std::exception& exception) {
    return kiv::storage::storageError(
        KivStorageServiceErrorCode::outOfResources,
        "The file " + quoted(fileName) + " could not be handled: " + exception.what() + ".");
  }
}

}  // namespace

std::string KivStorageService::rootPath() {
  return StorageRoot::currentPath();
}

std::string KivStorageService::temporariesPath() {
  const std::string root = rootPath();
  return root.empty() ? root
                      : kiv::path::appendingPathComponent(root, kiv::storage::privateDirectory);
}

void KivStorageService::setRootPath(std::optional<std::string> path) {
  StorageRoot::setCurrentPath(std::move(path));
}

kiv::ArchiveLimits KivStorageService::archiveLimits() {
  const kiv::MutexLock guard(limitsInUse().mutex);
  return limitsInUse().limits;
}

void KivStorageService::setArchiveLimits(const kiv::ArchiveLimits& limits) {
  const kiv::MutexLock guard(limitsInUse().mutex);
  limitsInUse().limits = limits;
}

bool KivStorageService::saveData_forFileName_atRelativePath_error(const Data& data,
                                                                  std::string_view fileName,
                                                                  std::string_view relativePath,
                                                                  std::optional<Error>* error) {
  return guarded(fileName, [&] { return save(data, fileName, relativePath, Access::shared); })
      .reportTo(error);
}

bool KivStorageService::savePrivateData_forFileName_atRelativePath_error(
    const Data& data, std::string_view fileName, std::string_view relativePath,
    std::optional<Error>* error) {
  return guarded(fileName, [&] { return save(data, fileName, relativePath, Access::owner); })
      .reportTo(error);
}

KivStorageService::Batch::Batch() : root_(StorageRoot::current()) {
  if (root_) root_->beginBatch();
}

KivStorageService::Batch::~Batch() {
  try {
    end();
  } catch (const std::exception&) {  // out of memory: the directories are not synced
  }
}

bool KivStorageService::Batch::end(std::optional<Error>* error) {
  const auto root = std::exchange(root_, nullptr);
  return !root || root->endBatch().reportTo(error);
}

std::optional<std::string> KivStorageService::withdrawDirectoryAtPath(std::string_view path) {
  const auto root = StorageRoot::current();
  if (!root) return std::nullopt;
  auto temporary = root->makeTemporary();
  if (!temporary) return std::nullopt;
  temporary->leave();
  FileManager& files = FileManager::defaultManager();
  if (!files.withdrawItemAtPath_toPath(path, temporary->path())) return std::nullopt;
  return temporary->path();
}

std::optional<Data> KivStorageService::loadDataForFileName_atRelativePath_error(
    std::string_view fileName, std::string_view relativePath, std::optional<Error>* error) {
  return guarded(fileName, [&] { return load(fileName, relativePath); }).reportTo(error);
}

bool KivStorageService::fileExistsWithName_atRelativePath(std::string_view fileName,
                                                          std::string_view relativePath) {
  if (!kiv::storage::checkPlace(fileName, relativePath)) return false;
  const auto root = StorageRoot::current();
  return root && FileManager::defaultManager().fileExistsAtPath(
                     joined(root->path(), relativePath, fileName));
}

std::string KivStorageService::filePathForFileName_atRelativePath(std::string_view fileName,
                                                                  std::string_view relativePath) {
  return joined(rootPath(), relativePath, fileName);
}
