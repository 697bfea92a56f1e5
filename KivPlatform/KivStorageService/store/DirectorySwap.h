#pragma once

#include <string>

#include "KivPlatform/Foundation/values/Result.h"
#include "KivPlatform/KivStorageService/store/StorageRoot.h"

/// Atomic replacement of a directory.
namespace kiv::storage {

/// Moves the directory `temporary`, which has been synced, to the path, whose parent exists. A
/// directory or link there is replaced and removed. On failure the old one is still there, or the
/// new one if only the last sync failed.
///
/// Where the file system supports it, the two are exchanged in one step. Elsewhere the old one is
/// moved away first, and for a moment nothing is at the path; if the process dies then,
/// ProcessDirectory::sweep() moves it back, by a note in the process's directory.
Status swapDirectoryIn(StorageRoot& root, const Temporary& temporary, const std::string& path);

}  // namespace kiv::storage
