// The manager's passes: from a configuration to the merge, the finish and the stop.

#include <utility>

#include "KivResource/KivResourceFactory.h"
#include "KivResource/KivResourceManager.h"
#include "KivResource/KivResourceManagerStep.h"
#include "KivResource/NSError+KivResource.h"
#include "KivResource/passes/KivResourcePassReports.h"
#include "KivResource/revalidation/KivResourceRevalidation.h"

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
  runPass({config, resourceID, type, replace}, nullptr);
}

std::uint64_t KivResourceManager::startPass(const KivResourcePass& pass,
                                            KivResourcePassReportHandler handler) {
  assertQueue();
  const auto step = beginStep();
  const std::uint64_t passID = reports_->nextPassID();
  const auto collector = std::make_shared<kiv::PassCollector>(passID, std::move(handler));
  try {
    runPass(pass, collector);
  } catch (...) {
    reports_->forget(collector);
    throw;
  }
  return passID;
}

void KivResourceManager::runPass(const KivResourcePass& pass,
                                 const std::shared_ptr<kiv::PassCollector>& collector) {
  const auto step = beginStep();
  // Otherwise the new resources would find files that are to be removed. Also saves a list again
  // that could not be saved.
  listIsChanged_ = listIsChanged_ || listIsOutOfDate_;
  saveChanges();
  auto resources = KivResourceFactory::resourceOfEachItemOfConfig(pass.config);
  if (collector) collector->noteItems(pass.config, resources);
  std::erase(resources, nullptr);
  if (loadingResourcesFilesCount_ > 0) {
    refusePass(resources, collector);
    return;
  }
  reports_->begin(collector);
  resourcesForRemove_ = std::nullopt;
  loadingResourcesFilesCount_ = 0;
  if (pass.resourceID) {
    resources =
        findResourcesInList_withValue_forPropertyName(resources, *pass.resourceID, "resourceID");
  }
  if (pass.type) {
    resources = findResourcesInList_withValue_forPropertyName(resources, *pass.type, "type");
  }
  if (collector) collector->noteSelection(pass, resources);
  if (resources.empty()) {
    finishLoading();
  } else {
    updateResourcesFromList_deleteRest(resources, pass.dropsRest);
  }
}

/// Reports all resources of the configuration, regardless of the filters. The running pass
/// continues, but the finish applies its removals early.
void KivResourceManager::refusePass(const kiv::ResourceArray& resources,
                                    const std::shared_ptr<kiv::PassCollector>& collector) {
  const kiv::Error busy(KivResourceErrorDomain, DownloadQueueIsBusyKivResourceErrorCode,
                        "Resource download was canceled because the download queue is busy.");
  if (collector) {
    collector->noteRefusal(busy);
    reports_->addEnded(collector);
  }
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
    reports_->tell([&](kiv::PassCollector& pass) { pass.noteUnchanged(*resource, counterpart); });
    announceLoaded(std::move(counterpart));
  } else {
    loadFilesForResource(resource);
  }
}

void KivResourceManager::finishLoading() {
  assertQueue();
  const auto step = beginStep();
  if (resourcesForRemove_) {
    reports_->tell([this](kiv::PassCollector& pass) {
      pass.noteDropped(*resourcesForRemove_, *loadedResources_);
    });
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
  revalidations_->stop();
  if (loader_) loader_->canselLoading();
  reports_->tell([](kiv::PassCollector& pass) { pass.noteStop(); });
  loadingResourcesFilesCount_ = 0;
  // Not finishLoading(), which would apply the removals of an update pass.
  announceFinish();
}
