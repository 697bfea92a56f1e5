#include "KivPlatform/KivStorageService/store/SwapNote.h"

#include <string_view>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/KivStorageService/store/StoredPath.h"

namespace kiv::storage {

namespace {

/// The number of the directory that made way precedes it.
constexpr std::string_view noteSuffix = ".replaced";

/// Puts back what the note, a file of the process's directory, says.
void undoSwap(const std::string& notePath, const std::string& rootPath) {
  FileManager& files = FileManager::defaultManager();
  const auto note = files.contentsAtPath(notePath);
  if (!note || validateRelativePath(note->view()) || note->empty()) return;
  const std::string spare = notePath.substr(0, notePath.size() - noteSuffix.size());
  const std::string path = path::appendingPathComponent(rootPath, note->view());
  if (!files.itemExistsAtPath(spare) || files.itemExistsAtPath(path)) return;
  if (files.moveItemAtPath_toPath(spare, path)) {
    // Nothing is left to be done where that fails.
    static_cast<void>(files.synchronizeDirectoryAtPath(path::deletingLastPathComponent(path)));
  }
}

}  // namespace

std::string swapNotePath(const std::string& spare) {
  return spare + std::string(noteSuffix);
}

void undoInterruptedSwaps(const std::string& processDirectory, const std::string& rootPath) {
  FileManager& files = FileManager::defaultManager();
  if (!files.directoryExistsAtPath(processDirectory)) return;
  const auto names = files.contentsOfDirectoryAtPath(processDirectory);
  if (!names) return;
  for (const std::string& name : *names) {
    if (!name.ends_with(noteSuffix)) continue;
    undoSwap(path::appendingPathComponent(processDirectory, name), rootPath);
  }
}

}  // namespace kiv::storage
