#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "KivPlatform/Foundation/values/Result.h"

namespace kiv {
class FileLock;
}

namespace kiv::storage {

/// The directory NAME of this process, for its incomplete files; each process that uses a root has
/// its own. It and its parent have mode 0700.
///
/// Beside it lies NAME.lock, which the process keeps locked until it ends. Only the holder of that
/// lock may remove the directory and its lock file. So the files of a living process are safe, and
/// those of a dead one can be swept by any process.
class ProcessDirectory {
 public:
  /// Creates and locks a directory with a unique name in the private directory of the root.
  static Result<std::shared_ptr<ProcessDirectory>> create(const std::string& rootPath);

  /// Removes from the private directory of the root what no living process holds. Interrupted swaps
  /// are undone first.
  static void sweep(const std::string& rootPath);

  /// The path of the note for a directory that a swap moves to `spare`, a path in a process's
  /// directory. It holds the path under the root from which it is moved, with which an interrupted
  /// swap is undone.
  static std::string swapNotePath(const std::string& spare);

  /// True for the name of a lock file beside a directory.
  static bool isLockName(std::string_view name) noexcept;

  ProcessDirectory(const ProcessDirectory&) = delete;
  ProcessDirectory& operator=(const ProcessDirectory&) = delete;
  /// Removes the directory.
  ~ProcessDirectory();

  /// False if the directory or its lock file has been removed by somebody else.
  [[nodiscard]] bool exists() const;
  /// A new path in the directory. The names are numbers, so that a long file name never fails
  /// because of its temporary.
  std::string nextPath();

 private:
  ProcessDirectory(std::string path, std::string rootPath, std::unique_ptr<FileLock> lock);

  std::string path_;
  std::string rootPath_;
  std::unique_ptr<FileLock> lock_;
  std::atomic<std::uint64_t> counter_{0};
};

/// The path of a temporary file or directory, which the destructor removes.
class Temporary {
 public:
  /// `home` is the directory of the path, and is kept alive.
  Temporary(std::string path, std::shared_ptr<ProcessDirectory> home);
  Temporary(Temporary&&) noexcept = default;
  Temporary& operator=(Temporary&&) = delete;
  ~Temporary();

  /// Lets the file be removed with the process's directory instead.
  void leave() noexcept { home_.reset(); }

  [[nodiscard]] const std::string& path() const noexcept { return path_; }

 private:
  std::string path_;
  std::shared_ptr<ProcessDirectory> home_;  ///< empty once moved from or left
};

}  // namespace kiv::storage
