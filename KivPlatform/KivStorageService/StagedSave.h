#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "KivPlatform/Foundation/values/Data.h"
#include "KivPlatform/Foundation/values/Result.h"
#include "KivPlatform/KivStorageService/ArchiveLimits.h"
#include "KivPlatform/KivStorageService/store/AtomicFile.h"
#include "KivPlatform/KivStorageService/store/ProcessDirectory.h"

namespace kiv::storage {

class StorageRoot;
class SyncGroup;

/// What is saved, and where under the root.
struct SaveRequest {
  Data data;
  std::string fileName;
  std::string relativePath;
  Access access = Access::shared;
  /// False for a file that may be lost or empty after a power failure. Archives are always synced.
  bool isSynced = true;
};

/// A save in two steps: the contents are written to a temporary, which then gets its name. Without
/// commit(), the destructor removes the temporary.
class StagedSave {
 public:
  /// Fails if a name is not valid or `root` is nullptr.
  static Result<StagedSave> begin(std::shared_ptr<StorageRoot> root, SaveRequest request);

  [[nodiscard]] const std::string& fileName() const noexcept { return request_.fileName; }

  /// Fails with nameIsTaken if there is something under the name that the save must not replace.
  [[nodiscard]] Status checkName() const;
  /// Writes the contents. A file may share its sync with the others of a group; an archive is
  /// unpacked and synced by itself.
  Status write(const ArchiveLimits& limits, std::shared_ptr<SyncGroup> group);
  /// Waits until the contents are on the disk, checks the name and renames them. If the sync of the
  /// group fails for the file, it is written and synced again by itself: the group may have failed
  /// as a whole because of another file.
  Status commit();

 private:
  StagedSave(std::shared_ptr<StorageRoot> root, SaveRequest request);

  Status writeFile(std::shared_ptr<SyncGroup> group);
  Status unpack(const ArchiveLimits& limits);

  std::shared_ptr<StorageRoot> root_;
  SaveRequest request_;
  bool isArchive_;
  std::string path_;
  std::optional<AtomicFile> file_;
  std::shared_ptr<SyncGroup> group_;  ///< nullptr if the file is synced by itself.
  std::size_t numberInGroup_ = 0;
  std::optional<Temporary> directory_;  ///< Of an archive, instead of `file_`.
};

}  // namespace kiv::storage
