#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "KivPlatform/Foundation/Mutex.h"
#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/values/Error.h"
#include "KivPlatform/KivStorageService/store/ProcessDirectory.h"

namespace kiv::storage {

/// Who may use a file: whom the process's umask lets, or its owner alone.
enum class Access { shared, owner };

/// One storage root in use by this process: its temporaries, and the directories in it that are
/// known to survive a power cut. May be used from any thread.
class StorageRoot {
 public:
  /// Starts to use the root: puts right and removes what dead processes left half done.
  explicit StorageRoot(std::string path);

  [[nodiscard]] const std::string& path() const noexcept { return path_; }

  /// The path for a new temporary on the root's file system; nothing lies there yet. Nothing of
  /// the service's own lies under the root before the first one is asked for.
  std::optional<Temporary> makeTemporary(std::optional<Error>* error);
  /// The same with a new file that lies there, open for writing.
  struct TemporaryFile {
    Temporary temporary;
    std::unique_ptr<WritableFile> file;
  };
  std::optional<TemporaryFile> createTemporaryFile(Access access, std::optional<Error>* error);

  /// Makes the directory, which is the root or lies under it, and those above it where they are
  /// missing, and sees to it that they are on the disk.
  bool prepareDirectory(const std::string& directory, std::optional<Error>* error);

  /// Sees to it that the directory's entries are on the disk: now, or, while a batch is open, when
  /// it ends.
  bool synchronizeEntries(const std::string& directory, std::optional<Error>* error);
  /// What keeps a file of that size from being stored, if the disk has no room for it.
  std::optional<Error> validateFile(std::uint64_t bytes, std::string_view name);

  /// Something large is about to be stored otherwise.
  void forgetRoom();

  /// Batches nest: the end of the outermost waits for the disk, once for each directory. What has
  /// been looked up in a batch, whether directories stand and how much room there is, counts until
  /// its end.
  void beginBatch();
  bool endBatch(std::optional<Error>* error);

 private:
  /// What has been looked up in the batch that is open.
  struct Seen {
    bool processDirectoryStands = false;
    std::set<std::string> standingDirectories;
    std::uint64_t roomLeft = 0;  // at least
  };

  /// Brings back what a swap that never ended has moved away.
  [[nodiscard]] ProcessDirectory::Salvage salvage() const;
  std::shared_ptr<ProcessDirectory> processDirectory(std::optional<Error>* error);
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
