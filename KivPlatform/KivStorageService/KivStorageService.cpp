#include "KivPlatform/KivStorageService/KivStorageService.h"

#include <exception>
#include <memory>
#include <utility>

#include "KivPlatform/Foundation/Mutex.h"
#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/KivStorageService/archive/ArchiveUnpacker.h"
#include "KivPlatform/KivStorageService/store/AtomicFile.h"
#include "KivPlatform/KivStorageService/store/CurrentRoot.h"
#include "KivPlatform/KivStorageService/store/DirectorySwap.h"
#include "KivPlatform/KivStorageService/store/FreeSpace.h"
#include "KivPlatform/KivStorageService/store/StorageErrors.h"
#include "KivPlatform/KivStorageService/store/StoredPath.h"

namespace {

using kiv::Data;
using kiv::Error;
using kiv::FileManager;
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

/// A file with the bytes that has no name yet; what is in a file already is not written again.
std::optional<AtomicFile> unnamedFile(StorageRoot& root, const Data& data, std::string_view name,
                                      Access access, std::optional<Error>* error) {
  if (access == Access::shared) {
    if (auto adopted = AtomicFile::adopt(root, data)) return adopted;
  }
  if (auto objection = root.validateFile(data.size(), name)) {
    kiv::fail(error, std::move(*objection));
    return std::nullopt;
  }
  auto file = AtomicFile::create(root, access, error);
  if (!file || !file->write(data, error)) return std::nullopt;
  return file;
}

bool saveFile(StorageRoot& root, const Data& data, const std::string& path, Access access,
              std::optional<Error>* error) {
  FileManager& files = FileManager::defaultManager();
  const bool isReplaceable =
      !files.itemExistsAtPath(path) || files.linkExistsAtPath(path) || files.fileExistsAtPath(path);
  if (!isReplaceable) {
    return kiv::fail(error, nameIsTakenError(kiv::path::lastPathComponent(path), "file"));
  }
  auto file = unnamedFile(root, data, kiv::path::lastPathComponent(path), access, error);
  if (!file) return false;
  const std::string directory(kiv::path::deletingLastPathComponent(path));
  return root.prepareDirectory(directory, error) && file->place(path, error) &&
         root.synchronizeEntries(directory, error);
}

bool saveArchive(StorageRoot& root, const Data& data, std::string_view fileName,
                 const std::string& path, std::optional<Error>* error) {
  FileManager& files = FileManager::defaultManager();
  const bool isReplaceable = !files.itemExistsAtPath(path) || files.linkExistsAtPath(path) ||
                             files.directoryExistsAtPath(path);
  if (!isReplaceable) {
    return kiv::fail(error, nameIsTakenError(kiv::path::lastPathComponent(path), "directory"));
  }
  const auto temporary = root.makeTemporary(error);
  if (!temporary) return false;
  root.forgetRoom();
  const std::string directory(kiv::path::deletingLastPathComponent(path));
  return kiv::storage::unpackArchive(data, fileName, temporary->path(),
                                     KivStorageService::archiveLimits(), error) &&
         root.prepareDirectory(directory, error) &&
         kiv::storage::swapDirectoryIn(root, *temporary, path, error);
}

bool save(const Data& data, std::string_view fileName, std::string_view relativePath, Access access,
          std::optional<Error>* error) {
  if (auto objection = kiv::storage::validateSaving(fileName, relativePath)) {
    return kiv::fail(error, std::move(*objection));
  }
  const auto root = kiv::storage::currentRoot();
  if (!root) return kiv::fail(error, noRootError());
  if (!kiv::storage::isArchiveName(fileName)) {
    return saveFile(*root, data, joined(root->path(), relativePath, fileName), access, error);
  }
  const std::string_view stem = kiv::storage::archiveStem(fileName);
  return saveArchive(*root, data, fileName, joined(root->path(), relativePath, stem), error);
}

std::optional<Data> load(std::string_view fileName, std::string_view relativePath,
                         std::optional<Error>* error) {
  if (auto objection = kiv::storage::validatePlace(fileName, relativePath)) {
    kiv::fail(error, std::move(*objection));
    return std::nullopt;
  }
  const auto root = kiv::storage::currentRoot();
  if (!root) {
    kiv::fail(error, noRootError());
    return std::nullopt;
  }
  return FileManager::defaultManager().contentsAtPath(joined(root->path(), relativePath, fileName),
                                                      error);
}

/// What `operation` answers; where it runs out of memory, or a library throws, a failure instead.
template <class Operation>
auto guarded(std::string_view fileName, std::optional<Error>* error, const Operation& operation)
    -> decltype(operation()) {
  try {
    return operation();
  } catch (const std::exception& exception) {
    kiv::fail(error,
              kiv::storage::storageError(KivStorageServiceErrorCode::outOfResources,
                                         "The file " + quoted(fileName) +
                                             " could not be handled: " + exception.what() + "."));
    return {};
  }
}

}  // namespace

std::string KivStorageService::rootPath() {
  return kiv::storage::currentRootPath();
}

std::string KivStorageService::temporariesPath() {
  const std::string root = rootPath();
  return root.empty() ? root
                      : kiv::path::appendingPathComponent(root, kiv::storage::privateDirectory);
}

void KivStorageService::setRootPath(std::optional<std::string> path) {
  kiv::storage::setCurrentRootPath(std::move(path));
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
  return guarded(fileName, error,
                 [&] { return save(data, fileName, relativePath, Access::shared, error); });
}

bool KivStorageService::savePrivateData_forFileName_atRelativePath_error(
    const Data& data, std::string_view fileName, std::string_view relativePath,
    std::optional<Error>* error) {
  return guarded(fileName, error,
                 [&] { return save(data, fileName, relativePath, Access::owner, error); });
}

KivStorageService::Batch::Batch() : root_(kiv::storage::currentRoot()) {
  if (root_) root_->beginBatch();
}

KivStorageService::Batch::~Batch() {
  try {
    end();
  } catch (const std::exception&) {  // memory has run out: what was stored waits for no disk
  }
}

bool KivStorageService::Batch::end(std::optional<Error>* error) {
  const auto root = std::exchange(root_, nullptr);
  return !root || root->endBatch(error);
}

std::optional<std::string> KivStorageService::withdrawDirectoryAtPath(std::string_view path) {
  const auto root = kiv::storage::currentRoot();
  auto temporary = root ? root->makeTemporary(nullptr) : std::nullopt;
  if (!temporary) return std::nullopt;
  temporary->leave();
  const bool isWithdrawn =
      FileManager::defaultManager().withdrawItemAtPath_toPath(path, temporary->path());
  return isWithdrawn ? std::optional(temporary->path()) : std::nullopt;
}

std::optional<Data> KivStorageService::loadDataForFileName_atRelativePath_error(
    std::string_view fileName, std::string_view relativePath, std::optional<Error>* error) {
  return guarded(fileName, error, [&] { return load(fileName, relativePath, error); });
}

bool KivStorageService::fileExistsWithName_atRelativePath(std::string_view fileName,
                                                          std::string_view relativePath) {
  if (kiv::storage::validatePlace(fileName, relativePath)) return false;
  const auto root = kiv::storage::currentRoot();
  return root && FileManager::defaultManager().fileExistsAtPath(
                     joined(root->path(), relativePath, fileName));
}

std::string KivStorageService::filePathForFileName_atRelativePath(std::string_view fileName,
                                                                  std::string_view relativePath) {
  return joined(rootPath(), relativePath, fileName);
}
