#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <string_view>

#include "Tests/Support/ForwardingFileManager.h"

namespace kiv::test {

/// Remembers what of a directory tree has reached the disk, cuts the power after a given
/// operation, and then leaves on the disk what would be there.
///
/// What it takes for lost is what a file system may lose, not what one usually does: the contents
/// of a file that were not synced, and each single change of a directory (a name made, renamed or
/// removed) since that directory was synced. A rename within or between directories never leaves a
/// name with half of a file.
class PowerCutFileManager : public ForwardingFileManager {
 public:
  enum class Loss {
    everythingUnsynced,  ///< nothing survives but what was synced
    anyPart              ///< of what was not synced, each change survives or not by chance
  };

  /// What lies under `root` now counts as on the disk.
  explicit PowerCutFileManager(std::string root);
  ~PowerCutFileManager() override;

  /// Removes everything under the root, from the disk too.
  void format();
  /// Cuts the power after that many further operations: those that come later fail.
  void cutAfter(std::uint64_t operations);
  /// True once an operation has met the dead machine.
  [[nodiscard]] bool wasCut() const;
  /// Starts the machine again: puts under the root what would be there, and cuts no more.
  void restart(Loss loss, std::uint32_t seed = 0);

  Status createDirectoryAtPath(std::string_view path) override;
  Result<std::unique_ptr<WritableFile>> createFileAtPath(std::string_view path) override;
  Result<std::unique_ptr<WritableFile>> openFileAtPath_length(std::string_view path,
                                                              std::uint64_t length) override;
  Status synchronizeDirectoryAtPath(std::string_view path) override;
  std::unique_ptr<BatchSync> beginBatchSyncAtPath(std::string_view path,
                                                  std::size_t files) override;
  Status moveItemAtPath_toPath(std::string_view path, std::string_view newPath) override;
  Status exchangeItemAtPath_withItemAtPath(std::string_view path,
                                           std::string_view otherPath) override;
  Status withdrawItemAtPath_toPath(std::string_view path, std::string_view newPath) override;
  Status removeItemAtPath(std::string_view path) override;
  Result<std::unique_ptr<FileLock>> lockFileAtPath(std::string_view path) override;

  /// Answers exchanges as a file system does that has no such step.
  bool refusesExchanges = false;
  /// Syncs at once whatever is written as a batch, however little.
  bool allowsBatchSyncs = false;

 private:
  void noteMove(std::string_view path, std::string_view newPath);
  struct Node;
  class File;
  class Batch;
  using NodePointer = std::shared_ptr<Node>;

  Status begin(std::string_view path);
  NodePointer find(std::string_view path);
  NodePointer parentOf(std::string_view path);
  static NodePointer scan(const std::string& path);
  void wipe();
  void write(const Node& node, const std::string& path, Loss loss, std::mt19937& chance);

  mutable std::mutex mutex_;
  std::string rootPath_;
  NodePointer root_;
  std::uint64_t operations_ = 0;
  std::uint64_t cutAt_ = UINT64_MAX;
  bool wasCut_ = false;
};

}  // namespace kiv::test
