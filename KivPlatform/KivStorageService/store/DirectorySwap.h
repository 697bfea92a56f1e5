#pragma once

#include <string>

#include "KivPlatform/Foundation/values/Result.h"
#include "KivPlatform/KivStorageService/store/StorageRoot.h"

/// Atomic replacement of a directory.
namespace kiv::storage {

/// Moves the directory `temporary` to the path, whose parent must exist. The contents of
/// `temporary` must be synced. A directory or link at the path is replaced. On failure the old
/// directory is still in place, or the new one if only the last sync failed.
///
/// If the file system supports it, the two are exchanged in one step. Otherwise the old directory
/// is moved aside first, and for a moment the path does not exist. If the process dies then,
/// ProcessDirectory::sweep() moves the old directory back, using a note in the process's directory.
Status swapDirectoryIn(StorageRoot& root, const Temporary& temporary, const std::string& path);

}  // namespace kiv::storage
