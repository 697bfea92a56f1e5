// The public operations. Internally a failure is a Status; only they convert it to the error
// out-argument, and an exception to a Status.

#include "KivPlatform/KivStorageService/KivStorageService.h"

#include <exception>
#include <memory>
#include <utility>

#include "KivPlatform/Foundation/Mutex.h"
#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/KivStorageService/StagedSave.h"
#include "KivPlatform/KivStorageService/StorageInUse.h"
#include "KivPlatform/KivStorageService/store/ItemLease.h"
#include "KivPlatform/KivStorageService/store/StorageErrors.h"
#include "KivPlatform/KivStorageService/store/StorageRoot.h"
#include "KivPlatform/KivStorageService/store/StoredPath.h"
#include "KivPlatform/KivStorageService/store/SyncGroup.h"

namespace {

using kiv::Data;
using kiv::Error;
using kiv::FileManager;
using kiv::Result;
using kiv::Status;
using kiv::storage::Access;
using kiv::storage::ItemLease;
using kiv::storage::quoted;
using kiv::storage::SaveRequest;
using kiv::storage::StagedSave;
using kiv::storage::StorageInUse;
using kiv::storage::StorageRoot;
using kiv::storage::storedPath;
using kiv::storage::SyncGroup;

struct LimitsInUse {
  kiv::Mutex mutex;
  kiv::ArchiveLimits limits KIV_GUARDED_BY(mutex);
};

LimitsInUse& limitsInUse() {
  static auto& shared = *new LimitsInUse;
  return shared;
}

Status save(SaveRequest request) {
  auto save = StagedSave::begin(StorageInUse::root(), std::move(request));
  if (!save) return save.error();
  if (Status status = save->checkName(); !status) return status;
  Status status = save->write(KivStorageService::archiveLimits(), nullptr);
  return status ? save->commit() : std::move(status);
}

Result<Data> load(std::string_view fileName, std::string_view relativePath) {
  Status status = kiv::storage::checkPlace(fileName, relativePath);
  if (!status) return status;
  const auto root = StorageInUse::root();
  if (!root) return kiv::storage::noRootError();
  return FileManager::defaultManager().contentsAtPath(
      storedPath(root->path(), relativePath, fileName));
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
  return StorageInUse::rootPath();
}

std::string KivStorageService::temporariesPath() {
  const std::string root = rootPath();
  return root.empty() ? root
                      : kiv::path::appendingPathComponent(root, kiv::storage::privateDirectory);
}

void KivStorageService::setRootPath(std::optional<std::string> path) {
  StorageRoot::setCurrentPath(std::move(path));
}

bool KivStorageService::setRootPathInUserCache(const std::optional<std::string>& name) {
  auto path = StorageRoot::pathInUserCache(name);
  if (path.empty()) return false;
  setRootPath(std::move(path));
  return true;
}

kiv::ArchiveLimits KivStorageService::archiveLimits() {
  if (const auto* const storage = StorageInUse::current()) return storage->archiveLimits;
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
  return guarded(fileName,
                 [&] {
                   return save(
                       {data, std::string(fileName), std::string(relativePath), Access::shared});
                 })
      .reportTo(error);
}

bool KivStorageService::savePrivateData_forFileName_atRelativePath_error(
    const Data& data, std::string_view fileName, std::string_view relativePath,
    std::optional<Error>* error) {
  return guarded(
             fileName,
             [&] {
               return save({data, std::string(fileName), std::string(relativePath), Access::owner});
             })
      .reportTo(error);
}

bool KivStorageService::savePrivateDataWithoutSync_forFileName_atRelativePath_error(
    const Data& data, std::string_view fileName, std::string_view relativePath,
    std::optional<Error>* error) {
  return guarded(fileName,
                 [&] {
                   return save({data, std::string(fileName), std::string(relativePath),
                                Access::owner, false});
                 })
      .reportTo(error);
}

KivStorageService::Batch::Batch() : root_(StorageInUse::root()) {
  if (root_) root_->beginBatch();
}

KivStorageService::Batch::~Batch() {
  try {
    end();
  } catch (const std::exception&) {  // out of memory: the directories are not synced
  }
}

std::optional<KivStorageService::StagedFile> KivStorageService::Batch::stage(
    const Data& data, std::string_view fileName, std::string_view relativePath,
    std::optional<Error>* error) {
  const auto stage = [&]() -> Result<StagedFile> {
    auto save = StagedSave::begin(root_, {data, std::string(fileName), std::string(relativePath)});
    if (!save) return save.error();
    if (!group_ || group_->isSynchronized()) group_ = std::make_shared<SyncGroup>();
    Status status = save->write(archiveLimits(), group_);
    if (!status) return status;
    return StagedFile(std::make_unique<StagedSave>(*std::move(save)));
  };
  return guarded(fileName, stage).reportTo(error);
}

KivStorageService::StagedFile::StagedFile(std::unique_ptr<StagedSave> save)
    : save_(std::move(save)) {}
KivStorageService::StagedFile::StagedFile(StagedFile&&) noexcept = default;
KivStorageService::StagedFile& KivStorageService::StagedFile::operator=(StagedFile&&) noexcept =
    default;
KivStorageService::StagedFile::~StagedFile() = default;

bool KivStorageService::StagedFile::commit(std::optional<Error>* error) {
  const auto save = std::exchange(save_, nullptr);
  if (!save) return false;
  return guarded(save->fileName(), [&] { return save->commit(); }).reportTo(error);
}

bool KivStorageService::Batch::end(std::optional<Error>* error) {
  const auto root = std::exchange(root_, nullptr);
  return !root || root->endBatch().reportTo(error);
}

std::optional<std::string> KivStorageService::withdrawDirectoryAtPath(std::string_view path) {
  const auto root = StorageInUse::root();
  if (!root) return std::nullopt;
  auto temporary = root->makeTemporary();
  if (!temporary) return std::nullopt;
  temporary->leave();
  FileManager& files = FileManager::defaultManager();
  if (!files.withdrawItemAtPath_toPath(path, temporary->path())) return std::nullopt;
  return temporary->path();
}

std::shared_ptr<const std::string> KivStorageService::leaseItemAtPath(std::string_view path,
                                                                      std::optional<Error>* error) {
  const auto take = [&]() -> Result<std::shared_ptr<const ItemLease>> {
    const auto root = StorageInUse::root();
    if (!root) return kiv::storage::noRootError();
    auto lease = ItemLease::take(*root, std::string(path));
    if (!lease) return lease.error();
    return std::shared_ptr<const ItemLease>(*std::move(lease));
  };
  const auto lease = guarded(kiv::path::lastPathComponent(path), take).reportTo(error);
  if (!lease) return nullptr;
  return {*lease, &(*lease)->path()};
}

bool KivStorageService::isLeasedPath(std::string_view path) {
  const auto directory = FileManager::defaultManager().resolvedPathOfItemAtPath(temporariesPath());
  return directory && ItemLease::isLeasedPath(path, *directory);
}

std::optional<Data> KivStorageService::loadDataForFileName_atRelativePath_error(
    std::string_view fileName, std::string_view relativePath, std::optional<Error>* error) {
  return guarded(fileName, [&] { return load(fileName, relativePath); }).reportTo(error);
}

bool KivStorageService::fileExistsWithName_atRelativePath(std::string_view fileName,
                                                          std::string_view relativePath) {
  if (!kiv::storage::checkPlace(fileName, relativePath)) return false;
  const auto root = StorageInUse::root();
  return root && FileManager::defaultManager().fileExistsAtPath(
                     storedPath(root->path(), relativePath, fileName));
}

std::string KivStorageService::filePathForFileName_atRelativePath(std::string_view fileName,
                                                                  std::string_view relativePath) {
  return storedPath(rootPath(), relativePath, fileName);
}
