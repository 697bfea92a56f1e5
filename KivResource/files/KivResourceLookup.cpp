// With roots set, an item cannot probe the disk: a path outside of them counts as absent, whatever
// lies there. Both sides are resolved, so that a link neither leads out nor hides a root.

#include "KivResource/files/KivResourceLookup.h"

#include <algorithm>
#include <functional>
#include <memory>
#include <utility>

#include "KivPlatform/Foundation/Mutex.h"
#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivResource/KivResourceStorageModule.h"
#include "KivResource/files/KivResourceCachePlace.h"
#include "KivResource/files/KivResourceFileListing.h"

namespace {

using Roots = std::vector<std::string>;

/// Never destroyed: other threads may still make resources while the process exits.
struct Bound {
  kiv::Mutex mutex;
  std::shared_ptr<const Roots> roots KIV_GUARDED_BY(mutex);  // none where no bound is set
};

Bound& bound() {
  static auto& shared = *new Bound;
  return shared;
}

std::shared_ptr<const Roots> rootsInForce() {
  const kiv::MutexLock lock(bound().mutex);
  return bound().roots;
}

bool liesBelow(std::string_view resolvedPath, const std::string& root) {
  if (!root.starts_with('/')) return false;
  const auto resolvedRoot = kiv::FileManager::defaultManager().resolvedPathOfItemAtPath(root);
  if (!resolvedRoot) return false;
  if (*resolvedRoot == "/") return true;
  return resolvedPath.starts_with(*resolvedRoot) &&
         resolvedPath.substr(resolvedRoot->size()).starts_with('/');
}

/// Windows connects to such a computer, and tells it who the user is.
bool namesOtherComputer(std::string_view path) {
  constexpr std::string_view separators = "/\\";
  return path.size() >= 2 && separators.find(path[0]) != separators.npos &&
         separators.find(path[1]) != separators.npos;
}

/// True for a path in a directory of the cache in use, by the spelling alone. The host may have its
/// directories on another computer.
bool seemsOwn(std::string_view path) {
  const std::string resources = KivResourceStorageModule::resourcesDirectoryPath();
  const std::string packaged = KivResourceStorageModule::packagedResourcesPath();
  return (!resources.empty() && path.starts_with(resources)) ||
         (!packaged.empty() && path.starts_with(packaged));
}

/// The same by the resolved path, leases included.
bool isOwn(std::string_view resolvedPath) {
  return liesBelow(resolvedPath, KivResourceStorageModule::resourcesDirectoryPath()) ||
         liesBelow(resolvedPath, KivResourceStorageModule::packagedResourcesPath()) ||
         KivStorageService::isLeasedPath(resolvedPath);
}

bool liesBelowAny(std::string_view resolvedPath, const Roots& roots) {
  return std::any_of(roots.begin(), roots.end(),
                     [&](const std::string& root) { return liesBelow(resolvedPath, root); });
}

/// True if the predicate is true in the cache in use. Outside of the operations of a manager that
/// can be any: a resource does not know of which cache it is.
bool holdsInCache(const std::function<bool()>& predicate) {
  return kiv::CacheInUse::isKnown() ? predicate() : kiv::CacheInUse::isTrueForAny(predicate);
}

/// Whether the file is accepted by the roots of the cache in use.
bool isAccepted(const std::string& resolvedPath) {
  if (isOwn(resolvedPath)) return true;
  const kiv::CachePlace* const place = kiv::CacheInUse::place();
  if (place) return place->lookupRoots && liesBelowAny(resolvedPath, *place->lookupRoots);
  const auto roots = rootsInForce();
  return roots && liesBelowAny(resolvedPath, *roots);
}

bool isRestricted() {
  const kiv::CachePlace* const place = kiv::CacheInUse::place();
  return place ? place->lookupRoots.has_value() : rootsInForce() != nullptr;
}

}  // namespace

void KivResourceLookup::setRoots(std::optional<std::vector<std::string>> roots) {
  auto newRoots = roots ? std::make_shared<const Roots>(*std::move(roots)) : nullptr;
  const kiv::MutexLock lock(bound().mutex);
  bound().roots = std::move(newRoots);
}

std::optional<std::vector<std::string>> KivResourceLookup::roots() {
  const auto roots = rootsInForce();
  return roots ? std::optional(*roots) : std::nullopt;
}

bool KivResourceLookup::fileExistsAtPath(std::string_view path) {
  // A listing shows only files of the resources directory, and no links, so roots need no check.
  if (kiv::FileListing::isFileAtPath(path)) return true;
  if (namesOtherComputer(path) && !holdsInCache([&] { return seemsOwn(path); })) return false;
  auto& files = kiv::FileManager::defaultManager();
  if (!isRestricted()) return files.fileExistsAtPath(path);
  const auto resolved = files.resolvedPathOfItemAtPath(path);
  return resolved && files.fileExistsAtPath(*resolved) &&
         holdsInCache([&] { return isAccepted(*resolved); });
}
