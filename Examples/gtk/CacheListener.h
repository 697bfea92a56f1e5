#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "ShownItem.h"

/// A file, or a resource, that a pass could not load.
struct Failure {
  std::string what;                ///< The link of the file, or the name of the resource.
  std::string reason;              ///< In words; may be empty.
  std::vector<std::string> tries;  ///< Each with its server, and the status or error.
};

/// How a command ended.
struct Outcome {
  std::string summary;
  std::vector<Failure> failures = {};
};

/// What "Free space" would remove.
struct Removal {
  std::vector<std::string> paths;
  std::uint64_t bytes = 0;
};

/// What the window hears of the cache. All calls come on the main queue, with plain values.
class CacheListener {
 public:
  virtual ~CacheListener() = default;

  /// A resource was loaded. It takes the place of the one with the same identifier.
  virtual void itemLoaded(const ShownItem& item) = 0;
  /// All other resources have left the cache.
  virtual void itemsLeft(const std::set<std::string>& ids) = 0;
  virtual void progressed(const std::string& text) = 0;
  /// To be confirmed by Cache::remove().
  virtual void removalPlanned(const Removal& removal) = 0;
  /// A command has ended, or a check that came by itself.
  virtual void ended(const Outcome& outcome) = 0;
};
