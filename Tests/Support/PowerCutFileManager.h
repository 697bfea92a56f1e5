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

/// Simulates a power failure: tracks which changes of a directory tree were synced, fails every
/// operation after a given one, and then restores the state that would be on disk.
///
/// It loses everything that a file system is allowed to lose, not only what one usually loses: file
/// contents that were not synced, and each change of a directory (an entry created, renamed or
/// removed) since that directory was synced. A rename is atomic, also between directories.
class PowerCutFileManager : public ForwardingFileManager {
 public:
  enum class Loss {
    everythingUnsynced,  ///< only what was synced survives
    anyPart              ///< each change that was not synced survives or is lost at random
  };

  /// The current contents of `root` count as synced.
  explicit PowerCutFileManager(std::string root);
  ~PowerCutFileManager() override;

  /// Removes everything under the root, in both states.
  void format();
  /// Cuts the power after that many more operations: all later ones fail.
  void cutAfter(std::uint64_t operations);
  /// True once an operation has failed because of the power cut.
  [[nodiscard]] bool wasCut() const;
  /// Restarts the machine: replaces the contents of the root by what survived, and ends the power
  /// cut.
  void restart(Loss loss, std::uint32_t seed = 0);

  Status createDirectoryAtPath(std::string_view path) override;
  Result<std::unique_ptr<WritableFile>> createFileAtPath(std::string_view path) override;
  Result<std::unique_ptr<WritableFile>> openFileAtPath_length(std::string_view path,
                                                              std::uint64_t length) override;
  Status synchronizeDirectoryAtPath(std::string_view path) override;
  std::unique_ptr<BatchSync> beginBatchSyncAtPath(std::string_view path) override;
  Status moveItemAtPath_toPath(std::string_view path, std::string_view newPath) override;
  Status exchangeItemAtPath_withItemAtPath(std::string_view path,
                                           std::string_view otherPath) override;
  Status withdrawItemAtPath_toPath(std::string_view path, std::string_view newPath) override;
  Status removeItemAtPath(std::string_view path) override;
  Result<std::unique_ptr<FileLock>> lockFileAtPath(std::string_view path) override;

  /// Fails exchanges as a file system that does not support them does.
  bool refusesExchanges = false;
  /// Syncs files in one batch, however few they are.
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
