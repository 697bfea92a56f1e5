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
/// The bytes go to a temporary file, or lie in one already. commit() waits until they are on the
/// disk, gives the file its name in one step, and waits for that too: in the other order a power
/// cut could leave an empty file under the name. The destructor discards what was not committed,
/// and never commits.
class AtomicFile {
 public:
  /// Begins a file somewhere under the root; nothing on failure.
  static std::optional<AtomicFile> create(StorageRoot& root, Access access,
                                          std::optional<Error>* error);

  /// Takes over the file in which the data lies, so that nothing is written again, with the rights
  /// that a new shared file has; nothing where there is none to take over, or it lies on another
  /// file system.
  static std::optional<AtomicFile> adopt(StorageRoot& root, const Data& data);

  bool write(std::string_view bytes, std::optional<Error>* error);
  /// The same, reading what lies in a file from there, never through a mapping.
  bool write(const Data& data, std::optional<Error>* error);
  /// Puts the file at the path, in place of a file or a link there. Called at most once. When it
  /// fails, the file at the path is the old one, or the new one where only the last wait failed.
  bool commit(const std::string& path, std::optional<Error>* error);
  /// The same without the last wait: the name reaches the disk when the directory is synced.
  bool place(const std::string& path, std::optional<Error>* error);

 private:
  AtomicFile(Temporary temporary, std::unique_ptr<WritableFile> file);

  Temporary temporary_;
  std::unique_ptr<WritableFile> file_;
};

}  // namespace kiv::storage
