#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/values/Error.h"
#include "KivPlatform/Foundation/values/Result.h"

namespace kiv::storage {

/// Files that one wait for the disk makes durable: group commit. Not thread-safe.
///
/// One sync of the whole file system covers them where that is reliable and faster; otherwise each
/// file is synced.
class SyncGroup {
 public:
  SyncGroup() = default;
  SyncGroup(const SyncGroup&) = delete;
  SyncGroup& operator=(const SyncGroup&) = delete;
  ~SyncGroup();

  /// To be called before the contents of a file are written in the directory. All files of the
  /// group are on one file system.
  void prepare(const std::string& directory);
  /// Takes a file whose contents are complete.
  Status add(std::unique_ptr<WritableFile> file);
  /// Closes the files that are still open, for want of descriptors. False if there is none.
  bool closeFiles();
  /// Waits until all files are on the disk. Waits only once; later calls return the same result.
  /// After a failure the contents of all files are undefined.
  Status synchronize();
  /// True if no file can be added any more.
  [[nodiscard]] bool isSynchronized() const noexcept { return isSynchronized_; }

 private:
  void decide();

  bool isPrepared_ = false;
  bool isSynchronized_ = false;
  std::unique_ptr<BatchSync> batch_;  ///< nullptr if each file is synced.
  bool usesBatch_ = false;
  std::vector<std::unique_ptr<WritableFile>> open_;  ///< Neither synced nor left to the batch.
  std::optional<Error> failure_;
};

}  // namespace kiv::storage
