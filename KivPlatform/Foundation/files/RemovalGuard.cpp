#include "KivPlatform/Foundation/files/RemovalGuard.h"

#include <map>
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
  std::map<OwnDirectory, std::string> ownDirectories;
  std::set<std::string> spoolDirectories;
};

Guard& guard() {
  static auto& shared = *new Guard;
  return shared;
}

}  // namespace

void setOwnDirectory(OwnDirectory which, std::string path) {
  const std::lock_guard lock(guard().mutex);
  guard().ownDirectories[which] = std::move(path);
}

void addSpoolDirectory(std::string path) {
  const std::lock_guard lock(guard().mutex);
  guard().spoolDirectories.insert(std::move(path));
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
  if (guard().isHosts) return guard().hostsRoots;
  const auto& spools = guard().spoolDirectories;
  std::vector<std::string> own(spools.begin(), spools.end());
  for (const auto& [which, directory] : guard().ownDirectories)
    own.push_back(directory);
  return own;
}

}  // namespace kiv::removal
