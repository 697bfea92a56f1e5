// renameat2 with RENAME_EXCHANGE swaps two directories in one step. Network file systems and some
// others do not support it. There the old directory is first moved aside. A note, written before
// that, records its path, so that a later process can move it back after a crash.

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

/// True if the file system does not support the exchange, false for other failures.
bool isUnsupported(const Error& error) {
  for (const auto code : {std::errc::invalid_argument, std::errc::function_not_supported,
                          std::errc::not_supported, std::errc::operation_not_supported}) {
    if (isSystemError(error, code)) return true;
  }
  return false;
}

/// Writes and syncs the note that says that the directory at `spare` belongs at the path.
Status writeNote(StorageRoot& root, const std::string& spare, std::string_view path) {
  auto note = AtomicFile::create(root, Access::owner);
  if (!note) return note.error();
  Status status = note->write(path.substr(root.path().size() + 1));
  if (!status) return status;
  status = root.prepareDirectory(std::string(path::deletingLastPathComponent(spare)));
  if (!status) return status;
  return note->commit(ProcessDirectory::swapNotePath(spare));
}

/// Moves the old directory to `spare` and the new one to the path. The note must be on the disk. If
/// the new directory cannot be moved, the old one is moved back.
Status moveAsideAndIn(const std::string& spare, const std::string& temporary,
                      const std::string& path) {
  FileManager& files = FileManager::defaultManager();
  if (Status status = files.moveItemAtPath_toPath(path, spare); !status) return status;
  if (Status status = files.moveItemAtPath_toPath(temporary, path); !status) {
    // If this fails too, a later sweep uses the note to move it back.
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
    spare->leave();  // keep the old directory for undoing the swap
  }
  return status;
}

/// One attempt; nothing if another process saved or removed the same path between the check and the
/// rename.
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
