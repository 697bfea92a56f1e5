#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/values/Data.h"
#include "KivPlatform/Foundation/values/Result.h"
#include "KivPlatform/KivStorageService/store/ProcessDirectory.h"

namespace kiv::storage {

class StorageRoot;
class SyncGroup;

/// A file that appears under its name only once it is complete.
///
/// Writes a temporary file, syncs it, renames it and syncs the directory. Without the first sync a
/// power failure could leave an empty file under the name. Unless commit() or place() has renamed
/// it, the destructor removes the temporary file.
class AtomicFile {
 public:
  /// Creates a temporary file under the root. `group` is the one that its sync will be left to, if
  /// any.
  static Result<AtomicFile> create(StorageRoot& root, Access access, SyncGroup* group = nullptr);

  /// Takes over the file that holds the data, instead of copying it, and gives it the mode of a new
  /// shared file. Nothing if the data is in memory, or if its file was already taken, was truncated
  /// or is on another file system. The caller then has to write the data.
  static std::optional<AtomicFile> adopt(StorageRoot& root, const Data& data);

  Status write(std::string_view bytes);
  /// The same. Reads data in a file rather than mapping it, so that truncation by another process
  /// is an error and not a SIGBUS.
  Status write(const Data& data);
  /// Leaves the sync of the file to the group, which must be synchronized before place() or
  /// commit() is called. Returns the number of the file in the group.
  std::size_t deferSyncTo(SyncGroup& group);
  /// Closes the file, so that place() renames it without a sync.
  Status closeWithoutSync();
  /// Syncs the file, renames it to the path, replacing a file or link, and syncs the directory.
  /// Called at most once. On failure the old file is still in place, or the new one if only the
  /// last sync failed.
  Status commit(const std::string& path);
  /// The same without the sync of the directory, which the caller does later.
  Status place(const std::string& path);

 private:
  AtomicFile(Temporary temporary, std::unique_ptr<WritableFile> file);

  Temporary temporary_;
  std::unique_ptr<WritableFile> file_;  ///< nullptr if no longer to be synced here.
};

}  // namespace kiv::storage
