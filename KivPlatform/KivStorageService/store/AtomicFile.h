#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/values/Data.h"
#include "KivPlatform/Foundation/values/Error.h"
#include "KivPlatform/KivStorageService/store/StorageRoot.h"

namespace kiv::storage {

/// A file that appears under its name only when it is complete.
///
/// Write to a temporary file, sync, rename, sync the directory: without the first sync a power cut
/// could leave an empty file under the name. Without commit() the destructor discards the file.
class AtomicFile {
 public:
  /// Creates a temporary file under the root; nothing on failure.
  static std::optional<AtomicFile> create(StorageRoot& root, Access access,
                                          std::optional<Error>* error);

  /// Takes over the file that holds the data instead of copying it, with the mode of a new shared
  /// file. Nothing if the data is in memory, or its file on another file system.
  static std::optional<AtomicFile> adopt(StorageRoot& root, const Data& data);

  bool write(std::string_view bytes, std::optional<Error>* error);
  /// The same. Data in a file is read, not mapped: another process could truncate the file.
  bool write(const Data& data, std::optional<Error>* error);
  /// Commits the file to the path, replacing a file or a link there. Called at most once. On
  /// failure the old file is still there, or the new one if only the last sync failed.
  bool commit(const std::string& path, std::optional<Error>* error);
  /// The same without the sync of the directory, which the caller does later.
  bool place(const std::string& path, std::optional<Error>* error);

 private:
  AtomicFile(Temporary temporary, std::unique_ptr<WritableFile> file);

  Temporary temporary_;
  std::unique_ptr<WritableFile> file_;
};

}  // namespace kiv::storage
