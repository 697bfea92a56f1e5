// A file may have several paths, through links, and a list may contain any of them. So resolved
// paths are compared, including every link on the way: removing a link would break a path too.

#include "KivResource/maintenance/KivResourceInventory.h"

#include <algorithm>
#include <system_error>
#include <utility>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/Foundation/text/Unicode.h"
#include "KivPlatform/KivStorageService/KivStorageService.h"
#include "KivPlatform/KivStorageService/store/ItemLease.h"
#include "KivPlatform/KivStorageService/store/ProcessDirectory.h"
#include "KivResource/KivResourceFactory.h"
#include "KivResource/KivResourceManager.h"
#include "KivResource/KivResourceStorageModule.h"
#include "KivResource/maintenance/KivResourceMaintenanceErrors.h"

namespace kiv {

namespace {

using path::appendingPathComponent;
using path::deletingLastPathComponent;
using path::lastPathComponent;

FileManager& files() {
  return FileManager::defaultManager();
}

Error maintenanceError(KivResourceMaintenanceErrorCode code, std::string_view message) {
  return Error(KivResourceMaintenanceErrorDomain, static_cast<std::int64_t>(code), message);
}

bool saysNotThere(const Error& error) {
  return isSystemError(error, std::errc::no_such_file_or_directory);
}

void addPathsIn(const Value& value, std::vector<std::string>& paths) {
  if (value.isString() && value.stringView().starts_with('/')) paths.push_back(value.string());
  for (const Value& element : value.array())
    addPathsIn(element, paths);
  for (const auto& member : value.dictionary())
    addPathsIn(member.value, paths);
}

Error doubtError(std::string_view what, const std::optional<Error>& reason,
                 std::string_view remedy) {
  std::string message(what);
  if (reason) message += " (" + reason->localizedDescription() + ")";
  message.append(". It may name files that are in use: ").append(remedy);
  return maintenanceError(KivResourceMaintenanceErrorCode::listInDoubt, message);
}

/// `place` is the item's path with the directory resolved, but not the item itself.
bool isUsed(const std::string& place, UsedPaths& used) {
  if (used.hold(place)) return true;
  if (!files().linkExistsAtPath(place)) return false;
  const auto target = files().resolvedPathOfItemAtPath(place);
  return target && used.hold(*target);
}

bool isPartial(const std::string& place) {
  return files().directoryExistsAtPath(place) &&
         !files().fileExistsAtPath(appendingPathComponent(place, KivResouceArchiveKey[1]));
}

/// The incomplete files and the leases of one process.
Status findItemsOfProcess(const std::string& directory, PrivateItems& found) {
  const auto names = sortedNames(directory);
  if (!names) return names.error();
  for (const std::string& name : *names) {
    std::string path = appendingPathComponent(directory, name);
    if (!storage::ItemLease::isDirectoryName(name)) {
      found.temporary.push_back(std::move(path));
      continue;
    }
    const auto items = sortedNames(path);
    if (!items) return items.error();
    for (const std::string& item : *items)
      found.leased.push_back(appendingPathComponent(path, item));
  }
  return {};
}

}  // namespace

// --- Places --------------------------------------------------------------------------------------

void UsedPaths::add(std::string_view path) {
  while (!path.empty() && isNew(path)) {
    const std::string_view parent = deletingLastPathComponent(path);
    places_.insert(resolved(path));
    places_.insert(appendingPathComponent(resolved(parent), lastPathComponent(path)));
    if (parent.size() == path.size()) return;
    path = parent;
  }
}

bool UsedPaths::hold(const std::string& place) {
  if (places_.contains(place)) return true;
  const std::string below = place + "/";
  const auto first = places_.lower_bound(below);
  if (first != places_.end() && first->starts_with(below)) return true;
  return holdInOtherSpelling(place);
}

/// A directory may list a name in another case or Unicode normalization than the saved list. The
/// file system says whether both are the same item.
bool UsedPaths::holdInOtherSpelling(const std::string& place) {
  if (spellings_.empty()) foldPlaces();
  const std::string folded = unicode::foldedName(place);
  const auto [first, last] = spellings_.equal_range(folded);
  return std::any_of(first, last, [&](const auto& spelling) {
    return files().itemAtPath_isItemAtPath(place, spelling.second);
  });
}

/// The places and the directories above them, which may not be places themselves.
void UsedPaths::foldPlaces() {
  std::set<std::string_view> known;
  for (const std::string& used : places_) {
    for (std::string_view place = used; place.size() > 1 && known.insert(place).second;
         place = deletingLastPathComponent(place))
      spellings_.emplace(unicode::foldedName(place), place);
  }
}

/// If there is nothing, the name in the resolved parent directory.
const std::string& UsedPaths::resolved(std::string_view path) {
  const auto known = resolved_.find(path);
  if (known != resolved_.end()) return known->second;
  auto place = files().resolvedPathOfItemAtPath(path.empty() ? "." : path).toOptional();
  if (!place) {
    const std::string_view parent = deletingLastPathComponent(path);
    place = parent.size() < path.size()
                ? appendingPathComponent(resolved(parent), lastPathComponent(path))
                : std::string(path);
  }
  return resolved_.emplace(path, std::move(*place)).first->second;
}

// --- The lists -----------------------------------------------------------------------------------

void ListedFiles::need(const std::string& path, const KivResource& resource) {
  resourceIDs.emplace(path, resource.resourceID());
}

void ListedFiles::addLoaded(const KivResource& resource) {
  for (const std::string& path : resource.useFilePaths()) {
    used.add(path);
    need(path, resource);
  }
}

/// Only complete resources are saved, so the list has paths, not links.
void ListedFiles::addSaved(const KivResource& resource) {
  if (resource.filesExist()) return addLoaded(resource);
  for (const std::string& path : resource.useFilePaths())
    need(path, resource);
  for (const std::string& path : resource.missingFilesLinks())
    need(path, resource);
}

ListedFiles listedFiles(const KivResourceManager& manager) {
  ListedFiles listed;
  for (const auto& resource : *manager.loadedResources())
    listed.addLoaded(*resource);
  std::optional<Error> error;
  auto saved = KivResourceStorageModule::loadResourcesListWithError(&error);
  if (error && !saysNotThere(*error)) listed.listError = std::move(error);
  listed.saved = std::move(saved).value_or(Array());
  for (const Value& entry : listed.saved) {
    if (isOfUnknownKind(entry)) {
      for (const std::string& path : pathsInEntry(entry))
        listed.used.add(path);
    }
    const auto resource = KivResourceFactory::createResourceFromDictionary(entry.dictionary());
    if (resource) listed.addSaved(*resource);
  }
  return listed;
}

bool isOfUnknownKind(const Value& entry) {
  const Value& engine = entry.dictionary()["engine"];
  return !KivResourceFactory::requiredKeysOfEngine(engine.stringView());
}

std::vector<std::string> pathsInEntry(const Value& entry) {
  std::vector<std::string> paths;
  addPathsIn(entry, paths);
  return paths;
}

std::optional<Error> refusalWhileLoading(const KivResourceManager& manager) {
  if (manager.loadingResourcesFilesCount() <= 0) return std::nullopt;
  return maintenanceError(KivResourceMaintenanceErrorCode::downloadsInFlight,
                          "Nothing is cleaned up while downloads are in flight.");
}

std::optional<Error> unreadableListError(const KivResourceManager& manager,
                                         const ListedFiles& listed) {
  const std::string list = "The saved list \"" + KivResourceStorageModule::resourcesListPath();
  if (listed.listError) {
    return doubtError(list + "\" cannot be read", listed.listError,
                      "make it readable, put back a copy of it or remove it, and clean up again.");
  }
  if (const auto error = manager.savedListError()) {
    return doubtError(list + "\" could not be read by this process", error,
                      "load a configuration or start the program again, and clean up again.");
  }
  const auto setAside = KivResourceStorageModule::setAsideResourcesLists();
  if (setAside.empty()) return std::nullopt;
  return doubtError("\"" + setAside.front() + "\" is a saved list that could not be read",
                    std::nullopt,
                    "put it back in place of the saved list once it is repaired, with the program "
                    "stopped, or remove it, and clean up again.");
}

// --- The disk ------------------------------------------------------------------------------------

/// The directory may be removed meanwhile, as a lease is when it ends.
Result<std::vector<std::string>> sortedNames(const std::string& directory) {
  if (!files().itemExistsAtPath(directory)) return std::vector<std::string>();
  auto names = files().contentsOfDirectoryAtPath(directory);
  if (!names && saysNotThere(names.error())) return std::vector<std::string>();
  if (names) std::sort(names->begin(), names->end());
  return names;
}

Result<std::optional<std::string>> findResources() {
  const std::string path = KivResourceStorageModule::resourcesDirectoryPath();
  if (!files().itemExistsAtPath(path)) return std::nullopt;
  const std::string root = KivStorageService::rootPath();
  const auto resolvedRoot = files().resolvedPathOfItemAtPath(root);
  if (!resolvedRoot) return resolvedRoot.error();
  auto directory = files().resolvedPathOfItemAtPath(path);
  if (!directory) return directory.error();
  const std::string_view relativePath = std::string_view(path).substr(root.size());
  if (*directory == appendingPathComponent(*resolvedRoot, relativePath))
    return *std::move(directory);
  return maintenanceError(KivResourceMaintenanceErrorCode::resourcesElsewhere,
                          "The resources directory \"" + path +
                              "\" is reached through a link, and lies in \"" + *directory + "\".");
}

Result<Orphans> findOrphans(UsedPaths& used) {
  const auto found = findResources();
  if (!found) return found.error();
  const std::optional<std::string>& directory = *found;
  if (!directory) return Orphans();
  const auto names = sortedNames(*directory);
  if (!names) return names.error();
  Orphans orphans;
  for (const std::string& name : *names) {
    const std::string place = appendingPathComponent(*directory, name);
    if (isUsed(place, used)) continue;
    (isPartial(place) ? orphans.partial : orphans.orphaned).push_back(place);
  }
  return orphans;
}

/// Each process has a working directory and a lock file beside it, which are no leftovers
/// themselves.
Result<PrivateItems> findPrivateItems() {
  const std::string top = KivStorageService::temporariesPath();
  const auto names = sortedNames(top);
  if (!names) return names.error();
  PrivateItems found;
  for (const std::string& name : *names) {
    std::string path = appendingPathComponent(top, name);
    if (files().directoryExistsAtPath(path)) {
      if (Status status = findItemsOfProcess(path, found); !status) return status;
    } else if (!storage::ProcessDirectory::isLockName(name)) {
      found.temporary.push_back(std::move(path));
    }
  }
  return found;
}

}  // namespace kiv
