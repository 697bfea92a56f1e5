// A file may have several paths, through links, and a list may contain any of them. So resolved
// paths are compared, including every link on the way: removing a link would break a path too. If
// the saved list cannot be read, nothing is removed, since it may name files that no readable list
// names.

#include "KivResource/KivResourceMaintenance.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/Foundation/text/Unicode.h"
#include "KivPlatform/KivRESTService/partial/PartialBody.h"
#include "KivPlatform/KivStorageService/KivStorageService.h"
#include "KivPlatform/KivStorageService/store/ItemLease.h"
#include "KivPlatform/KivStorageService/store/ProcessDirectory.h"
#include "KivResource/KivResourceCachePlace.h"
#include "KivResource/KivResourceFactory.h"
#include "KivResource/KivResourceManager.h"
#include "KivResource/KivResourceStorageModule.h"

using kiv::Error;
using kiv::FileManager;
using kiv::Result;
using kiv::Status;
using kiv::path::appendingPathComponent;
using kiv::path::deletingLastPathComponent;
using kiv::path::lastPathComponent;

namespace {

using Maintenance = KivResourceMaintenance;

FileManager& files() {
  return FileManager::defaultManager();
}

Error maintenanceError(KivResourceMaintenanceErrorCode code, std::string_view message) {
  return Error(KivResourceMaintenanceErrorDomain, static_cast<std::int64_t>(code), message);
}

/// The directory entries that the files in use depend on: the files, and every component on the way
/// to them, links included.
///
/// All places are added before the first question.
class UsedPlaces {
 public:
  void add(std::string_view path) {
    while (!path.empty() && isNew(path)) {
      const std::string_view parent = deletingLastPathComponent(path);
      places_.insert(resolved(path));
      places_.insert(appendingPathComponent(resolved(parent), lastPathComponent(path)));
      if (parent.size() == path.size()) return;
      path = parent;
    }
  }

  /// True if the place, or something below it, is in use.
  [[nodiscard]] bool hold(const std::string& place) {
    if (places_.contains(place)) return true;
    const std::string below = place + "/";
    const auto first = places_.lower_bound(below);
    if (first != places_.end() && first->starts_with(below)) return true;
    return holdInOtherSpelling(place);
  }

 private:
  bool isNew(std::string_view path) { return seen_.emplace(path).second; }

  /// A directory may list a name in another case or Unicode normalization than the saved list. The
  /// file system says whether both are the same item.
  bool holdInOtherSpelling(const std::string& place) {
    if (spellings_.empty()) foldPlaces();
    const std::string folded = kiv::unicode::foldedName(place);
    const auto [first, last] = spellings_.equal_range(folded);
    return std::any_of(first, last, [&](const auto& spelling) {
      return files().itemAtPath_isItemAtPath(place, spelling.second);
    });
  }

  /// The places and the directories above them, which may not be places themselves.
  void foldPlaces() {
    std::set<std::string_view> known;
    for (const std::string& used : places_) {
      for (std::string_view place = used; place.size() > 1 && known.insert(place).second;
           place = deletingLastPathComponent(place))
        spellings_.emplace(kiv::unicode::foldedName(place), place);
    }
  }

  /// If there is nothing, the name in the resolved parent directory.
  const std::string& resolved(std::string_view path) {
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

  std::set<std::string, std::less<>> seen_;
  std::set<std::string> places_;
  std::multimap<std::string, std::string_view> spellings_;  ///< By their folded form.
  std::map<std::string, std::string, std::less<>> resolved_;
};

/// The files that the registry and the saved list name.
struct ListedFiles {
  UsedPlaces used;
  std::map<std::string, std::string> resourceIDs;  ///< by path
  std::optional<Error> listError;                  ///< where the saved list cannot be read

  void need(const std::string& path, const KivResource& resource) {
    resourceIDs.emplace(path, resource.resourceID());
  }

  void addLoaded(const KivResource& resource) {
    for (const std::string& path : resource.useFilePaths()) {
      used.add(path);
      need(path, resource);
    }
  }

  /// An entry of a kind that this process has not registered: a host that has may find its files by
  /// any string of the entry.
  void addUnknown(const kiv::Value& value) {
    if (value.isString() && value.stringView().starts_with('/')) used.add(value.stringView());
    for (const kiv::Value& element : value.array())
      addUnknown(element);
    for (const auto& member : value.dictionary())
      addUnknown(member.value);
  }

