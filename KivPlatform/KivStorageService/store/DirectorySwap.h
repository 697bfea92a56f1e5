#pragma once

#include <optional>
#include <string>

#include "KivPlatform/Foundation/values/Error.h"
#include "KivPlatform/KivStorageService/store/StorageRoot.h"

/// Putting a complete directory in the place of another, so that at every moment one of the two is
/// there as a whole.
namespace kiv::storage {

/// Puts the directory `temporary`, all of which is on the disk, at the path, which lies under the
/// root and its parent stands. A directory or link there is replaced and removed with everything in
/// it. On failure the old one stands there, or the new one where only waiting for the disk failed.
///
/// The two change places in one step where the file system has it. Elsewhere the old one makes way
/// first, and for a moment nothing lies at the path; a note in the process's directory says so,
/// from which undoInterruptedSwaps() puts the old one back if the process dies in that moment.
bool swapDirectoryIn(StorageRoot& root, const Temporary& temporary, const std::string& path,
                     std::optional<Error>* error);

}  // namespace kiv::storage
