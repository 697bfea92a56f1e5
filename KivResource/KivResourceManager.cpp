// The manager's core: creation, the saved list, the queries and the observers.

#include "KivResource/KivResourceManager.h"

#include <system_error>
#include <utility>

#include "KivPlatform/Foundation/Contain.h"
#include "KivPlatform/Foundation/queues/QueueAssertion.h"
#include "KivPlatform/Foundation/system/SystemLog.h"
#include "KivPlatform/KivRESTService/KivRESTService.h"
#include "KivResource/KivResourceManagerStep.h"
#include "KivResource/KivResourceStorageModule.h"
#include "KivResource/files/KivResourceCachePlace.h"
#include "KivResource/files/KivResourceFileListing.h"
#include "KivResource/list/KivResourcePendingRemovals.h"
#include "KivResource/list/KivResourceSavedList.h"
#include "KivResource/passes/KivResourcePassReports.h"
#include "KivResource/revalidation/KivResourceFileOrigins.h"
#include "KivResource/revalidation/KivResourceRevalidation.h"

namespace {

/// A copy, or nullptr if the resource's dictionary is no longer valid. A host's kind that cannot
/// be copied is returned itself; otherwise it would be missing.
std::shared_ptr<KivResource> copyOf(const std::shared_ptr<KivResource>& resource) {
  if (auto copy = resource->copyWithZone()) return copy;
  return resource->isCopyable() ? nullptr : resource;
}

template <class Resources>
kiv::ResourceArray copiesOf(const Resources& resources) {
  kiv::ResourceArray copies;
  copies.reserve(resources.size());
  for (const auto& resource : resources) {
    if (auto copy = copyOf(resource)) copies.push_back(std::move(copy));
  }
  return copies;
}

}  // namespace

std::shared_ptr<KivResourceManager> KivResourceManager::sharedInstance() {
  // Never destroyed: downloads and observers may still hold it while the process exits.
  static auto& instance = *new std::shared_ptr<KivResourceManager>(newInstance());
  return instance;
}

std::shared_ptr<KivResourceManager> KivResourceManager::newInstance() {
  std::shared_ptr<KivResourceManager> manager(new KivResourceManager(nullptr));
  manager->create(std::make_shared<KivResourceRESTModule>());
  return manager;
}

std::shared_ptr<KivResourceManager> KivResourceManager::newInstanceInPlace(
    std::shared_ptr<const kiv::CachePlace> place, std::shared_ptr<KivResourceRESTModule> loader) {
  std::shared_ptr<KivResourceManager> manager(new KivResourceManager(std::move(place)));
  manager->create(std::move(loader));
  return manager;
}

KivResourceManager::KivResourceManager(std::shared_ptr<const kiv::CachePlace> place)
    : queueAssertion_(std::make_shared<kiv::QueueAssertion>("the manager")),
      place_(std::move(place)),
      fileListing_(std::make_unique<kiv::FileListing>()),
      removals_(std::make_unique<kiv::PendingRemovals>()),
      reports_(std::make_unique<kiv::PassReports>(queueAssertion_)),
      origins_(std::make_unique<kiv::FileOrigins>()) {}
KivResourceManager::~KivResourceManager() = default;

void KivResourceManager::create(std::shared_ptr<KivResourceRESTModule> loader) {
  multicastObserver_ = std::make_shared<MulticastObserver>();
  revalidations_ = makeRevalidations();
  setLoadedResources(nullptr);
  savedList_ = std::make_unique<kiv::SavedList>();
  loadingResourcesFilesCount_ = 0;
  loadSavedResources();
  setLoader(std::move(loader));
}

void KivResourceManager::assertQueue(const char* call) const {
  queueAssertion_->check("KivResourceManager", call);
}

// --- The saved list ------------------------------------------------------------------------------

void KivResourceManager::loadSavedResources() {
  assertQueue();
  const kiv::CacheInUse use(place_.get());
  if (listIsChanged_) saveChanges();
  savedList_->restore(*loadedResources_, *fileListing_);
  kiv::SystemLog::write(
      "KivResourceManager (-[KivResourceManager loadSavedResources]): "
      "Cached resources were loaded.");
}

void KivResourceManager::saveLoadedResorcesList() const {
  assertQueue();
  const kiv::CacheInUse use(place_.get());
  kiv::SavedList::Access(*savedList_, *loadedResources_).save();
}

std::optional<kiv::Error> KivResourceManager::lastSaveError() const {
  assertQueue();
  return savedList_->lastSaveError();
}

std::optional<kiv::Error> KivResourceManager::savedListError() const {
  assertQueue();
  return savedList_->doubt();
}

void KivResourceManager::noteMerge() {
  const kiv::ListMerge merge = savedList_->takeMerge();
  for (const auto& resource : merge.replaced)
    markFiles(resource);
  for (const auto& resource : merge.taken)
    removals_->keepFilesOf(*resource);
  for (const auto& resource : merge.lost)
    failAnnouncements(resource);
}

