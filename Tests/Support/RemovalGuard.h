#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "KivPlatform/Foundation/files/FileManager.h"

namespace kiv::test {

/// Confines removals to these roots until the end of the scope.
class RemovalGuard {
 public:
  explicit RemovalGuard(std::vector<std::string> roots) {
    FileManager::setRemovalRoots(std::move(roots));
  }
  RemovalGuard(const RemovalGuard&) = delete;
  RemovalGuard& operator=(const RemovalGuard&) = delete;
  ~RemovalGuard() { FileManager::restoreRemovalRoots(); }
};

/// Disables the removal guard until the end of the scope.
class UnguardedRemovals {
 public:
  UnguardedRemovals() { FileManager::setRemovalRoots(std::nullopt); }
  UnguardedRemovals(const UnguardedRemovals&) = delete;
  UnguardedRemovals& operator=(const UnguardedRemovals&) = delete;
  ~UnguardedRemovals() { FileManager::restoreRemovalRoots(); }
};

}  // namespace kiv::test
