// The manager's file pipeline: from a resource's missing links to its place in the registry, and
// the removal of what it replaces.

#include <algorithm>
#include <set>
#include <utility>

#include "KivPlatform/Foundation/Contain.h"
#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/Foundation/system/SystemLog.h"
#include "KivPlatform/KivRESTService/KivRESTServiceErrors.h"
#include "KivResource/KivResourceManager.h"
#include "KivResource/KivResourceManagerStep.h"
#include "KivResource/KivResourceStorageModule.h"
#include "KivResource/files/KivResourceCachePlace.h"
#include "KivResource/files/KivResourceFileListing.h"
#include "KivResource/list/KivResourcePendingRemovals.h"
#include "KivResource/list/KivResourceSavedList.h"
#include "KivResource/passes/KivResourcePassReports.h"
#include "KivResource/revalidation/KivResourceFileOrigins.h"

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
      reports_->tell([&](kiv::PassCollector& pass) { pass.noteLocalFile(*resource, fileLink); });
      kiv::contain([&] { origins_->noteFound(fileLink, *path); });
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

// --- Downloads -----------------------------------------------------------------------------------

/// A download, and how it ended.
///
/// Downloads that end in one job of the queue wait for the end of that job, so that they share one
/// wait for the disk, one saved list, and the callbacks after it. They are handled in the order in
/// which they ended, before any other operation that changes the manager and before any other job.
/// So the result is the same as if each was handled at once.
struct KivResourceManager::Arrival {
  std::string fileLink;
  std::shared_ptr<KivResource> resource;
  std::optional<kiv::Data> data = {};
  std::optional<kiv::Error> error = {};
  bool isComplete = false;                        ///< False if memory ran out for the above.
  MulticastObserver::Recipients recipients = {};  ///< Of its callbacks, if it waits.
  /// The data in a temporary file, or why it could not be written. Neither: it is not written yet.
  std::optional<KivStorageService::StagedFile> staged = {};
  std::optional<kiv::Error> stagingError = {};
  kiv::PassFile file = {};  ///< Its place in the report of the pass.
  std::optional<KivRESTServiceValidators> validators = {};  ///< Of the response.
};

/// The count is incremented first, since the completion may be called before the loader returns.
void KivResourceManager::downloadFile(const std::string& fileLink,
                                      const std::shared_ptr<KivResource>& resource) {
  auto arrival = std::make_shared<Arrival>(Arrival{fileLink, resource});
  reports_->tell(
      [&](kiv::PassCollector& pass) { arrival->file = pass.noteDownload(*resource, fileLink); });
  ++loadingResourcesFilesCount_;
  if (!loader_) {
    completeDownload(arrival, std::nullopt, KivResourceRESTModule::createRequestError());
    return;
  }
  auto noteTask = [arrival](const KivRESTServiceTask& task) {
    arrival->file.noteTask(task);
    kiv::contain([&] { arrival->validators = task.returnedValidators(); });
  };
  const auto loader = loader_;
  loader->loadDataForResource_usingFileLink_taskHandler_completionHandler(
      resource, fileLink, std::move(noteTask),
      [self = shared_from_this(), arrival = std::move(arrival)](
          const std::optional<kiv::Data>& data, const std::optional<kiv::Error>& error) {
        self->completeDownload(arrival, data, error);
      });
}

/// The last download does not wait for the end of the job: when the manager is not busy, everything
/// is done. Nor does one that ends within a step, whose caller looks at the count next.
void KivResourceManager::completeDownload(const std::shared_ptr<Arrival>& arrival,
                                          const std::optional<kiv::Data>& data,
                                          const std::optional<kiv::Error>& error) {
  const kiv::CacheInUse use(place_.get());
  arrival->isComplete = kiv::contain([&] {
    arrival->data = data;
    arrival->error = error;
  });
  const bool isLast = std::ssize(arrivals_) + 1 >= loadingResourcesFilesCount_;
  if (stepDepth_ == 0 && !isLast && stage(arrival)) return handleArrivalsAtEndOfJob();
  const auto step = beginStep();
  handle(*arrival);
}

/// Writes the data and adds the arrival to those that wait; false if memory has run out.
bool KivResourceManager::stage(const std::shared_ptr<Arrival>& arrival) {
  return arrival->isComplete && kiv::contain([&] {
           arrival->recipients = multicastObserver_->recipients();
           if (!savings_) savings_.emplace();
           if (arrival->data && !arrival->error) {
             arrival->staged =
                 KivResourceStorageModule::stageData_withResourceFileName_inBatch_error(
                     *arrival->data, kiv::path::lastPathComponent(arrival->fileLink), *savings_,
                     &arrival->stagingError);
           }
           arrivals_.push_back(arrival);
         });
}

void KivResourceManager::handleArrivalsAtEndOfJob() {
  if (std::exchange(handlingIsScheduled_, true)) return;
  const bool isScheduled = kiv::contain([this] {
    kiv::DispatchQueue::atEndOfJob([self = shared_from_this()] {
      self->handlingIsScheduled_ = false;
      const auto step = self->beginStep();
    });
  });
  if (isScheduled) return;
  handlingIsScheduled_ = false;
  const auto step = beginStep();
}

void KivResourceManager::handleArrivals() {
  for (const auto& arrival : std::exchange(arrivals_, {})) {
    recipients_ = &arrival->recipients;
    handle(*arrival);
  }
  recipients_ = nullptr;
}

