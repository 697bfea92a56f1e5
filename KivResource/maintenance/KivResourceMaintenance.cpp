// If the saved list cannot be read, nothing is removed, since it may name files that no readable
// list names.

#include "KivResource/maintenance/KivResourceMaintenance.h"

#include <utility>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/KivRESTService/partial/PartialBody.h"
#include "KivPlatform/KivStorageService/KivStorageService.h"
#include "KivResource/KivResourceManager.h"
#include "KivResource/KivResourceStorageModule.h"
#include "KivResource/files/KivResourceCachePlace.h"
#include "KivResource/files/KivResourceShownTime.h"
#include "KivResource/maintenance/KivResourceInventory.h"

using kiv::Error;
using kiv::FileManager;
using kiv::ListedFiles;
using kiv::Status;
using kiv::path::appendingPathComponent;
using kiv::path::deletingLastPathComponent;

namespace {

using Maintenance = KivResourceMaintenance;

FileManager& files() {
  return FileManager::defaultManager();
}

Maintenance::Item itemAt(std::string path) {
  auto size = files().sizeOfItemAtPath(path).toOptional();
  return {std::move(path), size, {}};
}

void addItems(std::vector<std::string> paths, std::vector<Maintenance::Item>& items) {
  for (std::string& path : paths)
    items.push_back(itemAt(std::move(path)));
}

Status addOrphans(ListedFiles& listed, Maintenance::Audit& audit) {
  auto orphans = findOrphans(listed.used);
  if (!orphans) return orphans.error();
  addItems(std::move(orphans->orphaned), audit.orphaned);
  addItems(std::move(orphans->partial), audit.partial);
  return {};
}

Status addPrivateItems(Maintenance::Audit& audit) {
  auto found = kiv::findPrivateItems();
  if (!found) return found.error();
  addItems(std::move(found->temporary), audit.temporary);
  addItems(std::move(found->leased), audit.leased);
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

/// Only the bytes of a body are listed, not its record and lock file.
Status findUnfinishedDownloads(Maintenance::Audit& audit) {
  const std::string directory = KivResourceStorageModule::spoolDirectoryPath();
  const auto names = kiv::sortedNames(directory);
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
  ListedFiles listed = kiv::listedFiles(manager);
  Audit audit;
  audit.downloadsAreInFlight = manager.loadingResourcesFilesCount() > 0;
  audit.listDoubt = kiv::unreadableListError(manager, listed);
  findUnusable(listed, audit);
  const bool isWhole = addOrphans(listed, audit).reportTo(error) &&
                       addPrivateItems(audit).reportTo(error) &&
                       findUnfinishedDownloads(audit).reportTo(error);
  if (!isWhole) return std::nullopt;
  return audit;
}

std::optional<Maintenance::CleanUp> KivResourceMaintenance::cleanUpOrphans(
    const KivResourceManager& manager, Mode mode, std::optional<Error>* error) {
  if (auto refusal = kiv::refusalWhileLoading(manager)) {
    if (error) *error = std::move(refusal);
    return std::nullopt;
  }
  const kiv::CacheInUse cache(manager.place().get());
  ListedFiles listed = kiv::listedFiles(manager);
  if (auto doubt = kiv::unreadableListError(manager, listed)) {
    if (error) *error = std::move(doubt);
    return std::nullopt;
  }
  Audit found;
  if (!addOrphans(listed, found).reportTo(error)) return std::nullopt;
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

void KivResourceMaintenance::noteShown(const KivResource& resource) {
  kiv::noteShown(resource);
}