  /// Only complete resources are saved, so the list has paths, not links.
  void addSaved(const KivResource& resource) {
    if (resource.filesExist()) return addLoaded(resource);
    for (const std::string& path : resource.useFilePaths())
      need(path, resource);
    for (const std::string& path : resource.missingFilesLinks())
      need(path, resource);
  }
};

bool saysNotThere(const Error& error) {
  return error.domain == kiv::SystemErrorDomain &&
         error.code == static_cast<int>(std::errc::no_such_file_or_directory);
}

ListedFiles listedFiles(const KivResourceManager& manager) {
  ListedFiles listed;
  for (const auto& resource : *manager.loadedResources())
    listed.addLoaded(*resource);
  std::optional<Error> error;
  const auto saved = KivResourceStorageModule::loadResourcesListWithError(&error);
  if (error && !saysNotThere(*error)) listed.listError = std::move(error);
  for (const kiv::Value& entry : saved.value_or(kiv::Array())) {
    const kiv::Value& engine = entry.dictionary()["engine"];
    if (!KivResourceFactory::requiredKeysOfEngine(engine.stringView())) listed.addUnknown(entry);
    const auto resource = KivResourceFactory::createResourceFromDictionary(entry.dictionary());
    if (resource) listed.addSaved(*resource);
  }
  return listed;
}

Error doubtError(std::string_view what, const std::optional<Error>& reason,
                 std::string_view remedy) {
  std::string message(what);
  if (reason) message += " (" + reason->localizedDescription() + ")";
  message.append(". It may name files that are in use: ").append(remedy);
  return maintenanceError(KivResourceMaintenanceErrorCode::listInDoubt, message);
}

/// Why files that no known entry names may be in use; nothing if they are not.
std::optional<Error> doubtOfList(const KivResourceManager& manager, const ListedFiles& listed) {
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

Result<std::vector<std::string>> sortedNames(const std::string& directory) {
  if (!files().itemExistsAtPath(directory)) return std::vector<std::string>();
  auto names = files().contentsOfDirectoryAtPath(directory);
  if (names) std::sort(names->begin(), names->end());
  return names;
}

Maintenance::Item itemAt(std::string path) {
  auto size = files().sizeOfItemAtPath(path).toOptional();
  return {std::move(path), size, {}};
}

/// The resolved resources directory; nothing if it does not exist. A link below the root is an
/// error, since it could make any directory the resources directory.
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

/// `place` is the item's path with the directory resolved, but not the item itself.
bool isUsed(const std::string& place, UsedPlaces& used) {
  if (used.hold(place)) return true;
  if (!files().linkExistsAtPath(place)) return false;
  const auto target = files().resolvedPathOfItemAtPath(place);
  return target && used.hold(*target);
}

bool isPartial(const std::string& place) {
  return files().directoryExistsAtPath(place) &&
         !files().fileExistsAtPath(appendingPathComponent(place, KivResouceArchiveKey[1]));
}

Status findOrphans(UsedPlaces& used, Maintenance::Audit& audit) {
  const auto found = findResources();
  if (!found) return found.error();
  const std::optional<std::string>& directory = *found;
  if (!directory) return {};
  const auto names = sortedNames(*directory);
  if (!names) return names.error();
  for (const std::string& name : *names) {
    const std::string place = appendingPathComponent(*directory, name);
    if (isUsed(place, used)) continue;
    (isPartial(place) ? audit.partial : audit.orphaned).push_back(itemAt(place));
  }
  return {};
}

void findUnusable(const ListedFiles& listed, Maintenance::Audit& audit) {
  for (const auto& [path, resourceID] : listed.resourceIDs) {
    if (!files().fileExistsAtPath(path)) {
      audit.missing.push_back({path, 0, resourceID});
    } else if (!files().fileIsReadableAtPath(path)) {
      audit.unreadable.push_back({path, files().sizeOfItemAtPath(path).toOptional(), resourceID});
    }
  }
}

Status addItemsOfDirectory(const std::string& directory, std::vector<Maintenance::Item>& items) {
  const auto names = sortedNames(directory);
  if (!names) return names.error();
  for (const std::string& name : *names)
    items.push_back(itemAt(appendingPathComponent(directory, name)));
  return {};
}

/// The incomplete files and the leases of one process.
Status findItemsOfProcess(const std::string& directory, Maintenance::Audit& audit) {
  const auto names = sortedNames(directory);
  if (!names) return names.error();
  for (const std::string& name : *names) {
    std::string path = appendingPathComponent(directory, name);
    if (!kiv::storage::ItemLease::isDirectoryName(name)) {
      audit.temporary.push_back(itemAt(std::move(path)));
    } else if (Status status = addItemsOfDirectory(path, audit.leased); !status) {
      return status;
    }
  }
  return {};
}

/// Each process has a working directory and a lock file beside it, which are no leftovers
/// themselves.
Status findTemporaries(Maintenance::Audit& audit) {
  const std::string top = KivStorageService::temporariesPath();
  const auto names = sortedNames(top);
  if (!names) return names.error();
  for (const std::string& name : *names) {
    std::string path = appendingPathComponent(top, name);
    if (files().directoryExistsAtPath(path)) {
      if (Status status = findItemsOfProcess(path, audit); !status) return status;
    } else if (!kiv::storage::ProcessDirectory::isLockName(name)) {
      audit.temporary.push_back(itemAt(std::move(path)));
    }
  }
  return {};
}

/// Only the bytes of a body are listed, not its record and lock file.
Status findUnfinishedDownloads(Maintenance::Audit& audit) {
  const std::string directory = KivResourceStorageModule::spoolDirectoryPath();
  const auto names = sortedNames(directory);
  if (!names) return names.error();
  for (const std::string& name : *names) {
    if (!kiv::PartialBody::isBodyName(name)) continue;
    audit.temporary.push_back(itemAt(appendingPathComponent(directory, name)));
  }
  return {};
}

void removeItem(Maintenance::Item item, Maintenance::CleanUp& cleanUp) {
  std::optional<Error> error;
  if (!KivResourceStorageModule::removeItemAtPath_error(item.path, &error)) {
    cleanUp.refused.push_back({std::move(item), std::move(*error)});
  } else {
    cleanUp.removed.push_back(std::move(item));
  }
}

}  // namespace

std::optional<Maintenance::Audit> KivResourceMaintenance::audit(const KivResourceManager& manager,
                                                                std::optional<Error>* error) {
  const kiv::CacheInUse cache(manager.place().get());
  ListedFiles listed = listedFiles(manager);
  Audit audit;
  audit.downloadsAreInFlight = manager.loadingResourcesFilesCount() > 0;
  audit.listDoubt = doubtOfList(manager, listed);
  findUnusable(listed, audit);
  const bool isWhole = findOrphans(listed.used, audit).reportTo(error) &&
                       findTemporaries(audit).reportTo(error) &&
                       findUnfinishedDownloads(audit).reportTo(error);
  if (!isWhole) return std::nullopt;
  return audit;
}

std::optional<Maintenance::CleanUp> KivResourceMaintenance::cleanUpOrphans(
    const KivResourceManager& manager, Mode mode, std::optional<Error>* error) {
  if (manager.loadingResourcesFilesCount() > 0) {
    if (error) {
      *error = maintenanceError(KivResourceMaintenanceErrorCode::downloadsInFlight,
                                "Nothing is cleaned up while downloads are in flight.");
    }
    return std::nullopt;
  }
  const kiv::CacheInUse cache(manager.place().get());
  ListedFiles listed = listedFiles(manager);
  if (auto doubt = doubtOfList(manager, listed)) {
    if (error) *error = std::move(doubt);
    return std::nullopt;
  }
  Audit found;
  if (!findOrphans(listed.used, found).reportTo(error)) return std::nullopt;
  CleanUp cleanUp;
  for (auto* const items : {&found.orphaned, &found.partial}) {
    for (Item& item : *items) {
      if (mode == Mode::dryRun) {
        cleanUp.removed.push_back(std::move(item));
      } else {
        removeItem(std::move(item), cleanUp);
      }
    }
  }
  return cleanUp;
}

std::optional<Maintenance::Space> KivResourceMaintenance::space(std::optional<Error>* error) {
  const auto fileSystem = files().spaceAtPath(KivStorageService::rootPath()).reportTo(error);
  if (!fileSystem) return std::nullopt;
  Space space{fileSystem->used, fileSystem->available, 0};
  const std::string resources = KivResourceStorageModule::resourcesDirectoryPath();
  for (const std::string& directory :
       {std::string(deletingLastPathComponent(resources)), KivStorageService::temporariesPath(),
        KivResourceStorageModule::spoolDirectoryPath()}) {
    if (!files().itemExistsAtPath(directory)) continue;
    const auto size = files().sizeOfItemAtPath(directory).reportTo(error);
    if (!size) return std::nullopt;
    space.cacheUsed += *size;
  }
  return space;
}

std::optional<Maintenance::Space> KivResourceMaintenance::space(const KivResourceManager& manager,
                                                                std::optional<Error>* error) {
  const kiv::CacheInUse cache(manager.place().get());
  return space(error);
}
