#pragma once

#include <KivResource/KivResource.h>
#include <memory>
#include <optional>

#include "ServiceSettings.h"

class HoldFile;
class ResourceIndex;

/// The service: a cache, an updater that keeps it fresh, and what is done after each pass.
///
/// It is opened, used and destroyed as jobs of one serial queue, on which everything but the
/// transfers happens. Whatever comes of its work goes to the log.
class Service : public KivResourceManagerObserver, public std::enable_shared_from_this<Service> {
 public:
  /// Opens the cache in the directory. nullptr and an error if the directory cannot be used, or
  /// another service uses it. `timers` is for tests.
  static std::shared_ptr<Service> open(
      const ServiceSettings& settings, std::optional<kiv::Error>* error,
      const std::shared_ptr<kiv::Timers>& timers = kiv::Timers::system());
  ~Service() override;
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;

  /// Begins the first check, and plans the others.
  void start();
  /// Checks now, and looks again whether downloads are held.
  void checkNow();
  /// Asks the servers whether stored files have changed.
  void revalidate();
  /// Ends what is running, without a wait for any server. To be called once, before the last
  /// reference is released.
  void stop();

  void resourceManager_didLoadResource(const std::shared_ptr<KivResourceManager>& manager,
                                       const std::shared_ptr<KivResource>& resource) override;

 private:
  Service(ServiceSettings settings, std::unique_ptr<kiv::FileLock> lock,
          std::shared_ptr<KivResourceCache> cache, std::shared_ptr<kiv::Timers> timers);
  void prepare();
  void makeUpdater();
  void lookAtHold();
  void tidy();

  const ServiceSettings settings_;
  const std::unique_ptr<kiv::FileLock> lock_;  ///< Released last.
  const std::shared_ptr<KivResourceCache> cache_;
  const std::shared_ptr<kiv::Timers> timers_;
  const std::shared_ptr<kiv::DispatchQueue> queue_;
  std::unique_ptr<ResourceIndex> index_;
  std::unique_ptr<KivConfigurationUpdater> updater_;
  std::unique_ptr<kiv::Timers::Timer> publishing_;  ///< The next publication during a pass.
};
