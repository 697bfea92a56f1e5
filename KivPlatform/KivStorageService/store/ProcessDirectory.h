#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/values/Error.h"

namespace kiv::storage {

/// This process's own directory NAME among those of all processes that use one root, for what it
/// has not completed yet. It and its parent are for their owner alone.
///
/// Beside it lies NAME.lock, which the process keeps locked as long as it lives. The one rule that
/// keeps processes out of each other's way: a directory and its lock file are removed only by
/// whoever holds that lock. So nobody touches what a living process is writing, and what a dead one
/// left, whose lock went with it, anybody may sweep.
class ProcessDirectory {
 public:
  /// Called with the path of a directory before it is removed, to bring back what must not go.
  using Salvage = std::function<void(const std::string& directory)>;

  /// Makes and locks a directory with a name of its own under `parent`; nullptr on failure.
  static std::shared_ptr<ProcessDirectory> create(const std::string& parent, Salvage salvage,
                                                  std::optional<Error>* error);

  /// Removes from `parent` the directories that no living process holds.
  static void sweep(const std::string& parent, const Salvage& salvage);

  ProcessDirectory(const ProcessDirectory&) = delete;
  ProcessDirectory& operator=(const ProcessDirectory&) = delete;
  /// Removes the directory.
  ~ProcessDirectory();

  /// False where somebody has removed the directory or its lock file from under the process.
  [[nodiscard]] bool stands() const;
  /// A path in the directory, each time another one. Nothing lies there, unless somebody has broken
  /// in. Numbers name the files, so that a temporary is never the reason that a long name cannot be
  /// stored.
  std::string nextPath();

 private:
  ProcessDirectory(std::string path, std::unique_ptr<FileLock> lock, Salvage salvage);

  std::string path_;
  std::unique_ptr<FileLock> lock_;
  Salvage salvage_;
  std::atomic<std::uint64_t> counter_{0};
};

/// The path of a temporary file or directory. What lies there when this goes is removed.
class Temporary {
 public:
  /// `home` holds the path, and is kept as long as the temporary may lie there.
  Temporary(std::string path, std::shared_ptr<ProcessDirectory> home);
  Temporary(Temporary&&) noexcept = default;
  Temporary& operator=(Temporary&&) = delete;
  ~Temporary();

  /// Leaves what lies there to whoever removes the process's directory.
  void leave() noexcept { home_.reset(); }

  [[nodiscard]] const std::string& path() const noexcept { return path_; }

 private:
  std::string path_;
  std::shared_ptr<ProcessDirectory> home_;  ///< empty once moved from or left
};

}  // namespace kiv::storage
