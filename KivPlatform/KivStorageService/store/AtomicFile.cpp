// An adopted file, the body of a download, has mode 0600 and must get the mode of a new shared
// file. That mode is copied from a file created for the purpose, because the umask cannot be read
// without changing it for the whole process.

#include "KivPlatform/KivStorageService/store/AtomicFile.h"

#include <algorithm>
#include <string>
#include <system_error>
#include <utility>

#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/KivStorageService/store/StorageRoot.h"
#include "KivPlatform/KivStorageService/store/SyncGroup.h"

namespace kiv::storage {

AtomicFile::AtomicFile(Temporary temporary, std::unique_ptr<WritableFile> file)
    : temporary_(std::move(temporary)), file_(std::move(file)) {}

namespace {

/// Gives the file the mode of a new shared file. On failure it keeps mode 0600.
void share(StorageRoot& root, const std::string& path) {
  const auto model = root.createTemporaryFile(Access::shared);
  if (!model) return;
  static_cast<void>(FileManager::defaultManager().copyAccessToFileAtPath_fromFileAtPath(
      path, model->temporary.path()));
}

bool isOutOfDescriptors(const Error& error) {
  return isSystemError(error, std::errc::too_many_files_open) ||
         isSystemError(error, std::errc::too_many_files_open_in_system);
}

/// If the process is out of file descriptors, closes the files of the group and tries again.
Result<StorageRoot::TemporaryFile> createFile(StorageRoot& root, Access access, SyncGroup* group) {
  auto created = root.createTemporaryFile(access);
  const bool canRetry = !created && group && isOutOfDescriptors(created.error());
  return canRetry && group->closeFiles() ? root.createTemporaryFile(access) : std::move(created);
}

}  // namespace

Result<AtomicFile> AtomicFile::create(StorageRoot& root, Access access, SyncGroup* group) {
  auto created = createFile(root, access, group);
  if (!created) return created.error();
  if (group) {
    group->prepare(std::string(path::deletingLastPathComponent(created->temporary.path())));
  }
  return AtomicFile(std::move(created->temporary), std::move(created->file));
}

std::optional<AtomicFile> AtomicFile::adopt(StorageRoot& root, const Data& data) {
  const auto found = data.takeFile();
  if (!found) return std::nullopt;
  FileManager& files = FileManager::defaultManager();
  auto temporary = root.makeTemporary();
  if (!temporary || !files.moveItemAtPath_toPath(*found, temporary->path())) {
    files.discardItemAtPath(*found);
    return std::nullopt;
  }
  auto file = files.openFileAtPath_length(temporary->path(), data.size());
  // Another process may have truncated the file.
  if (!file || files.lengthOfFileAtPath(temporary->path()) != data.size()) return std::nullopt;
  share(root, temporary->path());
  return AtomicFile(*std::move(temporary), *std::move(file));
}

Status AtomicFile::write(std::string_view bytes) {
  return file_->write(bytes);
}

Status AtomicFile::write(const Data& data) {
  if (!data.isFile()) return file_->write(data.view());
  constexpr std::size_t pieceSize = 256 * 1024;
  std::string piece(std::min(pieceSize, data.size()), '\0');
  for (std::size_t offset = 0; offset < data.size(); offset += piece.size()) {
    piece.resize(std::min(pieceSize, data.size() - offset));
    if (Status status = data.copyBytes(offset, piece.data(), piece.size()); !status) return status;
    if (Status status = file_->write(piece); !status) return status;
  }
  return {};
}

std::size_t AtomicFile::deferSyncTo(SyncGroup& group) {
  return group.add(std::move(file_));
}

Status AtomicFile::closeWithoutSync() {
  return std::exchange(file_, nullptr)->close();
}

Status AtomicFile::place(const std::string& path) {
  if (file_) {
    if (Status status = file_->synchronize(); !status) return status;
    if (Status status = file_->close(); !status) return status;
  }
  FileManager& files = FileManager::defaultManager();
  if (Status status = files.moveItemAtPath_toPath(temporary_.path(), path); !status) return status;
  temporary_.leave();  // it has been renamed
  return {};
}

Status AtomicFile::commit(const std::string& path) {
  if (Status status = place(path); !status) return status;
  return FileManager::defaultManager().synchronizeDirectoryAtPath(
      path::deletingLastPathComponent(path));
}

}  // namespace kiv::storage
