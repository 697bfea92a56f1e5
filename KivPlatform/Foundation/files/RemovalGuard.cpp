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
  std::set<std::string> permanent KIV_GUARDED_BY(mutex);
  std::multiset<std::string> temporary KIV_GUARDED_BY(mutex);  // one for each PrivateDirectory
};

Guard& guard() {
  static auto& shared = *new Guard;
  return shared;
}

constinit thread_local const std::vector<std::string>* confinement = nullptr;

}  // namespace

void addPrivateDirectory(std::string path) {
  const MutexLock lock(guard().mutex);
  guard().permanent.insert(std::move(path));
}

PrivateDirectory::PrivateDirectory(std::string path) : path_(std::move(path)) {
  const MutexLock lock(guard().mutex);
  guard().temporary.insert(path_);
}

PrivateDirectory::~PrivateDirectory() {
  const MutexLock lock(guard().mutex);
  guard().temporary.erase(guard().temporary.find(path_));
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
  std::set<std::string> own(guard().temporary.begin(), guard().temporary.end());
  own.insert(guard().permanent.begin(), guard().permanent.end());
  return std::vector<std::string>(own.begin(), own.end());
}

}  // namespace kiv::removal
