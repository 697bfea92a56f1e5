#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "KivPlatform/Foundation/values/Error.h"
#include "KivResource/maintenance/KivResourceMaintenance.h"

/// What KivResourceMaintenance::trim() may remove.
struct KivResourceTrimOptions {
  /// Which loaded resources may be removed once there are no more orphans, in which order. Of equal
  /// ones the one that was loaded first goes first.
  enum class Rule {
    orphansOnly,         ///< None.
    oldestStamp,         ///< Those with the smallest KivResource::updated() first.
    leastRecentlyShown,  ///< By KivResourceMaintenance::noteShown(); otherwise when it was stored.
    hostsOrder,          ///< By `rank`.
  };

  /// The bound for KivResourceMaintenance::Space::cacheUsed.
  std::uint64_t bytes = 0;
  Rule rule = Rule::orphansOnly;
  /// Of hostsOrder: the resource with the smallest rank goes first. Without it all are equal.
  std::function<std::int64_t(const KivResource&)> rank = {};
  /// True if the loaded resource may be removed; empty if all may. This and `rank` get resources of
  /// the registry, which they must not change. They are called before any loaded resource is
  /// removed, and may be called more than once.
  std::function<bool(const KivResource&)> mayRemove = {};
};

/// What KivResourceMaintenance::trim() has removed or, in a dry run, would remove.
///
/// First go directories without a page, then the other orphans, each the oldest first, as many as
/// are needed: a later pass may find an orphan by its name. Then loaded resources, by the rule.
/// They leave the registry, a list without them is saved, and then those of their files are removed
/// that no other resource uses. Observers are told nothing. A later pass with a configuration that
/// names such a resource loads it again.
///
/// The following is never removed, and may keep the use above the bound:
/// - what is leased (kiv::Lease), in this process or another, or may be because it has the name of
///   a leased item; and resources with such a file
/// - what frees no bytes: a file that a remaining resource uses, packaged and other local files
/// - resources whose files are reached through links, or lie elsewhere than directly in the
///   resources directory; those of other processes that this manager has not read yet, and of kinds
///   that this process does not know
/// - the saved list, and incomplete and partly downloaded files
struct KivResourceTrim {
  struct Resource {
    std::string resourceID;
    std::uint64_t updated = 0;
  };

  /// Orphans, and then files and page directories of `resources`, in the order of their removal.
  /// The latter have the identifier of a resource that used them.
  std::vector<KivResourceMaintenance::Item> removed = {};
  /// The loaded resources that were removed, in the order of the rule.
  std::vector<Resource> resources = {};
  /// What could not be removed. If it belonged to a loaded resource, it is an orphan now. Empty in
  /// a dry run.
  std::vector<KivResourceMaintenance::Refusal> refused = {};
  /// Why no loaded resource was removed although the rule allows it: the list without them could
  /// not be saved. The registry is then as before. Nothing in a dry run.
  std::optional<kiv::Error> listError = std::nullopt;
  /// Space::cacheUsed before and after. In a dry run `usedAfter` does not consider that the list
  /// gets shorter, nor that the run may create the private directory of this process.
  std::uint64_t usedBefore = 0;
  std::uint64_t usedAfter = 0;
  /// True if `usedAfter` is not above the bound.
  bool isBoundKept = false;
};
