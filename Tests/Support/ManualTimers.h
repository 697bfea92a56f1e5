#pragma once

#include <algorithm>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "KivPlatform/Foundation/queues/DispatchQueue.h"
#include "KivPlatform/Foundation/queues/Timers.h"

namespace kiv::test {

/// Timers whose time the test sets. Used on the thread of the test.
class ManualTimers final : public Timers, public std::enable_shared_from_this<ManualTimers> {
 public:
  [[nodiscard]] Time now() const override { return now_; }

  std::unique_ptr<Timer> set(Time when, std::weak_ptr<DispatchQueue> queue, Job job) override {
    if (refuses) return nullptr;
    const int id = ++lastID_;
    waits.push_back(when - now_);
    waiting_.emplace(id, Waiting{when, std::move(queue), std::move(job)});
    return std::make_unique<ManualTimer>(shared_from_this(), id);
  }

  /// Lets the time pass in one step, as if the computer had slept, and adds the jobs of the timers
  /// that are due to their queues.
  void advance(Time time) {
    now_ += time;
    std::vector<Waiting> due;
    for (auto timer = waiting_.begin(); timer != waiting_.end();) {
      const bool isDue = timer->second.when <= now_;
      if (isDue) due.push_back(timer->second);
      timer = isDue ? waiting_.erase(timer) : std::next(timer);
    }
    for (const Waiting& timer : due) {
      if (const auto queue = timer.queue.lock()) queue->async(timer.job);
    }
  }

  [[nodiscard]] std::size_t count() const { return waiting_.size(); }

  std::vector<Time> waits;  ///< Of every timer that was set.
  bool refuses = false;

 private:
  struct Waiting {
    Time when;
    std::weak_ptr<DispatchQueue> queue;
    Job job;
  };

  class ManualTimer : public Timer {
   public:
    ManualTimer(std::shared_ptr<ManualTimers> timers, int id)
        : timers_(std::move(timers)), id_(id) {}
    ManualTimer(const ManualTimer&) = delete;
    ManualTimer& operator=(const ManualTimer&) = delete;
    ~ManualTimer() override { timers_->waiting_.erase(id_); }

   private:
    const std::shared_ptr<ManualTimers> timers_;
    const int id_;
  };

  Time now_{1'000'000};
  int lastID_ = 0;
  std::map<int, Waiting> waiting_;
};

}  // namespace kiv::test
