#include "KivSession/SessionFollowing.h"

#include <utility>

namespace kiv::session {

SessionFollowing::SessionFollowing(std::shared_ptr<KivResourceManager> manager, Tell tell,
                                   Equip equip)
    : manager_(std::move(manager)), tell_(std::move(tell)), equip_(std::move(equip)) {}

void SessionFollowing::set(FollowedConfiguration followed, Value tag) {
  auto updater =
      std::make_unique<KivConfigurationUpdater>(manager_, followed.url, followed.options);
  updater->setCheckHandler([this](const auto& check) { take(check); });
  equip_(updater->restService());
  stop();
  updater_ = std::move(updater);
  followed_ = Followed{std::move(followed), std::move(tag)};
}

void SessionFollowing::begin() {
  updater_->start();
}

void SessionFollowing::beginAnew() {
  if (!updater_) return;
  set(followed_->configuration, followed_->tag);
  begin();
}

void SessionFollowing::checkNow() {
  if (updater_) updater_->checkNow();
}

void SessionFollowing::stop() {
  updater_.reset();
  followed_.reset();
  isPostponed_ = false;
}

/// A pass of the check counts as the downloads of the manager do, and its report waits in the queue
/// when the last of them has ended.
bool SessionFollowing::isChecking() const {
  return isPostponed_ || (updater_ && !updater_->restService()->currentQueue().empty());
}

Value SessionFollowing::url() const {
  if (!followed_) return nullptr;
  return displayedURL(followed_->configuration.url.absoluteString());
}

void SessionFollowing::take(const KivConfigurationCheck& check) {
  isPostponed_ = check.outcome == KivConfigurationOutcome::postponed;
  tell_(check, followed_->tag);
}

}  // namespace kiv::session
