#pragma once

#include <KivResource/KivResource.h>
#include <chrono>
#include <map>
#include <memory>
#include <string>

#include "CacheListener.h"

/// Where the window's cache is.
struct CacheSetup {
  std::string root;
  std::string server;
  std::string mirror;  ///< Empty for none.
  /// Between two checks of a configuration at a URL; 0 for none but those that the user asks for.
  std::chrono::seconds interval = std::chrono::hours(1);
};

/// The window's cache. It is made on any thread. All operations but the constructor are called on
/// the queue, and so are the callbacks of the framework; the listener is told on the main queue. So
/// the window never waits for the manager.
class Cache final : public KivResourceManagerObserver, public std::enable_shared_from_this<Cache> {
 public:
  /// The listener is looked at on the main queue alone, and may go at any time.
  Cache(CacheSetup setup, std::weak_ptr<CacheListener> listener,
        std::shared_ptr<kiv::DispatchQueue> queue);

  /// Opens the cache and tells what it holds. After a failure, which ended() tells, the other
  /// operations do nothing.
  void open();
  /// Stops everything. The listener hears no more of it.
  void close();
  /// Begins a pass with a local file. `dropsRest`: resources that it does not name leave the cache.
  void startFile(const std::string& path, bool dropsRest);
  /// Checks a configuration at a URL now, and from then on after each interval, until stop() or
  /// startFile(). A check is always an update: resources that the configuration does not name leave
  /// the cache.
  void checkURL(const std::string& address);
  /// Stops what runs, and the checks.
  void stop();
  void setPaused(bool isPaused);
  /// Asks the servers whether the stored files have changed.
  void revalidate();
  /// Finds out which files no resource needs.
  void planRemoval();
  /// Removes what was planned; if something else would be removed by now, asks again instead.
  void remove(const Removal& planned);

  void resourceManager_didLoadResource(const std::shared_ptr<KivResourceManager>& manager,
                                       const std::shared_ptr<KivResource>& resource) override;

 private:
  void tell(std::function<void(CacheListener&)> job) const;
  void tellItem(const KivResource& resource);
  void tellProgress(const KivRESTServiceProgress& progress) const;
  void noteRevalidation(const KivResourceRevalidationReport& report);
  void noteCheck(const KivConfigurationCheck& check);
  void end(const Outcome& outcome);

  const CacheSetup setup_;
  const std::weak_ptr<CacheListener> listener_;
  const std::shared_ptr<kiv::DispatchQueue> queue_;
  std::shared_ptr<KivResourceCache> cache_;
  std::shared_ptr<KivResourceManager> manager_;
  std::unique_ptr<KivConfigurationUpdater> updater_;
  std::string address_;  ///< Of the updater.
  bool isBusy_ = false;
  bool isRevalidating_ = false;
  /// The stamps of the resources that the listener was told of, by identifier.
  std::map<std::string, std::uint64_t> told_;
};
