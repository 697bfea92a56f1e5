// The manager's passes: from a configuration to the merge, the finish and the stop.

#include <utility>

#include "KivResource/KivResourceFactory.h"
#include "KivResource/KivResourceManager.h"
#include "KivResource/KivResourceManagerStep.h"
#include "KivResource/NSError+KivResource.h"

void KivResourceManager::loadResourcesForConfig(const kiv::Value& config) {
  assertQueue();
  loadResourcesFromConfig_withID_orType_replace(config, std::nullopt, std::nullopt, false);
}

void KivResourceManager::loadResourceWithID_forConfig(const std::optional<std::string>& resourceID,
                                                      const kiv::Value& config) {
  assertQueue();
  loadResourcesFromConfig_withID_orType_replace(config, resourceID, std::nullopt, false);
}

void KivResourceManager::loadResourcesWithType_forConfig(const std::optional<std::string>& type,
                                                         const kiv::Value& config) {
  assertQueue();
  loadResourcesFromConfig_withID_orType_replace(config, std::nullopt, type, false);
}

void KivResourceManager::updateResourcesForConfig(const kiv::Value& config) {
  assertQueue();
  loadResourcesFromConfig_withID_orType_replace(config, std::nullopt, std::nullopt, true);
}

void KivResourceManager::loadResourcesFromConfig_withID_orType_replace(
    const kiv::Value& config, const std::optional<std::string>& resourceID,
    const std::optional<std::string>& type, bool replace) {
  assertQueue();
  const auto step = beginStep();
  // Otherwise the new resources would find files that are to be removed. Also saves a list again
  // that could not be saved.
  listIsChanged_ = listIsChanged_ || listIsOutOfDate_;
  saveChanges();
  auto resources = KivResourceFactory::resourcesArrayForResourcesConfig(config);
  if (loadingResourcesFilesCount_ > 0) {
    refusePass(resources);
    return;
  }
  resourcesForRemove_ = std::nullopt;
  loadingResourcesFilesCount_ = 0;
  if (resourceID) {
    resources = findResourcesInList_withValue_forPropertyName(resources, *resourceID, "resourceID");
  }
  if (type) resources = findResourcesInList_withValue_forPropertyName(resources, *type, "type");
  if (resources.empty()) {
    finishLoading();
  } else {
    updateResourcesFromList_deleteRest(resources, replace);
  }
}

/// Reports all resources of the configuration, regardless of the filters. The running pass
/// continues, but the finish applies its removals early.
void KivResourceManager::refusePass(const kiv::ResourceArray& resources) {
  const kiv::Error busy(KivResourceErrorDomain, DownloadQueueIsBusyKivResourceErrorCode,
                        "Resource download was canceled because the download queue is busy.");
  for (const auto& resource : resources)
    announceFailed(resource, busy);
  finishLoading();
}

void KivResourceManager::updateResourcesFromList_deleteRest(const kiv::ResourceArray& newResources,
                                                            bool deleteRest) {
  assertQueue();
  const auto step = beginStep();
  // All counterparts are found first, since merging changes the registry.
  auto counterparts = loadedResources_->counterparts(newResources);
  for (std::size_t index = 0; index < newResources.size(); ++index)
    mergeResource(newResources[index], std::move(counterparts.ofEach[index]));
  if (deleteRest) resourcesForRemove_ = std::move(counterparts.rest);
  if (loadingResourcesFilesCount_ > 0) return;
  finishLoading();
}

void KivResourceManager::mergeResource(const std::shared_ptr<KivResource>& resource,
                                       std::shared_ptr<KivResource> counterpart) {
  if (!resource) return;
  if (counterpart && !resource->isNewerThan(*counterpart)) {
    announceLoaded(std::move(counterpart));
  } else {
    loadFilesForResource(resource);
  }
}

void KivResourceManager::finishLoading() {
  assertQueue();
  const auto step = beginStep();
  if (resourcesForRemove_) {
    for (const auto& resource : *resourcesForRemove_)
      removeResource(resource);
    listIsChanged_ = true;
    resourcesForRemove_ = std::nullopt;
  }
  announceFinish();
}

void KivResourceManager::stopLoading() {
  assertQueue();
  const auto step = beginStep();
  if (loader_) loader_->canselLoading();
  loadingResourcesFilesCount_ = 0;
  // Not finishLoading(), which would apply the removals of an update pass.
  announceFinish();
}