/// Another process has removed a file of a resource that observers were to be told is loaded.
void KivResourceManager::failAnnouncements(const std::shared_ptr<KivResource>& resource) {
  const auto paths = resource->useFilePaths();
  const kiv::Error error = kiv::systemError(static_cast<int>(std::errc::no_such_file_or_directory),
                                            "find", paths.empty() ? std::string() : paths.front());
  reports_->tell([&](kiv::PassCollector& pass) { pass.noteLost(*resource, error); });
  for (Announcement& announcement : announcements_) {
    if (announcement.resource != resource || announcement.failure) continue;
    announcement.failure = std::make_shared<const std::optional<kiv::Error>>(error);
  }
}

// --- Queries -------------------------------------------------------------------------------------

kiv::ResourceArray KivResourceManager::allLoadedResources() const {
  assertQueue();
  return allLoadedResourcesWithCopy(true);
}

kiv::ResourceArray KivResourceManager::loadedResourcesWithID(
    const std::optional<std::string>& resourceID) const {
  assertQueue();
  return loadedResourcesWithID_copy(resourceID, true);
}

kiv::ResourceArray KivResourceManager::loadedResourcesWithType(
    const std::optional<std::string>& type) const {
  assertQueue();
  return loadedResourcesWithType_copy(type, true);
}

kiv::ResourceArray KivResourceManager::allLoadedResourcesWithCopy(bool copy) const {
  assertQueue();
  if (!copy) return loadedResources_->resources();
  const kiv::CacheInUse cache(place_.get());
  const kiv::FileListing::Use use(fileListing_->refreshed(loadedResources_->size()));
  return copiesOf(*loadedResources_);
}

kiv::ResourceArray KivResourceManager::loadedResourcesWithID_copy(
    const std::optional<std::string>& resourceID, bool copy) const {
  assertQueue();
  // Every resource has an identifier.
  if (!resourceID) return {};
  auto found = loadedResources_->resourcesWithID(*resourceID);
  if (!copy) return found;
  const kiv::CacheInUse cache(place_.get());
  const kiv::FileListing::Use use(fileListing_->ifUnchanged(found.size()));
  return copiesOf(found);
}

kiv::ResourceArray KivResourceManager::loadedResourcesWithType_copy(
    const std::optional<std::string>& type, bool copy) const {
  assertQueue();
  // Every resource has a type.
  if (!type) return {};
  auto found = loadedResources_->resourcesWithType(*type);
  if (!copy) return found;
  const kiv::CacheInUse cache(place_.get());
  const kiv::FileListing::Use use(fileListing_->ifUnchanged(found.size()));
  return copiesOf(found);
}

kiv::ResourceArray KivResourceManager::findResourcesInList_withValue_forPropertyName(
    const kiv::ResourceArray& list, const kiv::Value& value, std::string_view propertyName) {
  kiv::ResourceArray found;
  for (const auto& resource : list) {
    const auto property = resource ? resource->valueForProperty(propertyName) : std::nullopt;
    if (property && *property == value) found.push_back(resource);
  }
  return found;
}

// --- Observers -----------------------------------------------------------------------------------

bool KivResourceManager::addObserver(const std::shared_ptr<KivResourceManagerObserver>& observer,
                                     const std::shared_ptr<kiv::DispatchQueue>& queue) {
  if (!observer) return false;
  if (!queue) {
    kiv::SystemLog::write(
        "KivResourceManager: an observer was not added, since this thread has no queue; name one.");
    return false;
  }
  multicastObserver_->addDelegate_delegateQueue(observer, queue);
  return true;
}

void KivResourceManager::removeObserver(
    const std::shared_ptr<KivResourceManagerObserver>& observer) {
  multicastObserver_->removeDelegate(observer);
}

// --- Steps ---------------------------------------------------------------------------------------

kiv::ManagerStep KivResourceManager::beginStep() {
  return {place_.get(), stepDepth_, [this] { handleArrivals(); }, [this] { endStep(); }};
}

void KivResourceManager::endStep() {
  kiv::insist([this] { saveChanges(); });
  for (auto& announcement : std::exchange(announcements_, {}))
    kiv::insist([&] { send(announcement); });
  revalidations_->endStep();
  if (loadingResourcesFilesCount_ <= 0) origins_->save();
  reports_->endStep(loadingResourcesFilesCount_ > 0, *loadedResources_,
                    savedList_->lastSaveError());
}

