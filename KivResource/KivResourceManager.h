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
#include "KivResource/KivResourceList.h"
#include "KivResource/KivResourceManagerObserver.h"
#include "KivResource/KivResourceObject.h"
#include "KivResource/KivResourceRESTModule.h"

namespace kiv {
class ManagerStep;
class PendingRemovals;
class QueueAssertion;
class SavedList;
}  // namespace kiv

/// The one object through which a host uses the framework: the registry of loaded resources, the
/// passes that bring it up to date with a configuration, the queries and the observers.
///
/// A process has one manager, made by the first sharedInstance() and never destroyed. Apart from
/// that creation nothing is locked: every call must be made on one thread or serial queue, the
/// manager's queue, unless the operation says otherwise. The manager must be created there too,
/// since downloads come back on the queue on which it was created: normally the main queue, which
/// also counts where there was none. Builds without NDEBUG end the program with a message when a
/// call is made elsewhere. Observers are called asynchronously, each on its own queue.
///
/// Nothing is thrown, and only queries return something: every other outcome is reported to the
/// observers. A failure leaves the registry, the saved list and the stored files as they were,
/// apart from what else completed.
///
/// No argument is an error: an operation on no resource does nothing, null elements of a list are
/// ignored, and a property that is set to nullptr gets an empty object: an empty registry, or a
/// multicaster without observers. Without a loader, or with one that has no client, every download
/// fails at once with error 101.
class KIV_EXPORT KivResourceManager final
    : public std::enable_shared_from_this<KivResourceManager> {
 public:
  using MulticastObserver = GCDMulticastDelegate<KivResourceManagerObserver>;

  /// The manager of the process. The first call creates it and restores the registry from the
  /// saved list, so the storage root must be named before. May be called from any thread.
  static std::shared_ptr<KivResourceManager> sharedInstance();

  /// A manager of its own, made in the same way: for tests, and for tools that go through several
  /// starts in one process. Several on one storage root share the saved list as processes do; each
  /// knows of the others' resources from its own next save on.
  static std::shared_ptr<KivResourceManager> newInstance();

  KivResourceManager(const KivResourceManager&) = delete;
  KivResourceManager& operator=(const KivResourceManager&) = delete;
  ~KivResourceManager();

  // --- Passes: for the host ---

  /// Loads what the configuration names and the registry lacks or holds in an older version. A
  /// configuration is a dictionary whose "items" is an array of resource dictionaries; anything
  /// else is one without items.
  ///
  /// While downloads of an earlier pass are in flight the pass is refused: every resource of the
  /// configuration is reported failed with error 100, then comes a finish, and the earlier pass
  /// goes on. Otherwise observers hear of each resource that is loaded or failed, and of the
  /// finish.
  void loadResourcesForConfig(const kiv::Value& config);
  /// The same for the resources of that identifier alone; without an identifier for all. An empty
  /// one selects empty identifiers.
  void loadResourceWithID_forConfig(const std::optional<std::string>& resourceID,
                                    const kiv::Value& config);
  /// The same for the resources of that type alone; without a type for all.
  void loadResourcesWithType_forConfig(const std::optional<std::string>& type,
                                       const kiv::Value& config);
  /// Loads like loadResourcesForConfig, and when the pass ends takes the loaded resources that the
  /// configuration does not name out of the registry. Their files stay on disk. A configuration
  /// without a usable item removes nothing.
  void updateResourcesForConfig(const kiv::Value& config);
  /// Cancels every download and sends the finish. Nothing that the running pass was going to remove
  /// is removed; what was complete stays.
  void stopLoading();

  // --- Queries and observers: for the host ---

  /// Copies of the loaded resources, in the order in which they were loaded. The host may keep and
  /// change them; the registry is not reached. A resource of a host's own class that cannot be
  /// copied (KivResource::isCopyable) is handed out itself.
  [[nodiscard]] kiv::ResourceArray allLoadedResources() const;
  [[nodiscard]] kiv::ResourceArray loadedResourcesWithID(
      const std::optional<std::string>& resourceID) const;
  [[nodiscard]] kiv::ResourceArray loadedResourcesWithType(
      const std::optional<std::string>& type) const;

  /// Registers the observer, which is held weakly, with the queue on which it is to be called: the
  /// caller's current one, or the one given. Without a queue, on a thread that serves none,
  /// nothing is registered. May be called from any thread.
  void addObserver(
      const std::shared_ptr<KivResourceManagerObserver>& observer,
      const std::shared_ptr<kiv::DispatchQueue>& queue = kiv::DispatchQueue::current());
  /// Drops the observer, whatever its queues. May be called from any thread.
  void removeObserver(const std::shared_ptr<KivResourceManagerObserver>& observer);

  /// Why the list could not be saved the last time; nothing after a success, and before the first
  /// save. Observers are not told: resources are loaded although the list is not saved, and the
  /// next change of the registry and the next pass try again. A host that ends before that finds at
  /// its next start what was saved last. A resource whose dictionary has no JSON form, such as one
  /// in which the host has put a number that is not finite, keeps the whole list from being saved;
  /// the log names it.
  [[nodiscard]] std::optional<kiv::Error> lastSaveError() const;
  /// Why the saved list could not be read at the start; nothing once it has been read after all or
  /// replaced. Before such a list is replaced it is read again, which brings its resources into the
  /// registry; if that fails, it is set aside under another name in its directory.
  [[nodiscard]] std::optional<kiv::Error> savedListError() const;

  // --- The manager's own steps ---

  /// Appends to the registry what the saved list holds and whose files are all there.
  void loadSavedResources();
  /// Writes the dictionaries of the registry as the saved list. A failure is only kept for
  /// lastSaveError(): the next change of the registry, or the next pass, writes the whole list
  /// again.
  void saveLoadedResorcesList() const;

  [[nodiscard]] kiv::ResourceArray allLoadedResourcesWithCopy(bool copy) const;
  [[nodiscard]] kiv::ResourceArray loadedResourcesWithID_copy(
      const std::optional<std::string>& resourceID, bool copy) const;
  [[nodiscard]] kiv::ResourceArray loadedResourcesWithType_copy(
      const std::optional<std::string>& type, bool copy) const;
  /// The resources of the list whose property of that name equals the value, in their order. A
  /// null value selects those whose property is none; an unknown property selects nothing.
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
  /// Hands one local file to the resource, and takes the resource in when it has all its files.
  void setLoadedFile_forResource(const std::string& path,
                                 const std::shared_ptr<KivResource>& resource);
  /// Takes the other resources with the same identifier out of the registry, with their files.
  /// Within a step the files are removed at its end, after the list that named them.
  void removeOldResourcesForResource(const std::shared_ptr<KivResource>& resource);
  /// Deletes those files of the resource that no other loaded resource uses.
  void removeFilesForResource(const std::shared_ptr<KivResource>& resource);
  /// Takes every occurrence of that object out of the registry, and does nothing else.
  void removeResource(const std::shared_ptr<KivResource>& resource);

  // --- Properties ---

  [[nodiscard]] const std::shared_ptr<MulticastObserver>& multicastObserver() const noexcept;
  void setMulticastObserver(std::shared_ptr<MulticastObserver> multicastObserver);
  /// The registry itself; never nullptr.
  [[nodiscard]] const std::shared_ptr<kiv::ResourceList>& loadedResources() const noexcept;
  void setLoadedResources(std::shared_ptr<kiv::ResourceList> loadedResources);
  /// What the running update pass will remove at its end; nothing outside such a pass.
  [[nodiscard]] const std::optional<kiv::ResourceArray>& resourcesForRemove() const noexcept;
  void setResourcesForRemove(std::optional<kiv::ResourceArray> resourcesForRemove);
  /// Downloads started and not yet completed; above 0 the manager is busy.
  [[nodiscard]] std::int64_t loadingResourcesFilesCount() const noexcept;
  void setLoadingResourcesFilesCount(std::int64_t count) noexcept;
  [[nodiscard]] const std::shared_ptr<KivResourceRESTModule>& loader() const noexcept;
  /// A client of the loader that has no spool directory is given one under the storage root.
  void setLoader(std::shared_ptr<KivResourceRESTModule> loader);

 private:
  KivResourceManager();
  void create();
  void assertQueue(const char* call = __builtin_FUNCTION()) const;

  void refusePass(const kiv::ResourceArray& resources);
  /// Compares one new resource with its loaded counterpart, if it has one.
  void mergeResource(const std::shared_ptr<KivResource>& resource,
                     std::shared_ptr<KivResource> counterpart);
  void downloadFile(const std::string& fileLink, const std::shared_ptr<KivResource>& resource);
  void completeDownload(const std::optional<kiv::Data>& data,
                        const std::optional<kiv::Error>& error, const std::string& fileLink,
                        const std::shared_ptr<KivResource>& resource);
  /// Begins a step of the manager (ManagerStep). A step of the turn ends with the turn of the
  /// queue.
  kiv::ManagerStep beginStep();
  kiv::ManagerStep beginStepOfTurn();
  void endStep();
  void endStepWithTurn();
  /// Saves the list, and when that has succeeded removes the files that only an older list named.
  /// So the resources of the list on disk have their files at every moment, whatever fails.
  void saveChanges();
  /// Adapts the pending removals and announcements to what a merge has done to the registry.
  void noteMerge();
  void failAnnouncements(const std::shared_ptr<KivResource>& resource);
  /// Marks those files of the resource for removal that no other loaded resource uses.
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
  std::shared_ptr<MulticastObserver> multicastObserver_;
  std::shared_ptr<kiv::ResourceList> loadedResources_;
  std::unique_ptr<kiv::SavedList> savedList_;
  std::optional<kiv::ResourceArray> resourcesForRemove_;
  std::int64_t loadingResourcesFilesCount_ = 0;
  std::shared_ptr<KivResourceRESTModule> loader_;

  int stepDepth_ = 0;
  bool listIsChanged_ = false;    ///< Since it was last written, or that was tried.
  bool listIsOutOfDate_ = false;  ///< On the disk, because it could not be written.
  std::unique_ptr<kiv::PendingRemovals> removals_;
  bool endIsScheduled_ = false;
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
