#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/values/Data.h"
#include "KivPlatform/Foundation/values/Result.h"
#include "KivPlatform/KivStorageService/store/StorageRoot.h"

namespace kiv::storage {

/// A file that appears under its name only when it is complete.
///
/// Write to a temporary file, sync, rename, sync the directory: without the first sync a power cut
/// could leave an empty file under the name. Without commit() the destructor discards the file.
class AtomicFile {
 public:
  /// Creates a temporary file under the root.
  static Result<AtomicFile> create(StorageRoot& root, Access access);

  /// Renames the file that holds the data instead of copying it, and gives it the mode of a new
  /// shared file. Nothing if the data is in memory, or its file on another file system.
  static std::optional<AtomicFile> adopt(StorageRoot& root, const Data& data);

  Status write(std::string_view bytes);
  /// The same. Data in a file is read, not mapped: another process could truncate the file.
  Status write(const Data& data);
  /// Commits the file to the path, replacing a file or a link there. Called at most once. On
  /// failure the old file is still there, or the new one if only the last sync failed.
  Status commit(const std::string& path);
  /// The same without the sync of the directory, which the caller does later.
  Status place(const std::string& path);

 private:
  AtomicFile(Temporary temporary, std::unique_ptr<WritableFile> file);

  Temporary temporary_;
  std::unique_ptr<WritableFile> file_;
};

}  // namespace kiv::storage
