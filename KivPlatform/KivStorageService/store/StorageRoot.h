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

/// Who may access a file: by the umask, or its owner alone.
enum class Access { shared, owner };

/// A storage root in use by this process: its temporaries, and the directories that are known to be
/// on the disk. Thread-safe.
class StorageRoot {
 public:
  /// The root in use, opened by the first call; nullptr if there is none.
  static std::shared_ptr<StorageRoot> current();
  /// Its path, empty if there is none. Does not access the disk.
  static std::string currentPath();
  /// Sets the root; nothing restores the default. Saves that run in the former root complete there.
  static void setCurrentPath(std::optional<std::string> path);

  /// Opens the root: undoes interrupted swaps and removes the temporaries of dead processes.
  explicit StorageRoot(std::string path);

  [[nodiscard]] const std::string& path() const noexcept { return path_; }

  /// A path for a new temporary on the root's file system. The private directory is created by the
  /// first call.
  Result<Temporary> makeTemporary();
  /// A new temporary file, open for writing.
  struct TemporaryFile {
    Temporary temporary;
    std::unique_ptr<WritableFile> file;
  };
  Result<TemporaryFile> createTemporaryFile(Access access);

  /// Creates the directory, which is the root or under it, with missing parents, and syncs them.
  Status prepareDirectory(const std::string& directory);

  /// Syncs the directory, or does so at the end of the batch if one is open.
  Status synchronizeEntries(const std::string& directory);
  /// Fails if the disk has no room for a file of that size.
  Status checkRoom(std::uint64_t bytes, std::string_view name);

  /// Forgets the cached free space, since something large is about to be stored.
  void forgetRoom();

  /// Group commit: the end of the outermost batch syncs each directory once. Whether directories
  /// exist and how much space is free is cached during a batch.
  void beginBatch();
  Status endBatch();

 private:
  /// Cached during a batch.
  struct Seen {
    bool processDirectoryExists = false;
    std::set<std::string> existingDirectories;
    std::uint64_t roomLeft = 0;  // at least
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
