// The manager's file pipeline: from a resource's missing links to its place in the registry, and
// the removal of what it replaces.

#include <algorithm>

#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/Foundation/system/SystemLog.h"
#include "KivPlatform/KivRESTService/KivRESTServiceErrors.h"
#include "KivResource/KivResourceManager.h"
#include "KivResource/KivResourceManagerStep.h"
#include "KivResource/KivResourcePendingRemovals.h"
#include "KivResource/KivResourceStorageModule.h"

namespace {

constexpr std::string_view logPrefix =
    "KivResourceManager (-[KivResourceManager loadFilesForResource:]_block_invoke): ";

void logLoadedFile(std::string_view fileName, const KivResource& resource) {
  std::string line(logPrefix);
  line.append("Loaded file with name \"").append(fileName);
  line.append("\" for resource with ID ").append(resource.resourceID()).append(".");
  kiv::SystemLog::write(line);
}

void logFailedFile(std::string_view fileName, const KivResource& resource,
                   const std::optional<kiv::Error>& error) {
  std::string line(logPrefix);
  line.append("Error loading file with name \"").append(fileName);
  line.append("\" for resource with ID ").append(resource.resourceID());
  line.append(". Error: ").append(error ? error->description() : "(null)");
  kiv::SystemLog::write(line);
}

kiv::Error outOfMemory(const std::string& fileLink) {
  std::string message = "Could not store \"";
  message.append(kiv::path::lastPathComponent(fileLink)).append("\": memory has run out.");
  return kiv::Error(KivRESTServiceErrorDomain,
                    static_cast<std::int64_t>(KivRESTServiceErrorCode::outOfResources), message);
}

}  // namespace

void KivResourceManager::loadFilesForResource(const std::shared_ptr<KivResource>& resource) {
  assertQueue();
  if (!resource) return;
  const auto step = beginStep();
  settleBefore(removals_->affect(*resource));
  if (resource->filesExist()) {
    // Complete on arrival: older versions with the same identifier stay beside it.
    loadedResources_->append(resource);
    listIsChanged_ = true;
    announceLoaded(resource);
    return;
  }
  for (const std::string& fileLink : resource->missingFilesLinks()) {
    if (const auto path = pathToFile(kiv::path::lastPathComponent(fileLink))) {
      setLoadedFile_forResource(*path, resource);
    } else {
      downloadFile(fileLink, resource);
    }
  }
}

std::optional<std::string> KivResourceManager::pathToFile(std::string_view fileName) {
  auto path = KivResourceStorageModule::pathToResourceFileWithName(fileName);
  if (!path || !removals_->affect(*path)) return path;
  settleBefore(true);
  return KivResourceStorageModule::pathToResourceFileWithName(fileName);
}

void KivResourceManager::settleBefore(bool isAffected) {
  if (!isAffected) return;
  listIsChanged_ = listIsChanged_ || listIsOutOfDate_;
  saveChanges();
  removals_->clear();
}

/// The count is incremented first, since the completion may be called before the loader returns.
void KivResourceManager::downloadFile(const std::string& fileLink,
                                      const std::shared_ptr<KivResource>& resource) {
  ++loadingResourcesFilesCount_;
  if (!loader_) {
    completeDownload(std::nullopt, KivResourceRESTModule::createRequestError(), fileLink, resource);
    return;
  }
  loader_->loadDataForResource_usingFileLink_completionHandler(
      resource, fileLink,
      [self = shared_from_this(), resource, fileLink](const std::optional<kiv::Data>& data,
                                                      const std::optional<kiv::Error>& error) {
        self->completeDownload(data, error, fileLink, resource);
      });
}

void KivResourceManager::completeDownload(const std::optional<kiv::Data>& data,
                                          const std::optional<kiv::Error>& error,
                                          const std::string& fileLink,
                                          const std::shared_ptr<KivResource>& resource) {
  const auto step = beginStepOfTurn();
  const bool isTaken = kiv::contain([&] {
    const std::string_view fileName = kiv::path::lastPathComponent(fileLink);
    if (error || !data) {
      logFailedFile(fileName, *resource, error);
      announceFailed(resource, error);
    } else {
      logLoadedFile(fileName, *resource);
      saveLoadedData_forFileWithLink_andUpdateResource(*data, fileLink, resource);
    }
  });
  if (!isTaken) kiv::insist([&] { announceFailed(resource, outOfMemory(fileLink)); });
  --loadingResourcesFilesCount_;
  if (loadingResourcesFilesCount_ <= 0) kiv::insist([this] { finishLoading(); });
}

void KivResourceManager::saveLoadedData_forFileWithLink_andUpdateResource(
    const kiv::Data& data, const std::string& fileLink,
    const std::shared_ptr<KivResource>& resource) {
  assertQueue();
  if (!resource) return;
  const auto step = beginStep();
  const std::string_view fileName = kiv::path::lastPathComponent(fileLink);
  const auto item = KivResourceStorageModule::pathOfItemSavedWithName(fileName);
  settleBefore(item && removals_->affectSaving(*item));
  if (!savings_) savings_.emplace();
  std::optional<kiv::Error> error;
  if (!KivResourceStorageModule::saveData_withResourceFileName_error(data, fileName, &error)) {
    announceFailed(resource, error);
    return;
  }
  const auto path = KivResourceStorageModule::pathToSavedResourceFileWithName(fileName);
  if (path) setLoadedFile_forResource(*path, resource);
}

void KivResourceManager::setLoadedFile_forResource(const std::string& path,
                                                   const std::shared_ptr<KivResource>& resource) {
  assertQueue();
  if (!resource) return;
  const auto step = beginStep();
  settleBefore(removals_->affect(path) || removals_->affect(*resource));
  resource->setPath(path);
  if (!resource->filesExist()) return;
  loadedResources_->append(resource);
  removeOldResourcesForResource(resource);
  listIsChanged_ = true;
  announceLoaded(resource);
}

void KivResourceManager::removeOldResourcesForResource(
    const std::shared_ptr<KivResource>& resource) {
  assertQueue();
  if (!resource) return;
  auto older = loadedResourcesWithID_copy(resource->resourceID(), false);
  std::erase(older, resource);
  // All are removed from the registry first, so that a file that only they share is removed too.
  loadedResources_->removeAll(older);
  for (const auto& old : older)
    removeFilesForResource(old);
}

void KivResourceManager::removeFilesForResource(const std::shared_ptr<KivResource>& resource) {
  assertQueue();
  if (!resource) return;
  const auto step = beginStep();
  markFiles(resource);
}

void KivResourceManager::markFiles(const std::shared_ptr<KivResource>& resource) {
  for (std::string& path : resource->useFilePaths()) {
    if (!loadedResources_->isPathUsedByOthers(path, *resource)) {
      removals_->add(std::move(path), resource);
    }
  }
}

void KivResourceManager::removeResource(const std::shared_ptr<KivResource>& resource) {
  assertQueue();
  loadedResources_->remove(resource);
}
