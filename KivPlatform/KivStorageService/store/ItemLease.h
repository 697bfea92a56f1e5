#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "KivPlatform/Foundation/values/Result.h"
#include "KivPlatform/KivStorageService/store/ProcessDirectory.h"

namespace kiv::storage {

class StorageRoot;

/// A second path of a file or directory, where it stays as it is when the original is replaced or
/// removed. The destructor removes the second path.
///
/// It consists of hard links, or of copies where the file system refuses links, in a directory
/// NUMBER.lease of the process's directory. So the leases of a process that died are removed with
/// its incomplete files, and those of a running one are left alone.
class ItemLease {
 public:
  /// Links in a directory are left out. Fails if the item is replaced or removed meanwhile.
  static Result<std::unique_ptr<ItemLease>> take(StorageRoot& root, const std::string& path);

  /// True for the name of a lease's directory.
  static bool isDirectoryName(std::string_view name) noexcept;
  /// True if the path is spelled like that of a leased item, or of something in one. Does not
  /// access the disk. `privateDirectory` is the parent of the processes' directories.
  static bool isLeasedPath(std::string_view path, std::string_view privateDirectory) noexcept;

  ItemLease(const ItemLease&) = delete;
  ItemLease& operator=(const ItemLease&) = delete;
  /// In a forked child, leaves the second path to the parent process.
  ~ItemLease();

  /// The second path. Its last component is that of the item.
  [[nodiscard]] const std::string& path() const noexcept { return path_; }

 private:
  static Result<std::unique_ptr<ItemLease>> attemptToTake(StorageRoot& root,
                                                          const std::string& path);
  ItemLease(std::unique_ptr<Temporary> directory, std::string path);

  std::unique_ptr<Temporary> directory_;
  const std::string path_;
  const std::uint64_t forkDepth_;
};

}  // namespace kiv::storage
