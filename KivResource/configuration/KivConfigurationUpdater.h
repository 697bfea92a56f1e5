#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/Foundation/queues/Timers.h"
#include "KivPlatform/Foundation/values/URL.h"
#include "KivResource/KivResourceManager.h"
#include "KivResource/configuration/KivConfigurationCheck.h"

class KivRESTService;

namespace kiv {
class ConfigurationChecks;
}

/// How a KivConfigurationUpdater works.
struct KivConfigurationUpdaterOptions {
  /// The URLs to try, in this order, if the server of the configuration fails.
  std::vector<kiv::URL> mirrors = {};
  /// The least time between the end of a check and the next one, at most a year. 0 or less: checks
  /// are made by start() and checkNow() alone.
  std::chrono::seconds interval = std::chrono::hours(1);
  /// Each wait is longer by a random part of it, up to this fraction, between 0 and 1: so that many
  /// hosts do not ask a server at the same moment.
  double jitter = 0.1;
  /// If the first check after start() fails, a pass runs with the configuration that was saved
  /// last: files that were missing then are tried again.
  bool usesSavedConfiguration = true;
  /// The limit on the bytes of a configuration.
  std::int64_t largestConfiguration = std::int64_t{10} * 1024 * 1024;
  /// The clock, or nullptr for the system's. For tests.
  std::shared_ptr<kiv::Timers> timers = nullptr;
  /// A client for the updater alone, which cancels all of its tasks; or nullptr for one with the
  /// settings of the manager's client, but without a spool directory, and with a deadline of five
  /// minutes for a check.
  std::shared_ptr<KivRESTService> restService = nullptr;
};

/// Keeps the resources up to date with a configuration on a server: fetches it, runs an update pass
/// (KivResourcePass::update) with it, and looks again after each interval.
///
/// A check asks the server only whether the configuration has changed (RFC 9110, 13), and retries
/// and uses the mirrors as other downloads do. A pass runs if the text has changed, if it is the
/// first one of this object, or if the last one has left something undone: a file failed, the pass
/// was stopped, or the list was not saved. If the manager is busy with a pass of the host's, the
/// check waits for its end, and the host's pass is not affected.
///
/// An answer is used if it is JSON, at most as large as the limit, and a dictionary with an array
/// "items" that is empty or has a valid item. Anything else is a failed check: nothing changes, and
/// the next check comes after a minute, then after two, four, and so on up to the interval.
///
/// The last configuration that was used is saved under the storage root, with its validators, for
/// the next start; a file that cannot be used is ignored, and the log says so.
///
/// As the manager, the object is created, used and destroyed on the manager's queue, where all
/// handlers are called. It holds the manager. There should be one for a manager: two would take
/// turns with different configurations.
class KIV_EXPORT KivConfigurationUpdater {
 public:
  using CheckHandler = std::function<void(const KivConfigurationCheck& check)>;

  /// Does not begin yet. `manager` must not be nullptr.
  KivConfigurationUpdater(std::shared_ptr<KivResourceManager> manager, kiv::URL url,
                          KivConfigurationUpdaterOptions options = {});
  /// As stop().
  ~KivConfigurationUpdater();
  KivConfigurationUpdater(const KivConfigurationUpdater&) = delete;
  KivConfigurationUpdater& operator=(const KivConfigurationUpdater&) = delete;

  /// The handler is called after each check, also after one that is postponed. It may call any
  /// operation of the updater, and destroy it. An empty handler removes it.
  void setCheckHandler(CheckHandler handler);

  /// Begins the first check, and plans the others. No effect if it has been called already.
  void start();
  /// Ends the running check and plans no further one: after this no handler is called. A pass that
  /// runs goes on (KivResourceManager::stopLoading() ends it).
  void stop();
  /// Begins a check now, also without start(). The handler, which may be empty, is called once when
  /// this check has ended, before the handler of all checks, and not when it is postponed. If a
  /// check is running, it is that one. After stop() it is never called.
  void checkNow(CheckHandler handler = nullptr);

  /// The client that fetches the configuration. The host may pause it, limit it, or set a start
  /// condition; the manager's client is another one.
  [[nodiscard]] const std::shared_ptr<KivRESTService>& restService() const noexcept;

 private:
  const std::shared_ptr<kiv::ConfigurationChecks> checks_;
};
