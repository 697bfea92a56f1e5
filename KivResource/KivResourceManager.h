#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/Foundation/queues/DispatchQueue.h"
#include "KivPlatform/Foundation/system/InstalledResources.h"  // IWYU pragma: keep
#include "KivPlatform/Foundation/values/Data.h"
#include "KivPlatform/Foundation/values/Value.h"
#include "KivPlatform/GCDMulticastDelegate/GCDMulticastDelegate.h"
#include "KivPlatform/KivStorageService/KivStorageService.h"
#include "KivResource/KivResourceManagerObserver.h"
#include "KivResource/KivResourceObject.h"
#include "KivResource/KivResourceRESTModule.h"
#include "KivResource/list/KivResourceList.h"
#include "KivResource/passes/KivResourcePass.h"
#include "KivResource/passes/KivResourcePassReport.h"
#include "KivResource/revalidation/KivResourceRevalidationReport.h"

namespace kiv {
struct CachePlace;
class FileListing;
class FileOrigins;
class ManagerStep;
class PassCollector;
class PassReports;
class PendingRemovals;
class QueueAssertion;
class Revalidations;
class SavedList;
}  // namespace kiv

/// The one object through which a host uses the framework: the registry of loaded resources, the
/// passes that bring it up to date with a configuration, the queries and the observers.
///
/// A process has one manager, created by the first sharedInstance() and never destroyed. Only this
/// creation is thread-safe: all other calls must be made on the manager's queue, a thread or serial
/// queue, unless the operation says otherwise. It is the queue on which the manager was created,
/// normally the main queue, which is also used if there was none; downloads are completed there. In
/// builds without NDEBUG a call on another queue ends the program with a message. Observers are
/// called asynchronously, each on its own queue.
///
/// Nothing is thrown. Only queries return something; other results are reported to the observers. A
/// failed resource does not affect the registry, the saved list and the stored files of others.
///
/// Null arguments are no errors: an operation on a null resource does nothing, null elements of a
/// list are ignored, and a property that is set to nullptr gets an empty registry, or a multicaster
/// without observers. Without a loader, or if the loader has no client, every download fails at
/// once with error 101.
class KIV_EXPORT KivResourceManager final
    : public std::enable_shared_from_this<KivResourceManager> {
 public:
  using MulticastObserver = GCDMulticastDelegate<KivResourceManagerObserver>;

  /// The manager of the process. The first call creates it and restores the registry from the saved
  /// list, so the storage root must be set before. May be called from any thread.
  static std::shared_ptr<KivResourceManager> sharedInstance();

  /// Creates another manager in the same way, for tests, and for tools that need several starts in
  /// one process. Managers on one storage root share the saved list as processes do: each learns of
  /// the others' resources with its next save.
  static std::shared_ptr<KivResourceManager> newInstance();
  /// The same for a cache of its own, for KivResourceCache, which hosts use.
  static std::shared_ptr<KivResourceManager> newInstanceInPlace(
      std::shared_ptr<const kiv::CachePlace> place, std::shared_ptr<KivResourceRESTModule> loader);

  KivResourceManager(const KivResourceManager&) = delete;
  KivResourceManager& operator=(const KivResourceManager&) = delete;
  ~KivResourceManager();

  // --- Passes: for the host ---

  /// Loads the resources of the configuration that the registry does not have, or has in an older
  /// version. A configuration is a dictionary whose "items" is an array of resource dictionaries;
  /// anything else counts as one without items.
  ///
  /// If downloads of an earlier pass are in flight, the pass is refused: every resource of the
  /// configuration is reported failed with error 100, then the finish callback is sent, and the
  /// earlier pass continues. Otherwise observers are told of each loaded or failed resource, and of
  /// the finish.
  void loadResourcesForConfig(const kiv::Value& config);
  /// The same for the resources with that identifier only; std::nullopt means all. An empty string
  /// selects empty identifiers.
  void loadResourceWithID_forConfig(const std::optional<std::string>& resourceID,
                                    const kiv::Value& config);
  /// The same for the resources of that type only; std::nullopt means all.
  void loadResourcesWithType_forConfig(const std::optional<std::string>& type,
                                       const kiv::Value& config);
  /// As loadResourcesForConfig(). At the end of the pass, loaded resources that the configuration
  /// does not name are removed from the registry; their files stay on disk. A configuration without
  /// a valid item removes nothing.
  void updateResourcesForConfig(const kiv::Value& config);
  /// Starts a pass as the operation above that does the same, with the same callbacks. The handler
  /// is called exactly once, as a job of the manager's queue, after the callbacks of the pass have
  /// been sent to their queues, with a report of how it went. Returns the number of the pass, by
  /// which its report is known; numbers count from 1 in each manager.
  ///
  /// Every pass is reported, also a refused one, and one that ends within this call. A pass whose
  /// downloads have not ended is reported as stopped by stopLoading(), and as abandoned when the
  /// manager is destroyed, or when the host has reset their count and starts another pass. The
  /// handler may start the next pass. It is released after the call. If no job can be added, since
  /// memory has run out or the manager's queue has been released, the handler is called within the
  /// operation that ended the pass, and what it throws is dropped.
  ///
  /// Throws std::bad_alloc if memory runs out at the start. Then the handler is never called.
  std::uint64_t startPass(const KivResourcePass& pass, KivResourcePassReportHandler handler);
  /// Asks the servers whether the stored files of the loaded resources have changed under their
  /// names, and replaces those that have, each in one step. No pass does this: a pass asks for
  /// files that are missing, and for nothing else. `what` selects the resources.
  ///
  /// A file is asked about once, however many resources use it, with the validators that came with
  /// it (RFC 9110, 13). Without validators the whole file is asked for and compared. Files that are
  /// packaged or lie elsewhere on the disk are not asked about, nor those of which the link is not
  /// known, as of files that an earlier version of the framework has stored. Servers, retries,
  /// priority, pause and speed are those of the passes.
  ///
  /// The handler is called exactly once, as a job of the manager's queue, with a report of what
  /// became of each file. Observers hear nothing, since neither resources nor paths change: a host
  /// that shows a file reads it again. A lease keeps the former contents. If a request fails, or
  /// the new contents cannot be stored, the file stays as it was.
  ///
  /// Passes may run at the same time, and take no notice; only one revalidation runs, and another
  /// one is refused. stopLoading() stops it too. The handler may start another one, or a pass. It
  /// is released after the call. If no job can be added, since memory has run out or the manager's
  /// queue has been released, it is called within the operation that ended the revalidation.
  ///
  /// Throws std::bad_alloc if memory runs out at the start. Then the handler is never called.
  void revalidate(KivResourceRevalidationHandler handler, const KivResourceRevalidation& what = {});
  /// Cancels all downloads, and a revalidation, and sends the finish callback. Complete resources
  /// stay, and nothing is removed from the registry.
  void stopLoading();

  // --- Queries and observers: for the host ---

  /// Copies of the loaded resources, in the order in which they were loaded. The host may keep and
  /// change them; this does not affect the registry. A resource of a host's class that cannot be
  /// copied (KivResource::isCopyable) is returned itself.
  [[nodiscard]] kiv::ResourceArray allLoadedResources() const;
  [[nodiscard]] kiv::ResourceArray loadedResourcesWithID(
      const std::optional<std::string>& resourceID) const;
  [[nodiscard]] kiv::ResourceArray loadedResourcesWithType(
      const std::optional<std::string>& type) const;

  /// Registers the observer, which is held weakly, with the queue on which it is called. Returns
  /// false, and writes a line to the log, if the queue is nullptr, as the current queue is on a
  /// thread without one; and false for an observer that is nullptr. May be called from any thread.
  bool addObserver(
      const std::shared_ptr<KivResourceManagerObserver>& observer,
      const std::shared_ptr<kiv::DispatchQueue>& queue = kiv::DispatchQueue::current());
  /// Removes the observer with all of its queues. May be called from any thread.
  void removeObserver(const std::shared_ptr<KivResourceManagerObserver>& observer);

  /// The error of the last save of the list; nothing after a success, and before the first save.
  /// Observers are not told: the resources are loaded all the same, and the next change of the
  /// registry or the next pass saves again. If the host exits before that, its next start restores
  /// the list that was saved last. A resource whose dictionary has no JSON form, for example
  /// because the host stored an infinite number in it, prevents saving of the whole list; it is
  /// named in the log.
  [[nodiscard]] std::optional<kiv::Error> lastSaveError() const;
  /// Why the saved list could not be read at the start; nothing once it has been read or replaced.
  /// Before such a list is replaced, it is read again, and its resources enter the registry. If
  /// that fails, it is renamed and kept in its directory.
  [[nodiscard]] std::optional<kiv::Error> savedListError() const;

  // --- The manager's own steps ---

  /// Appends to the registry the resources of the saved list whose files all exist.
  void loadSavedResources();
  /// Writes the dictionaries of the registry as the saved list. Failures are reported by
  /// lastSaveError(); the next change of the registry, or the next pass, writes the list again.
  void saveLoadedResorcesList() const;

  [[nodiscard]] kiv::ResourceArray allLoadedResourcesWithCopy(bool copy) const;
  [[nodiscard]] kiv::ResourceArray loadedResourcesWithID_copy(
      const std::optional<std::string>& resourceID, bool copy) const;
  [[nodiscard]] kiv::ResourceArray loadedResourcesWithType_copy(
      const std::optional<std::string>& type, bool copy) const;
  /// The resources of the list whose property of that name equals the value, in the order of the
  /// list. A null value selects resources whose property is null; an unknown property selects
  /// nothing.
  [[nodiscard]] static kiv::ResourceArray findResourcesInList_withValue_forPropertyName(
      const kiv::ResourceArray& list, const kiv::Value& value, std::string_view propertyName);

  void loadResourcesFromConfig_withID_orType_replace(const kiv::Value& config,
                                                     const std::optional<std::string>& resourceID,
                                                     const std::optional<std::string>& type,
                                                     bool replace);
  /// Merges the new resources with the registry by identifier and version stamp.
  void updateResourcesFromList_deleteRest(const kiv::ResourceArray& newResources, bool deleteRest);
  /// Applies the pending removals and tells the observers that loading finished.
  void finishLoading();

  /// Starts the file pipeline of one resource: files found locally are attached at once, the
  /// others are downloaded.
  void loadFilesForResource(const std::shared_ptr<KivResource>& resource);
  void saveLoadedData_forFileWithLink_andUpdateResource(
      const kiv::Data& data, const std::string& fileLink,
      const std::shared_ptr<KivResource>& resource);
  /// Attaches a local file to the resource. A resource with all its files enters the registry.
  void setLoadedFile_forResource(const std::string& path,
                                 const std::shared_ptr<KivResource>& resource);
  /// Removes the other resources with the same identifier from the registry, and their files.
  /// Within a step the files are removed at its end, when a list without them is saved.
  void removeOldResourcesForResource(const std::shared_ptr<KivResource>& resource);
  /// Deletes the files of the resource that no other loaded resource uses.
  void removeFilesForResource(const std::shared_ptr<KivResource>& resource);
  /// Removes every occurrence of the object from the registry, and nothing else.
  void removeResource(const std::shared_ptr<KivResource>& resource);
  /// Called with the path of a file that could not be removed. Must not throw.
  using RemovalFailureHandler =
      std::function<void(const std::string& path, const kiv::Error& error)>;
  /// Removes the resources from the registry, saves the list, and then removes those of their files
  /// that `paths` names and no other loaded resource uses. Observers are told nothing. The handler
  /// is called within, for each of the files that stays because of an error.
  ///
  /// Returns an error if the list cannot be saved. Then no file is removed, and the resources are
  /// in the registry as before. To be called while no downloads are in flight.
  std::optional<kiv::Error> removeResources_withFiles_onFailure(
      const kiv::ResourceArray& resources, const std::vector<std::string>& paths,
      const RemovalFailureHandler& onFailure);

  // --- Properties ---

  [[nodiscard]] const std::shared_ptr<MulticastObserver>& multicastObserver() const noexcept;
  void setMulticastObserver(std::shared_ptr<MulticastObserver> multicastObserver);
  /// The registry itself; never nullptr.
  [[nodiscard]] const std::shared_ptr<kiv::ResourceList>& loadedResources() const noexcept;
  void setLoadedResources(std::shared_ptr<kiv::ResourceList> loadedResources);
  /// What the running update pass will remove at its end; nothing outside such a pass.
  [[nodiscard]] const std::optional<kiv::ResourceArray>& resourcesForRemove() const noexcept;
  void setResourcesForRemove(std::optional<kiv::ResourceArray> resourcesForRemove);
  /// The number of downloads in flight. If it is not 0, the manager is busy.
  [[nodiscard]] std::int64_t loadingResourcesFilesCount() const noexcept;
  void setLoadingResourcesFilesCount(std::int64_t count) noexcept;
  [[nodiscard]] const std::shared_ptr<KivResourceRESTModule>& loader() const noexcept;
  /// If the loader's client has no spool directory, it gets one under the storage root. In a cache
  /// of its own (KivResourceCache), a loader for the servers of the process gets those of the
  /// cache.
  void setLoader(std::shared_ptr<KivResourceRESTModule> loader);
  /// The cache of its own to which the manager belongs; nullptr for that of the process. May be
  /// called from any thread.
  [[nodiscard]] const std::shared_ptr<const kiv::CachePlace>& place() const noexcept;

 private:
  explicit KivResourceManager(std::shared_ptr<const kiv::CachePlace> place);
  void create(std::shared_ptr<KivResourceRESTModule> loader);
  std::unique_ptr<kiv::Revalidations> makeRevalidations();
  void assertQueue(const char* call = __builtin_FUNCTION()) const;

  /// `collector` makes the report, or is nullptr.
  void runPass(const KivResourcePass& pass, const std::shared_ptr<kiv::PassCollector>& collector);
  void refusePass(const kiv::ResourceArray& resources,
                  const std::shared_ptr<kiv::PassCollector>& collector);
  /// Compares a new resource with its loaded counterpart, if there is one.
  void mergeResource(const std::shared_ptr<KivResource>& resource,
                     std::shared_ptr<KivResource> counterpart);
  void downloadFile(const std::string& fileLink, const std::shared_ptr<KivResource>& resource);
  struct Arrival;
  void completeDownload(const std::shared_ptr<Arrival>& arrival,
                        const std::optional<kiv::Data>& data,
                        const std::optional<kiv::Error>& error);
  bool stage(const std::shared_ptr<Arrival>& arrival);
  void handleArrivalsAtEndOfJob();
  void handleArrivals();
  void handle(Arrival& arrival);
  static std::optional<kiv::Error> save(Arrival& arrival, std::string_view fileName);
  void store(Arrival& arrival);
  /// setLoadedFile:forResource:, when nothing is left to settle.
  void takeLoadedFile(const std::string& path, const std::shared_ptr<KivResource>& resource);
  /// Begins a step (see ManagerStep). The outermost one begins with the waiting arrivals.
  kiv::ManagerStep beginStep();
  void endStep();
  /// Saves the list, and only after success removes the files that no longer belong to it. So all
  /// resources of the list on disk have their files at any time.
  void saveChanges(const RemovalFailureHandler& onFailure = {});
  /// Undoes the removal of resources from the registry, whose contents were `former`.
  void putBack(const kiv::ResourceArray& resources, const kiv::ResourceArray& former);
  /// Adapts the pending removals and announcements to what a merge has done to the registry.
  void noteMerge();
  void failAnnouncements(const std::shared_ptr<KivResource>& resource);
  /// Marks the files of the resource for removal that no other loaded resource uses.
  void markFiles(const std::shared_ptr<KivResource>& resource);
  /// Saves and removes now if a pending removal could change the answer to a question that follows.
  /// If the list cannot be saved, the files stay.
  void settleBefore(bool isAffected);
  /// The local path of the file of that name, if it is there.
  std::optional<std::string> pathToFile(std::string_view fileName);

  void announceLoaded(std::shared_ptr<KivResource> resource);
  void announceFailed(const std::shared_ptr<KivResource>& resource,
                      const std::optional<kiv::Error>& error);
  void announceFinish();

  const std::shared_ptr<const kiv::QueueAssertion> queueAssertion_;
  const std::shared_ptr<const kiv::CachePlace> place_;
  std::shared_ptr<MulticastObserver> multicastObserver_;
  std::shared_ptr<kiv::ResourceList> loadedResources_;
  std::unique_ptr<kiv::SavedList> savedList_;
  const std::unique_ptr<kiv::FileListing> fileListing_;
  std::optional<kiv::ResourceArray> resourcesForRemove_;
  std::int64_t loadingResourcesFilesCount_ = 0;
  std::shared_ptr<KivResourceRESTModule> loader_;

  int stepDepth_ = 0;
  bool listIsChanged_ = false;    ///< Since it was last written, or that was tried.
  bool listIsOutOfDate_ = false;  ///< On the disk, because it could not be written.
  std::unique_ptr<kiv::PendingRemovals> removals_;
  const std::unique_ptr<kiv::PassReports> reports_;
  const std::unique_ptr<kiv::FileOrigins> origins_;
  std::unique_ptr<kiv::Revalidations> revalidations_;
  std::vector<std::shared_ptr<Arrival>> arrivals_;  ///< Those that wait.
  bool handlingIsScheduled_ = false;
  const MulticastObserver::Recipients* recipients_ = nullptr;  ///< Of the arrival being handled.
  std::optional<KivStorageService::Batch> savings_;  ///< Of files stored since the last end.
  /// One callback, for the observers that were registered at the time of the event. Without a
  /// resource it is the finish.
  struct Announcement {
    MulticastObserver::Recipients recipients;
    std::shared_ptr<KivResource> resource;
    /// Of a resource that failed, an error or nothing.
    std::shared_ptr<const std::optional<kiv::Error>> failure;
  };
  void announce(std::shared_ptr<KivResource> resource,
                std::shared_ptr<const std::optional<kiv::Error>> failure);
  /// Hands over what the announcement holds.
  void send(Announcement& announcement);
  std::vector<Announcement> announcements_;
};
