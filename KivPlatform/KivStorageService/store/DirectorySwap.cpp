#include "KivPlatform/KivStorageService/store/DirectorySwap.h"

#include <string_view>
#include <system_error>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/KivStorageService/store/AtomicFile.h"
#include "KivPlatform/KivStorageService/store/StorageErrors.h"
#include "KivPlatform/KivStorageService/store/SwapNote.h"

namespace kiv::storage {

namespace {

constexpr int mostAttempts = 4;

bool synchronizeParent(const std::string& path, std::optional<Error>* error) {
  return FileManager::defaultManager().synchronizeDirectoryAtPath(
      path::deletingLastPathComponent(path), error);
}

/// True if the file system has no such step, rather than that it failed.
bool isUnsupported(const std::optional<Error>& error) {
  for (const auto code : {std::errc::invalid_argument, std::errc::function_not_supported,
                          std::errc::not_supported, std::errc::operation_not_supported}) {
    if (isSystemError(error, code)) return true;
  }
  return false;
}

/// Writes beside `spare` the note that what lies there belongs at the path, where a power cut does
/// not lose it either.
bool writeNote(StorageRoot& root, const std::string& spare, std::string_view path,
               std::optional<Error>* error) {
  auto note = AtomicFile::create(root, Access::owner, error);
  const std::string directory(path::deletingLastPathComponent(spare));
  return note && note->write(path.substr(root.path().size() + 1), error) &&
         root.prepareDirectory(directory, error) && note->commit(swapNotePath(spare), error);
}

/// Moves the old directory to the spare and the new one in, with the note written already. When
/// the new one cannot move in, the old one moves back.
bool moveAsideAndIn(const std::string& spare, const std::string& temporary, const std::string& path,
                    std::optional<Error>* error) {
  FileManager& files = FileManager::defaultManager();
  if (!files.moveItemAtPath_toPath(path, spare, error)) return false;
  if (!files.moveItemAtPath_toPath(temporary, path, error)) {
    // Where it cannot move back either, the note brings it back later.
    static_cast<void>(files.moveItemAtPath_toPath(spare, path));
    return false;
  }
  return synchronizeParent(path, error);
}

bool replaceInTwoSteps(StorageRoot& root, const std::string& temporary, const std::string& path,
                       std::optional<Error>* error) {
  auto spare = root.makeTemporary(error);
  if (!spare || !writeNote(root, spare->path(), path, error)) return false;
  FileManager& files = FileManager::defaultManager();
  const bool isReplaced = moveAsideAndIn(spare->path(), temporary, path, error);
  if (files.itemExistsAtPath(path)) {
    files.discardItemAtPath(swapNotePath(spare->path()));
  } else {
    spare->leave();  // the old directory could not move back: the note brings it back
  }
  return isReplaced;
}

enum class Attempt { succeeded, failed, overtaken };

Attempt outcome(bool succeeded) {
  return succeeded ? Attempt::succeeded : Attempt::failed;
}

/// One attempt. Another process that saves or removes under the same path can come between the
/// look and the step.
Attempt attemptSwap(StorageRoot& root, const std::string& temporary, const std::string& path,
                    std::optional<Error>* error) {
  FileManager& files = FileManager::defaultManager();
  std::optional<Error> stepError;
  if (!files.itemExistsAtPath(path)) {
    if (files.moveItemAtPath_toPath(temporary, path, &stepError)) {
      return outcome(synchronizeParent(path, error));
    }
    if (files.itemExistsAtPath(path)) return Attempt::overtaken;
  } else {
    if (files.exchangeItemAtPath_withItemAtPath(temporary, path, &stepError)) {
      return outcome(synchronizeParent(path, error));
    }
    if (!files.itemExistsAtPath(path)) return Attempt::overtaken;
    if (isUnsupported(stepError)) return outcome(replaceInTwoSteps(root, temporary, path, error));
  }
  if (error) *error = stepError;
  return Attempt::failed;
}

}  // namespace

bool swapDirectoryIn(StorageRoot& root, const Temporary& temporary, const std::string& path,
                     std::optional<Error>* error) {
  Attempt attempt = Attempt::overtaken;
  for (int i = 0; i < mostAttempts && attempt == Attempt::overtaken; ++i) {
    attempt = attemptSwap(root, temporary.path(), path, error);
  }
  if (attempt == Attempt::succeeded) return true;
  if (attempt == Attempt::failed) return false;
  return fail(error,
              systemError(static_cast<int>(std::errc::device_or_resource_busy), "replace", path));
}

}  // namespace kiv::storage
