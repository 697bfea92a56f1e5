#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "KivPlatform/Foundation/files/RemovalGuard.h"
#include "KivPlatform/Foundation/values/Result.h"

namespace kiv {
class FileLock;
}

namespace kiv::storage {

/// The directory NAME for the incomplete files of this process under one root. It and its parent
/// have mode 0700.
///
/// Next to it is the file NAME.lock, on which the process holds an advisory lock until it ends.
/// Only the holder of the lock may remove the directory and the lock file. So the files of a
/// running process are safe, and any process can remove those of a dead one.
class ProcessDirectory {
 public:
  /// Creates and locks a directory with a unique name in the private directory of the root.
  static Result<std::shared_ptr<ProcessDirectory>> create(const std::string& rootPath);

  /// Removes the orphaned directories in the private directory of the root, after undoing their
  /// interrupted swaps. Failures are ignored.
  static void sweep(const std::string& rootPath);

  /// The path of the note for a directory that a swap moves to `spare`, a path in a process's
  /// directory. The note holds the original path, relative to the root, so that an interrupted swap
  /// can be undone.
  static std::string swapNotePath(const std::string& spare);

  /// True for the name of a lock file.
  static bool isLockName(std::string_view name) noexcept;

  ProcessDirectory(const ProcessDirectory&) = delete;
  ProcessDirectory& operator=(const ProcessDirectory&) = delete;
  /// Removes the directory and the lock file, after undoing interrupted swaps.
  ~ProcessDirectory();

  /// False if someone else removed the directory or its lock file.
  [[nodiscard]] bool exists() const;
  /// A new path in the directory. The names are numbers: a name derived from the final file name
  /// could exceed the limit of the file system.
  std::string nextPath();

 private:
  ProcessDirectory(std::string path, std::string rootPath, std::unique_ptr<FileLock> lock);

  const removal::PrivateDirectory parent_;
  std::string path_;
  std::string rootPath_;
  std::unique_ptr<FileLock> lock_;
  std::atomic<std::uint64_t> counter_{0};
};

/// The mode of a new temporary file: according to the umask (shared), or 0600 (owner).
enum class Access { shared, owner };

/// Owns a temporary file or directory; the destructor removes it.
class Temporary {
 public:
  /// `home` is the directory that contains the path; it is kept alive.
  Temporary(std::string path, std::shared_ptr<ProcessDirectory> home);
  Temporary(Temporary&&) noexcept = default;
  Temporary& operator=(Temporary&&) = delete;
  ~Temporary();

  /// Gives up ownership. If the item is not moved away, it is removed with the process's directory.
  void leave() noexcept { home_.reset(); }

  [[nodiscard]] const std::string& path() const noexcept { return path_; }

 private:
  std::string path_;
  std::shared_ptr<ProcessDirectory> home_;  ///< null once moved from or given up
};

}  // namespace kiv::storage
