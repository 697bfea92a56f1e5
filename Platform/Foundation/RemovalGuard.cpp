#include "Platform/Foundation/RemovalGuard.h"

#include <mutex>
#include <set>
#include <utility>

namespace kiv::removal {

namespace {

/// Never destroyed: things are removed while the process exits.
struct Guard {
  std::mutex mutex;
  bool isHosts = false;  // the host has named the roots, or lifted the guard
  std::optional<std::vector<std::string>> hostsRoots;
  std::set<std::string> ownDirectories;
};

Guard& guard() {
  static auto& shared = *new Guard;
  return shared;
}

}  // namespace

void addOwnDirectory(std::string path) {
  const std::lock_guard lock(guard().mutex);
  guard().ownDirectories.insert(std::move(path));
}

void restoreOwnDirectories() {
  const std::lock_guard lock(guard().mutex);
  guard().isHosts = false;
  guard().hostsRoots.reset();
}

void setRoots(std::optional<std::vector<std::string>> roots) {
  const std::lock_guard lock(guard().mutex);
  guard().isHosts = true;
  guard().hostsRoots = std::move(roots);
}

std::optional<std::vector<std::string>> roots() {
  const std::lock_guard lock(guard().mutex);
  const auto& own = guard().ownDirectories;
  return guard().isHosts ? guard().hostsRoots
                         : std::optional(std::vector<std::string>(own.begin(), own.end()));
}

}  // namespace kiv::removal