void KivResourceManager::handle(Arrival& arrival) {
  const bool isTaken = arrival.isComplete && kiv::contain([&] {
                         const std::string_view fileName =
                             kiv::path::lastPathComponent(arrival.fileLink);
                         if (arrival.error || !arrival.data) {
                           logFailedFile(fileName, *arrival.resource, arrival.error);
                           arrival.file.noteEnd(KivResourcePassFileOutcome::failed, arrival.error);
                           announceFailed(arrival.resource, arrival.error);
                         } else {
                           logLoadedFile(fileName, *arrival.resource);
                           store(arrival);
                         }
                       });
  if (!isTaken) {
    kiv::insist([&] {
      const kiv::Error error = outOfMemory(arrival.fileLink);
      arrival.file.noteEnd(KivResourcePassFileOutcome::failed, error);
      announceFailed(arrival.resource, error);
    });
  }
  arrival.data.reset();
  --loadingResourcesFilesCount_;
  if (loadingResourcesFilesCount_ <= 0) kiv::insist([this] { finishLoading(); });
}

void KivResourceManager::saveLoadedData_forFileWithLink_andUpdateResource(
    const kiv::Data& data, const std::string& fileLink,
    const std::shared_ptr<KivResource>& resource) {
  assertQueue();
  if (!resource) return;
  const auto step = beginStep();
  Arrival arrival{fileLink, resource, data};
  store(arrival);
}

/// Completes a save that is staged, or saves in one step. Returns the error, if there is one.
std::optional<kiv::Error> KivResourceManager::save(Arrival& arrival, std::string_view fileName) {
  auto error = std::exchange(arrival.stagingError, std::nullopt);
  if (error) return error;
  if (auto staged = std::exchange(arrival.staged, std::nullopt)) {
    staged->commit(&error);
  } else {
    KivResourceStorageModule::saveData_withResourceFileName_error(*arrival.data, fileName, &error);
  }
  return error;
}

void KivResourceManager::store(Arrival& arrival) {
  const std::string_view fileName = kiv::path::lastPathComponent(arrival.fileLink);
  const auto item = KivResourceStorageModule::pathOfItemSavedWithName(fileName);
  settleBefore((item && removals_->affectSaving(*item)) || removals_->affect(*arrival.resource));
  if (!savings_) savings_.emplace();
  if (const auto error = save(arrival, fileName)) {
    arrival.file.noteEnd(KivResourcePassFileOutcome::failed, error);
    announceFailed(arrival.resource, error);
    return;
  }
  kiv::contain([&] { origins_->noteStored(arrival.fileLink, arrival.validators, *arrival.data); });
  const auto path = KivResourceStorageModule::pathToResourceFileWithName(fileName);
  arrival.file.noteEnd(path ? KivResourcePassFileOutcome::downloaded
                            : KivResourcePassFileOutcome::notFound);
  if (!path) return;
  if (path != item) return setLoadedFile_forResource(*path, arrival.resource);
  // The resource need not ask for the file that was stored just now. Nothing is settled from here
  // on, since that may wait for another process, which may remove the file.
  const kiv::FileListing known(*path);
  const kiv::FileListing::Use use(known);
  takeLoadedFile(*path, arrival.resource);
}

void KivResourceManager::setLoadedFile_forResource(const std::string& path,
                                                   const std::shared_ptr<KivResource>& resource) {
  assertQueue();
  if (!resource) return;
  const auto step = beginStep();
  settleBefore(removals_->affect(path) || removals_->affect(*resource));
  takeLoadedFile(path, resource);
}

void KivResourceManager::takeLoadedFile(const std::string& path,
                                        const std::shared_ptr<KivResource>& resource) {
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
  reports_->tell([&](kiv::PassCollector& pass) { pass.noteReplaced(*resource, older); });
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

std::optional<kiv::Error> KivResourceManager::removeResources_withFiles_onFailure(
    const kiv::ResourceArray& resources, const std::vector<std::string>& paths,
    const RemovalFailureHandler& onFailure) {
  assertQueue();
  const auto step = beginStep();
  const kiv::ResourceArray former = loadedResources_->resources();
  const std::set<std::string_view> wanted(paths.begin(), paths.end());
  loadedResources_->removeAll(resources);
  for (const auto& resource : resources) {
    savedList_->forget(*resource);
    for (std::string& path : resource->useFilePaths()) {
      if (wanted.contains(path)) removals_->add(std::move(path), resource);
    }
  }
  listIsChanged_ = true;
  saveChanges(onFailure);
  if (!listIsOutOfDate_) return std::nullopt;
  putBack(resources, former);
  return savedList_->lastSaveError();
}

/// What a merge has added meanwhile stays, behind the others.
void KivResourceManager::putBack(const kiv::ResourceArray& resources,
                                 const kiv::ResourceArray& former) {
  for (const auto& resource : resources)
    removals_->keepFilesOf(*resource);
  const kiv::ResourceArray now = loadedResources_->resources();
  std::set<std::shared_ptr<KivResource>> stays(now.begin(), now.end());
  stays.insert(resources.begin(), resources.end());
  loadedResources_->removeAll(now);
  for (const auto& resource : former) {
    if (stays.contains(resource)) loadedResources_->append(resource);
  }
  const std::set<std::shared_ptr<KivResource>> known(former.begin(), former.end());
  for (const auto& resource : now) {
    if (!known.contains(resource)) loadedResources_->append(resource);
  }
}

void KivResourceManager::removeResource(const std::shared_ptr<KivResource>& resource) {
  assertQueue();
  loadedResources_->remove(resource);
}
