#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/values/Result.h"

namespace kiv {

/// The lock beside the saved list. A process holds it while it changes the list, or a file that
/// belongs to it. To be used on the manager's queue; a thread may hold only one at a time.
class ListLock {
 public:
  using Taken = Result<std::unique_ptr<FileLock>>;

  /// `patience` is how long take() waits for another process.
  explicit ListLock(std::chrono::milliseconds patience) : patience_(patience) {}

  /// Takes the lock until the result is released; an error if another process holds it for too
  /// long, after which the next call does not wait. nullptr on a file system without locks, and
  /// without a storage root, where saving fails with a reason of its own.
  Taken take();

  /// The absolute path of the lock file; empty if there is no storage root.
  static std::string path();
  static bool isHeldByAnother(const Taken& lock);

 private:
  const std::chrono::milliseconds patience_;
  bool isPatient_ = true;  ///< Another process did not keep the lock for too long the last time.
};

}  // namespace kiv
