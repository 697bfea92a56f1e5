#pragma once

#include <KivResource/KivResource.h>
#include <cstddef>
#include <map>
#include <memory>
#include <utility>

/// A clock that the test moves, with timers. Used on the thread of the test, and owned by a
/// shared_ptr.
class ManualClock final : public kiv::Timers, public std::enable_shared_from_this<ManualClock> {
 public:
  [[nodiscard]] Time now() const override { return now_; }

  std::unique_ptr<Timer> set(Time when, std::weak_ptr<kiv::DispatchQueue> queue, Job job) override {
    timers_.emplace(++lastID_, Setting{when, std::move(queue), std::move(job)});
    return std::make_unique<ManualTimer>(shared_from_this(), lastID_);
  }

  /// Lets the time pass in one step, as if the computer had slept, and adds the jobs of the timers
  /// that are due to their queues.
  void advance(Time time) {
    now_ += time;
    std::erase_if(timers_, [this](const auto& timer) {
      const Setting& setting = timer.second;
      if (setting.when > now_) return false;
      if (const auto queue = setting.queue.lock()) queue->async(setting.job);
      return true;
    });
  }

  /// The timers that are set.
  [[nodiscard]] std::size_t count() const { return timers_.size(); }

 private:
  struct Setting {
    Time when;
    std::weak_ptr<kiv::DispatchQueue> queue;
    Job job;
  };

  class ManualTimer final : public Timer {
   public:
    ManualTimer(std::shared_ptr<ManualClock> clock, int id) : clock_(std::move(clock)), id_(id) {}
    ~ManualTimer() override { clock_->timers_.erase(id_); }
    ManualTimer(const ManualTimer&) = delete;
    ManualTimer& operator=(const ManualTimer&) = delete;

   private:
    const std::shared_ptr<ManualClock> clock_;
    const int id_;
  };

  Time now_{0};
  int lastID_ = 0;
  std::map<int, Setting> timers_;
};
