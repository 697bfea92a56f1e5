#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KivPlatform/AppConfiguration/KivAppConfiguration.h"
#include "KivPlatform/KivStorageService/StorageInUse.h"

namespace kiv {

/// Where the files of a cache of its own lie and come from. The cache of the process has none: it
/// goes by what the host has set for the process.
struct CachePlace {
  storage::Storage storage;
  /// The directory with the packaged resources; empty for none, nothing for the framework's.
  std::optional<std::string> packagedResourcesPath;
  /// As of KivResourceLookup::setRoots().
  std::optional<std::vector<std::string>> lookupRoots;
  std::shared_ptr<KivAppConfiguration> servers;

  /// A cache is open as long as somebody holds its place.
  static std::shared_ptr<const CachePlace> open(CachePlace place);
};

/// As long as it lives, this thread works for one cache: the operations of KivStorageService,
/// KivResourceStorageModule and KivResourceLookup act on that cache, also those that kinds of the
/// host call.
class CacheInUse {
 public:
  /// `place` must outlive this object; nullptr stands for the cache of the process.
  explicit CacheInUse(const CachePlace* place) noexcept;
  CacheInUse(const CacheInUse&) = delete;
  CacheInUse& operator=(const CacheInUse&) = delete;
  ~CacheInUse();

  /// True within such a scope, also in that of the cache of the process.
  static bool isKnown() noexcept;
  /// The place of the innermost scope; nullptr for the cache of the process, and outside.
  static const CachePlace* place() noexcept;

  /// Calls the function in a scope of each open cache, that of the process first, until it returns
  /// true. False if it never does. For the files of a resource, which does not know of which cache
  /// it is.
  static bool isTrueForAny(const std::function<bool()>& function);

 private:
  const CacheInUse* const former_;
  const CachePlace* const place_;
  const storage::StorageInUse storage_;
};

}  // namespace kiv
