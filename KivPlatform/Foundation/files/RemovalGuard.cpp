// The roots that a host sets are global to the process because the guard protects against bugs
// anywhere in it.

#include "KivPlatform/Foundation/files/RemovalGuard.h"

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
  std::set<std::string> privateDirectories KIV_GUARDED_BY(mutex);
};

Guard& guard() {
  static auto& shared = *new Guard;
  return shared;
}

constinit thread_local const std::vector<std::string>* confinement = nullptr;

}  // namespace

void addPrivateDirectory(std::string path) {
  const MutexLock lock(guard().mutex);
  guard().privateDirectories.insert(std::move(path));
}

Confinement::Confinement(std::vector<std::string> directories)
    : directories_(std::move(directories)), former_(std::exchange(confinement, &directories_)) {}

Confinement::~Confinement() {
  confinement = former_;
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
  if (confinement) return *confinement;
  return std::vector<std::string>(guard().privateDirectories.begin(),
                                  guard().privateDirectories.end());
}

}  // namespace kiv::removal
