#pragma once

#include <string>
#include <utility>
#include <vector>

#include "Platform/Foundation/FileManager.h"

namespace kiv::test {

/// Guards removals with these roots until the end of the scope.
class RemovalGuard {
 public:
  explicit RemovalGuard(std::vector<std::string> roots) {
    FileManager::setRemovalRoots(std::move(roots));
  }
  RemovalGuard(const RemovalGuard&) = delete;
  RemovalGuard& operator=(const RemovalGuard&) = delete;
  ~RemovalGuard() { FileManager::setRemovalRoots(std::nullopt); }
};

}  // namespace kiv::test
