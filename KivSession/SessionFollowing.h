#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "KivResource/KivResource.h"
#include "KivSession/FollowedConfiguration.h"

namespace kiv::session {

/// The configuration that a session follows: an updater, and what it was made of. Used on the
/// manager's queue.
class SessionFollowing {
 public:
  /// Is told of each check, with the tag of the call that began the following.
  using Tell = std::function<void(const KivConfigurationCheck& check, const Value& tag)>;
  /// Is given each client that fetches the configuration, before its first task.
  using Equip = std::function<void(const std::shared_ptr<KivRESTService>& client)>;

  SessionFollowing(std::shared_ptr<KivResourceManager> manager, Tell tell, Equip equip);

  /// Follows this configuration from begin() on, and no other.
  void set(FollowedConfiguration followed, Value tag);
  /// Begins the first check. It may end at once, if there is no memory for it.
  void begin();
  /// Replaces the updater by one for the same configuration, with the present settings of the
  /// manager's client.
  void beginAnew();
  /// Begins a check, if something is followed and none is running.
  void checkNow();
  /// Ends the running check, without telling of it. A pass that runs goes on.
  void stop();

  /// Whether a check has begun whose end is to come, apart from a pass of its own.
  [[nodiscard]] bool isChecking() const;
  /// The URL without credentials; null if nothing is followed.
  [[nodiscard]] Value url() const;

 private:
  /// What the call has asked for.
  struct Followed {
    FollowedConfiguration configuration;
    Value tag;
  };

  void take(const KivConfigurationCheck& check);

  const std::shared_ptr<KivResourceManager> manager_;
  const Tell tell_;
  const Equip equip_;
  std::optional<Followed> followed_;
  bool isPostponed_ = false;  ///< The running check waits for the end of a pass.
  std::unique_ptr<KivConfigurationUpdater> updater_;
};

}  // namespace kiv::session
