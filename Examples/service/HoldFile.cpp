#include "HoldFile.h"

#include <chrono>
#include <utility>

#include "ServiceLog.h"

HoldFile::HoldFile(std::string path, std::shared_ptr<kiv::Timers> timers,
                   std::function<void()> lookAgain)
    : path_(std::move(path)), timers_(std::move(timers)), lookAgain_(std::move(lookAgain)) {}

bool HoldFile::allowsStart() {
  const bool isHeld = kiv::FileManager::defaultManager().itemExistsAtPath(path_);
  if (isHeld != std::exchange(isHeld_, isHeld)) {
    const std::string held = "downloads are held, since " + path_ + " exists";
    writeLog(LogLevel::info, isHeld ? held : "downloads are no longer held");
  }
  if (isHeld && !timer_) lookInAMinute();
  return !isHeld;
}

void HoldFile::lookInAMinute() {
  // Weak, since a job that is on the queue outlives its timer.
  timer_ =
      timers_->set(timers_->now() + std::chrono::minutes(1), queue_, [self = weak_from_this()] {
        const auto hold = self.lock();
        if (!hold) return;
        hold->timer_.reset();
        hold->lookAgain_();
      });
}
