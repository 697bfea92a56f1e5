#pragma once

#include <memory>
#include <string>

#include "KivPlatform/Foundation/values/Result.h"
#include "KivPlatform/KivStorageService/ArchiveLimits.h"

namespace kiv::storage {

class StorageRoot;

/// A root beside that of the process, and the limits on the archives that are stored in it.
struct Storage {
  /// Fails for a path that cannot be a root. A relative one is resolved against the current working
  /// directory now.
  static Result<Storage> open(const std::string& rootPath, const ArchiveLimits& archiveLimits);

  std::shared_ptr<StorageRoot> root;  ///< Never nullptr.
  ArchiveLimits archiveLimits;
};

/// As long as it lives, the operations of KivStorageService on this thread act on a storage of
/// their own. Not an argument of theirs: kinds of the host call them as well, in operations of the
/// manager that have no such argument.
class StorageInUse {
 public:
  /// `storage` must outlive this object; nullptr stands for that of the process.
  explicit StorageInUse(const Storage* storage) noexcept;
  StorageInUse(const StorageInUse&) = delete;
  StorageInUse& operator=(const StorageInUse&) = delete;
  ~StorageInUse();

  /// What this thread uses; nullptr stands for that of the process.
  static const Storage* current() noexcept;

  /// The root that this thread uses, opened if it is not; nullptr if there is none.
  static std::shared_ptr<StorageRoot> root();
  /// Its path, or an empty string. Does not access the disk.
  static std::string rootPath();

 private:
  const Storage* const former_;
};

}  // namespace kiv::storage
