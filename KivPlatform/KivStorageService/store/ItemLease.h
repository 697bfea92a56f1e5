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

/// A file or directory of the root under a second path, at which it stays as it is when the item is
/// replaced or removed. The destructor removes the second path.
///
/// It is made of hard links, or of copies where the file system refuses links, in a directory
/// NUMBER.lease of the process's directory. So the leases of a process that dies are removed with
/// its incomplete files, and those of a running one are left alone.
class ItemLease {
 public:
  /// Links in a directory are left out. Fails if the item is replaced or removed meanwhile.
  static Result<std::unique_ptr<ItemLease>> take(StorageRoot& root, const std::string& path);

  /// True for the name of such a directory.
  static bool isDirectoryName(std::string_view name) noexcept;
  /// True if the path is that of a leased item, or of something in one, by the spelling alone.
  /// `privateDirectory` is the parent of the processes' directories.
  static bool isLeasedPath(std::string_view path, std::string_view privateDirectory) noexcept;

  ItemLease(const ItemLease&) = delete;
  ItemLease& operator=(const ItemLease&) = delete;
  /// Leaves the items to the parent process where this one is its fork.
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
