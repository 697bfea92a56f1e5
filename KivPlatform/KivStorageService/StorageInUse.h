#pragma once

#include <memory>
#include <string>

#include "KivPlatform/Foundation/values/Result.h"
#include "KivPlatform/KivStorageService/ArchiveLimits.h"

namespace kiv::storage {

class StorageRoot;

/// A storage root other than that of the process, with its limits on archives.
struct Storage {
  /// Fails for a path that cannot be a root. A relative one is resolved against the current working
  /// directory now.
  static Result<Storage> open(const std::string& rootPath, const ArchiveLimits& archiveLimits);

  std::shared_ptr<StorageRoot> root;  ///< Never nullptr.
  ArchiveLimits archiveLimits;
};

/// While it lives, the operations of KivStorageService on this thread use another storage than that
/// of the process. This is not an argument of those operations, because the host's own kinds call
/// them too, from operations of the manager that have no such argument.
class StorageInUse {
 public:
  /// `storage` must outlive this object; nullptr means that of the process.
  explicit StorageInUse(const Storage* storage) noexcept;
  StorageInUse(const StorageInUse&) = delete;
  StorageInUse& operator=(const StorageInUse&) = delete;
  ~StorageInUse();

  /// What this thread uses; nullptr means the storage of the process.
  static const Storage* current() noexcept;

  /// The root that this thread uses, opened if necessary; nullptr if there is none.
  static std::shared_ptr<StorageRoot> root();
  /// Its path; empty if there is none. Does not access the disk.
  static std::string rootPath();

 private:
  const Storage* const former_;
};

}  // namespace kiv::storage
