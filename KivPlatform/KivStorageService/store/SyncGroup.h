#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/values/Result.h"

namespace kiv::storage {

/// Files that share one wait for the disk: group commit. Not thread-safe.
///
/// A single sync of the whole file system covers them where that is reliable and faster. Otherwise
/// each file is synced, together with others as far as the file manager can.
class SyncGroup {
 public:
  SyncGroup() = default;
  SyncGroup(const SyncGroup&) = delete;
  SyncGroup& operator=(const SyncGroup&) = delete;
  ~SyncGroup();

  /// To be called before a file of the group is written in that directory. All files of the group
  /// are on one file system.
  void prepare(const std::string& directory);
  /// Takes a file whose contents are complete. Returns its number in the group.
  std::size_t add(std::unique_ptr<WritableFile> file);
  /// Closes the files that are still open, after syncing them unless the batch does that. To be
  /// called when descriptors run out. False if none is open.
  bool closeFiles();
  /// Waits until all files are on the disk; later calls do not wait again. True if the file with
  /// that number is. If not, or if an earlier call threw, its contents are undefined, and it must
  /// be written again.
  [[nodiscard]] bool synchronize(std::size_t number);
  /// True if no file can be added any more.
  [[nodiscard]] bool isSynchronized() const noexcept { return isSynchronized_; }

 private:
  struct OpenFile {
    std::size_t number;
    std::unique_ptr<WritableFile> file;
  };

  static std::vector<Status> synchronizeFiles(const std::vector<OpenFile>& files);
  void decide();

  bool isPrepared_ = false;
  bool isSynchronized_ = false;
  std::unique_ptr<BatchSync> batch_;  ///< nullptr if each file is synced.
  bool usesBatch_ = false;
  bool isOnDisk_ = false;         ///< True if the batch sync succeeded, or was not needed.
  std::vector<OpenFile> open_;    ///< Neither synced nor left to the batch sync yet.
  std::vector<bool> isComplete_;  ///< By number: true for a file that was closed without an error.
};

}  // namespace kiv::storage
