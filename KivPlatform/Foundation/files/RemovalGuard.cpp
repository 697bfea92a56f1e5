// The roots are global to the process because the guard protects against bugs anywhere in it.
// Unless the host sets roots, they are the directories that the framework registers as its own.

#include "KivPlatform/Foundation/files/RemovalGuard.h"

#include <map>
#include <set>
#include <utility>

#include "KivPlatform/Foundation/Mutex.h"

namespace kiv::removal {

namespace {

/// Never destroyed, because files are removed while the process exits.
struct Guard {
  Mutex mutex;
  bool isHosts KIV_GUARDED_BY(mutex) = false;  // the host set roots or turned the guard off
  std::optional<std::vector<std::string>> hostsRoots KIV_GUARDED_BY(mutex);
  std::map<OwnDirectory, std::string> ownDirectories KIV_GUARDED_BY(mutex);
  std::set<std::string> spoolDirectories KIV_GUARDED_BY(mutex);
};

Guard& guard() {
  static auto& shared = *new Guard;
  return shared;
}

}  // namespace

void setOwnDirectory(OwnDirectory which, std::string path) {
  const MutexLock lock(guard().mutex);
  guard().ownDirectories[which] = std::move(path);
}

void addSpoolDirectory(std::string path) {
  const MutexLock lock(guard().mutex);
  guard().spoolDirectories.insert(std::move(path));
}

void restoreOwnDirectories() {
  const MutexLock lock(guard().mutex);
  guard().isHosts = false;
  guard().hostsRoots.reset();
}

void setRoots(std::optional<std::vector<std::string>> roots) {
  const MutexLock lock(guard().mutex);
  guard().isHosts = true;
  guard().hostsRoots = std::move(roots);
}

std::optional<std::vector<std::string>> roots() {
  const MutexLock lock(guard().mutex);
  if (guard().isHosts) return guard().hostsRoots;
  std::vector<std::string> own(guard().spoolDirectories.begin(), guard().spoolDirectories.end());
  for (const auto& [which, directory] : guard().ownDirectories)
    own.push_back(directory);
  return own;
}

}  // namespace kiv::removal