void KivResourceManager::saveChanges(const RemovalFailureHandler& onFailure) {
  // The directory entries of the files must be on disk before a list that names them.
  savings_.reset();
  if (!listIsChanged_ && removals_->empty() && !savedList_->doubt()) return;
  kiv::SavedList::Access access(*savedList_, *loadedResources_);
  noteMerge();
  // Before files are removed the list is written even if it is the same: that tells other processes
  // to look for the files of what they are about to list.
  if (listIsChanged_) {
    listIsOutOfDate_ = !(removals_->empty() ? access.saveIfChanged() : access.save());
  }
  listIsChanged_ = false;
  if (!listIsOutOfDate_ && access.isCurrent()) {
    removals_->removeUnused(*loadedResources_, onFailure);
  }
}

void KivResourceManager::send(Announcement& announcement) {
  auto& [recipients, resource, failure] = announcement;
  if (!resource) {
    recipients.send([self = shared_from_this()](KivResourceManagerObserver& observer) {
      observer.resourceManagerDidFinishLoading(self);
    });
  } else if (!failure) {
    recipients.send(
        [self = shared_from_this(), loaded = resource](KivResourceManagerObserver& observer) {
          observer.resourceManager_didLoadResource(self, loaded);
        });
  } else {
    recipients.send([self = shared_from_this(), failed = resource,
                     error = failure](KivResourceManagerObserver& observer) {
      observer.resourceManager_didFailToLoadResource_withError(self, failed, *error);
    });
  }
}

void KivResourceManager::announceLoaded(std::shared_ptr<KivResource> resource) {
  reports_->tell([&](kiv::PassCollector& pass) { pass.noteLoaded(*resource); });
  announce(std::move(resource), nullptr);
}

void KivResourceManager::announceFailed(const std::shared_ptr<KivResource>& resource,
                                        const std::optional<kiv::Error>& error) {
  reports_->tell([&](kiv::PassCollector& pass) { pass.noteFailed(*resource, error); });
  announce(resource, std::make_shared<const std::optional<kiv::Error>>(error));
}

void KivResourceManager::announceFinish() {
  announce(nullptr, nullptr);
}

void KivResourceManager::announce(std::shared_ptr<KivResource> resource,
                                  std::shared_ptr<const std::optional<kiv::Error>> failure) {
  announcements_.push_back({recipients_ ? *recipients_ : multicastObserver_->recipients(),
                            std::move(resource), std::move(failure)});
}

// --- Properties ----------------------------------------------------------------------------------

const std::shared_ptr<KivResourceManager::MulticastObserver>&
KivResourceManager::multicastObserver() const noexcept {
  assertQueue();
  return multicastObserver_;
}

void KivResourceManager::setMulticastObserver(
    std::shared_ptr<MulticastObserver> multicastObserver) {
  assertQueue();
  multicastObserver_ =
      multicastObserver ? std::move(multicastObserver) : std::make_shared<MulticastObserver>();
}

const std::shared_ptr<kiv::ResourceList>& KivResourceManager::loadedResources() const noexcept {
  assertQueue();
  return loadedResources_;
}

void KivResourceManager::setLoadedResources(std::shared_ptr<kiv::ResourceList> loadedResources) {
  assertQueue();
  if (loadedResources_) loadedResources_->setQueueAssertion(nullptr);
  loadedResources_ =
      loadedResources ? std::move(loadedResources) : std::make_shared<kiv::ResourceList>();
  loadedResources_->setQueueAssertion(queueAssertion_);
}

const std::optional<kiv::ResourceArray>& KivResourceManager::resourcesForRemove() const noexcept {
  assertQueue();
  return resourcesForRemove_;
}

void KivResourceManager::setResourcesForRemove(
    std::optional<kiv::ResourceArray> resourcesForRemove) {
  assertQueue();
  resourcesForRemove_ = std::move(resourcesForRemove);
}

std::int64_t KivResourceManager::loadingResourcesFilesCount() const noexcept {
  assertQueue();
  return loadingResourcesFilesCount_;
}

void KivResourceManager::setLoadingResourcesFilesCount(std::int64_t count) noexcept {
  assertQueue();
  loadingResourcesFilesCount_ = count;
}

const std::shared_ptr<KivResourceRESTModule>& KivResourceManager::loader() const noexcept {
  assertQueue();
  return loader_;
}

void KivResourceManager::setLoader(std::shared_ptr<KivResourceRESTModule> loader) {
  assertQueue();
  loader_ = std::move(loader);
  const kiv::CacheInUse use(place_.get());
  const bool hasDefaultServers =
      loader_ && loader_->appConfiguration() == KivAppConfiguration::sharedInstance();
  if (place_ && hasDefaultServers) loader_->setAppConfiguration(place_->servers);
  const auto client = loader_ ? loader_->restService() : nullptr;
  if (!client || !client->settings().spoolDirectory.empty()) return;
  // On the file system of the resources, so that a large file is stored by a rename.
  client->setSpoolDirectory(KivResourceStorageModule::spoolDirectoryPath());
}

const std::shared_ptr<const kiv::CachePlace>& KivResourceManager::place() const noexcept {
  return place_;
}
