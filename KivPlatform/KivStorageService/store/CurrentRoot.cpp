#include "KivPlatform/KivStorageService/store/CurrentRoot.h"

#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>

#include "KivPlatform/Foundation/Mutex.h"
#include "KivPlatform/Foundation/files/FileName.h"
#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/Foundation/system/OperatingSystem.h"

namespace kiv::storage {

namespace {

/// Never destroyed: a thread that saves while the process exits finds it whole. What then stays, a
/// lock file and an empty directory, the next process sweeps.
struct Current {
  Mutex mutex;
  std::optional<std::string> namedPath KIV_GUARDED_BY(mutex);
  std::shared_ptr<StorageRoot> root KIV_GUARDED_BY(mutex);
};

Current& current() {
  static auto& shared = *new Current;
  return shared;
}

std::string tidied(std::string path) {
  if (!path.starts_with('/') || path.find('\0') != path.npos) return {};
  while (path.size() > 1 && path.ends_with('/'))
    path.pop_back();
  return path;
}

/// A relative path would move with the current directory: what it means now, it means for good.
std::string namedPath(const std::string& path) {
  if (path.empty()) return path;
  std::error_code failure;
  return tidied(std::filesystem::absolute(path, failure).string());
}

/// The name of a directory for this program alone.
std::string directoryName() {
  std::string name = system::programName();
  return filename::isHarmless(name) ? name : "KivResource";
}

std::string defaultPath() {
  const std::string data = system::userDataDirectory();
  return data.empty() ? data : tidied(path::appendingPathComponent(data, directoryName()));
}

std::string pathOf(const Current& shared) KIV_REQUIRES(shared.mutex) {
  if (shared.root) return shared.root->path();
  return shared.namedPath ? *shared.namedPath : defaultPath();
}

std::shared_ptr<StorageRoot> rootOf(Current& shared) KIV_REQUIRES(shared.mutex) {
  if (!shared.root) {
    std::string path = pathOf(shared);
    if (!path.empty()) shared.root = std::make_shared<StorageRoot>(std::move(path));
  }
  return shared.root;
}

}  // namespace

std::string currentRootPath() {
  const MutexLock guard(current().mutex);
  return pathOf(current());
}

void setCurrentRootPath(std::optional<std::string> path) {
  const MutexLock guard(current().mutex);
  // The former root goes first, so that naming the same one again finds its directory removed.
  current().root.reset();
  current().namedPath = path ? std::optional(namedPath(*path)) : std::nullopt;
  if (current().namedPath) rootOf(current());
}

std::shared_ptr<StorageRoot> currentRoot() {
  const MutexLock guard(current().mutex);
  return rootOf(current());
}

}  // namespace kiv::storage
