#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "KivPlatform/Foundation/Mutex.h"
#include "KivPlatform/Foundation/values/Result.h"
#include "KivPlatform/KivStorageService/store/ProcessDirectory.h"

namespace kiv {
class WritableFile;
}

namespace kiv::storage {

/// A storage root that this process has open: its temporary files, and the directories that are
/// known to be synced. Thread-safe.
class StorageRoot {
 public:
  /// The root of the process, opened by the first call; nullptr if there is none.
  static std::shared_ptr<StorageRoot> current();
  /// The path of the root of the process, empty if there is none. Does not access the disk.
  static std::string currentPath();
  /// The path of a directory in the user's cache directory, by default that of this program. Empty
  /// if there is none, or the name is not a valid file name.
  static std::string pathInUserCache(const std::optional<std::string>& name);
  /// Sets the root of the process and opens it; std::nullopt restores the default. Saves that are
  /// running complete in the old root.
  static void setCurrentPath(std::optional<std::string> path);

  /// Opens the root at the path: undoes interrupted swaps and removes orphaned temporary files. For
  /// a path that is already open, returns the same root. nullptr for a path that cannot be a root:
  /// it is empty or contains a null character.
  static std::shared_ptr<StorageRoot> open(const std::string& path);

  /// Opens a root of its own, even if the path is already open.
  explicit StorageRoot(std::string path);

  [[nodiscard]] const std::string& path() const noexcept { return path_; }

  /// A path with that suffix for a new temporary file or directory, on the root's file system. The
  /// first call creates the private directory.
  Result<Temporary> makeTemporary(std::string_view suffix = {});
  /// A new temporary file, open for writing.
  struct TemporaryFile {
    Temporary temporary;
    std::unique_ptr<WritableFile> file;
  };
  Result<TemporaryFile> createTemporaryFile(Access access);

  /// Creates the directory, the root or one below it, with missing parents, and syncs their
  /// entries.
  Status prepareDirectory(const std::string& directory);

  /// Syncs the directory now, or at the end of the batch if one is open.
  Status synchronizeEntries(const std::string& directory);
  /// Fails with noSpace if the disk has no room for a file of that many bytes.
  Status checkRoom(std::uint64_t bytes, std::string_view name);

  /// Drops the cached free space, because a large item of unknown size is about to be stored.
  void forgetRoom();

  /// Group commit: the end of the outermost batch syncs each directory once. During a batch the
  /// existence of directories and the free space are cached.
  void beginBatch();
  Status endBatch();

 private:
  /// Cached during a batch.
  struct Seen {
    bool processDirectoryExists = false;
    std::set<std::string> existingDirectories;
    std::uint64_t roomLeft = 0;  // bytes, a lower bound
  };

  Result<std::shared_ptr<ProcessDirectory>> processDirectory();
  [[nodiscard]] bool isInBatch() const noexcept KIV_REQUIRES(mutex_) { return openBatches_ > 0; }

  const std::string path_;
  Mutex mutex_;
  std::shared_ptr<ProcessDirectory> processDirectory_ KIV_GUARDED_BY(mutex_);
  std::set<std::string> durableDirectories_ KIV_GUARDED_BY(mutex_);
  int openBatches_ KIV_GUARDED_BY(mutex_) = 0;
  std::set<std::string> unsyncedDirectories_ KIV_GUARDED_BY(mutex_);
  Seen seen_ KIV_GUARDED_BY(mutex_);
};

}  // namespace kiv::storage
