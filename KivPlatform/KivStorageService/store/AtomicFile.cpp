#include "KivPlatform/KivStorageService/store/AtomicFile.h"

#include <algorithm>
#include <string>
#include <utility>

#include "KivPlatform/Foundation/files/Path.h"

namespace kiv::storage {

AtomicFile::AtomicFile(Temporary temporary, std::unique_ptr<WritableFile> file)
    : temporary_(std::move(temporary)), file_(std::move(file)) {}

namespace {

/// Gives the file, which was its owner's alone on its way, the rights that the umask leaves to a
/// new one. The umask itself cannot be asked for without changing it for every thread.
void share(StorageRoot& root, const std::string& path) {
  const auto model = root.createTemporaryFile(Access::shared, nullptr);
  if (!model) return;  // no room for one more file: this one then stays its owner's
  // Where that fails the file stays its owner's.
  static_cast<void>(FileManager::defaultManager().copyAccessToFileAtPath_fromFileAtPath(
      path, model->temporary.path()));
}

}  // namespace

std::optional<AtomicFile> AtomicFile::create(StorageRoot& root, Access access,
                                             std::optional<Error>* error) {
  auto created = root.createTemporaryFile(access, error);
  if (!created) return std::nullopt;
  return AtomicFile(std::move(created->temporary), std::move(created->file));
}

std::optional<AtomicFile> AtomicFile::adopt(StorageRoot& root, const Data& data) {
  const auto found = data.takeFile();
  if (!found) return std::nullopt;
  FileManager& files = FileManager::defaultManager();
  auto temporary = root.makeTemporary(nullptr);
  if (!temporary || !files.moveItemAtPath_toPath(*found, temporary->path())) {
    files.discardItemAtPath(*found);
    return std::nullopt;
  }
  auto file = files.openFileAtPath_length(temporary->path(), data.size());
  // Cut off by another process, it is no longer what it was.
  if (!file || files.lengthOfFileAtPath(temporary->path()) != data.size()) return std::nullopt;
  share(root, temporary->path());
  return AtomicFile(std::move(*temporary), std::move(file));
}

bool AtomicFile::write(std::string_view bytes, std::optional<Error>* error) {
  return file_->write(bytes, error);
}

bool AtomicFile::write(const Data& data, std::optional<Error>* error) {
  if (!data.isFile()) return file_->write(data.view(), error);
  constexpr std::size_t pieceSize = 256 * 1024;
  std::string piece(std::min(pieceSize, data.size()), '\0');
  for (std::size_t offset = 0; offset < data.size(); offset += piece.size()) {
    piece.resize(std::min(pieceSize, data.size() - offset));
    if (!data.copyBytes(offset, piece.data(), piece.size(), error)) return false;
    if (!file_->write(piece, error)) return false;
  }
  return true;
}

bool AtomicFile::place(const std::string& path, std::optional<Error>* error) {
  if (!file_->synchronize(error) || !file_->close(error)) return false;
  if (!FileManager::defaultManager().moveItemAtPath_toPath(temporary_.path(), path, error)) {
    return false;
  }
  temporary_.leave();  // nothing lies there any more
  return true;
}

bool AtomicFile::commit(const std::string& path, std::optional<Error>* error) {
  return place(path, error) && FileManager::defaultManager().synchronizeDirectoryAtPath(
                                   path::deletingLastPathComponent(path), error);
}

}  // namespace kiv::storage
