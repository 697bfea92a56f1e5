// The order of every save: write the new file or directory as a temporary, sync it, rename it into
// place, sync the parent directory. A reader or a crash sees the old contents or the new ones.

#include "KivPlatform/KivStorageService/StagedSave.h"

#include <utility>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/KivStorageService/archive/ArchiveUnpacker.h"
#include "KivPlatform/KivStorageService/store/DirectorySwap.h"
#include "KivPlatform/KivStorageService/store/StorageErrors.h"
#include "KivPlatform/KivStorageService/store/StorageRoot.h"
#include "KivPlatform/KivStorageService/store/StoredPath.h"
#include "KivPlatform/KivStorageService/store/SyncGroup.h"

namespace kiv::storage {

namespace {

Error nameIsTakenError(std::string_view name, std::string_view sort) {
  return storageError(KivStorageServiceErrorCode::nameIsTaken,
                      "The name " + quoted(name) + " is taken by something that is not a " +
                          std::string(sort) + ".");
}

/// Fails if the path holds something that a file, or a directory, must not replace.
Status checkReplaceable(const std::string& path, bool byDirectory) {
  FileManager& files = FileManager::defaultManager();
  if (!files.itemExistsAtPath(path) || files.linkExistsAtPath(path)) return {};
  if (byDirectory ? files.directoryExistsAtPath(path) : files.fileExistsAtPath(path)) return {};
  return nameIsTakenError(path::lastPathComponent(path), byDirectory ? "directory" : "file");
}

}  // namespace

StagedSave::StagedSave(std::shared_ptr<StorageRoot> root, SaveRequest request)
    : root_(std::move(root)),
      request_(std::move(request)),
      isArchive_(isArchiveName(request_.fileName)),
      path_(storedPath(root_->path(), request_.relativePath,
                       isArchive_ ? archiveStem(request_.fileName) : request_.fileName)) {}

Result<StagedSave> StagedSave::begin(std::shared_ptr<StorageRoot> root, SaveRequest request) {
  if (Status status = checkSaving(request.fileName, request.relativePath); !status) return status;
  if (!root) return noRootError();
  return StagedSave(std::move(root), std::move(request));
}

Status StagedSave::checkName() const {
  return checkReplaceable(path_, isArchive_);
}

Status StagedSave::write(const ArchiveLimits& limits, std::shared_ptr<SyncGroup> group) {
  return isArchive_ ? unpack(limits) : writeFile(std::move(group));
}

/// If the contents are in a file already, that file is renamed rather than copied. The group does
/// not cover it, because it was written before the group began.
Status StagedSave::writeFile(std::shared_ptr<SyncGroup> group) {
  const Data& data = request_.data;
  if (request_.access == Access::shared) {
    if (auto adopted = AtomicFile::adopt(*root_, data)) {
      file_.emplace(*std::move(adopted));
      return {};
    }
  }
  const std::string_view name = path::lastPathComponent(path_);
  if (Status status = root_->checkRoom(data.size(), name); !status) return status;
  auto file = AtomicFile::create(*root_, request_.access, group.get());
  if (!file) return file.error();
  if (Status status = file->write(data); !status) return status;
  if (group) numberInGroup_ = file->deferSyncTo(*group);
  Status closed = request_.isSynced ? Status() : file->closeWithoutSync();
  if (!closed) return closed;
  file_.emplace(*std::move(file));
  group_ = std::move(group);
  return {};
}

Status StagedSave::unpack(const ArchiveLimits& limits) {
  auto temporary = root_->makeTemporary();
  if (!temporary) return temporary.error();
  root_->forgetRoom();
  Status status = unpackArchive(request_.data, request_.fileName, temporary->path(), limits);
  if (!status) return status;
  directory_.emplace(*std::move(temporary));
  return {};
}

Status StagedSave::commit() {
  if (Status status = checkName(); !status) return status;
  if (group_ && !group_->synchronize(numberInGroup_)) {
    file_.reset();
    if (Status status = writeFile(nullptr); !status) return status;
  }
  const std::string directory(path::deletingLastPathComponent(path_));
  if (Status status = root_->prepareDirectory(directory); !status) return status;
  if (directory_) return swapDirectoryIn(*root_, *directory_, path_);
  if (Status status = file_->place(path_); !status) return status;
  if (!request_.isSynced) return {};
  return root_->synchronizeEntries(directory);
}

}  // namespace kiv::storage
