// renameat2 with RENAME_EXCHANGE swaps two directories in one step. Network file systems and some
// others lack it; there the old directory is moved aside first, and a note written before says
// where it belongs, so that a later process can move it back.

#include "KivPlatform/KivStorageService/store/DirectorySwap.h"

#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/KivStorageService/store/AtomicFile.h"
#include "KivPlatform/KivStorageService/store/ProcessDirectory.h"

namespace kiv::storage {

namespace {

constexpr int mostAttempts = 4;

Status synchronizeParent(const std::string& path) {
  return FileManager::defaultManager().synchronizeDirectoryAtPath(
      path::deletingLastPathComponent(path));
}

/// True if the file system has no such step, rather than that it failed.
bool isUnsupported(const Error& error) {
  for (const auto code : {std::errc::invalid_argument, std::errc::function_not_supported,
                          std::errc::not_supported, std::errc::operation_not_supported}) {
    if (isSystemError(error, code)) return true;
  }
  return false;
}

/// Writes beside `spare` the note that what lies there belongs at the path, and syncs it.
Status writeNote(StorageRoot& root, const std::string& spare, std::string_view path) {
  auto note = AtomicFile::create(root, Access::owner);
  if (!note) return note.error();
  Status status = note->write(path.substr(root.path().size() + 1));
  if (!status) return status;
  status = root.prepareDirectory(std::string(path::deletingLastPathComponent(spare)));
  if (!status) return status;
  return note->commit(ProcessDirectory::swapNotePath(spare));
}

/// Moves the old directory to `spare` and the new one in. The note has been written. If the new one
/// cannot be moved in, the old one is moved back.
Status moveAsideAndIn(const std::string& spare, const std::string& temporary,
                      const std::string& path) {
  FileManager& files = FileManager::defaultManager();
  if (Status status = files.moveItemAtPath_toPath(path, spare); !status) return status;
  if (Status status = files.moveItemAtPath_toPath(temporary, path); !status) {
    // If this fails too, the note serves to move it back later.
    static_cast<void>(files.moveItemAtPath_toPath(spare, path));
    return status;
  }
  return synchronizeParent(path);
}

Status replaceInTwoSteps(StorageRoot& root, const std::string& temporary, const std::string& path) {
  auto spare = root.makeTemporary();
  if (!spare) return spare.error();
  if (Status status = writeNote(root, spare->path(), path); !status) return status;
  FileManager& files = FileManager::defaultManager();
  Status status = moveAsideAndIn(spare->path(), temporary, path);
  if (files.itemExistsAtPath(path)) {
    files.discardItemAtPath(ProcessDirectory::swapNotePath(spare->path()));
  } else {
    spare->leave();  // the old directory, which the note brings back
  }
  return status;
}

/// One attempt; nothing if another process that saves or removes the same path came between the
/// look and the step.
std::optional<Status> attemptSwap(StorageRoot& root, const std::string& temporary,
                                  const std::string& path) {
  FileManager& files = FileManager::defaultManager();
  if (!files.itemExistsAtPath(path)) {
    Status status = files.moveItemAtPath_toPath(temporary, path);
    if (status) return synchronizeParent(path);
    if (files.itemExistsAtPath(path)) return std::nullopt;
    return status;
  }
  Status status = files.exchangeItemAtPath_withItemAtPath(temporary, path);
  if (status) return synchronizeParent(path);
  if (!files.itemExistsAtPath(path)) return std::nullopt;
  if (isUnsupported(status.error())) return replaceInTwoSteps(root, temporary, path);
  return status;
}

}  // namespace

Status swapDirectoryIn(StorageRoot& root, const Temporary& temporary, const std::string& path) {
  for (int i = 0; i < mostAttempts; ++i) {
    if (auto ended = attemptSwap(root, temporary.path(), path)) return *std::move(ended);
  }
  return systemError(static_cast<int>(std::errc::device_or_resource_busy), "replace", path);
}

}  // namespace kiv::storage
