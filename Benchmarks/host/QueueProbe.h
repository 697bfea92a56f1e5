#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include "KivPlatform/Foundation/queues/DispatchQueue.h"

namespace kiv::bench {

/// Adds a job to a queue again and again, from a thread of its own, and measures how long it has to
/// wait until it runs: a host's own job would wait as long. There are pauses of some milliseconds,
/// since each such job also ends a turn of the queue.
class QueueProbe {
 public:
  explicit QueueProbe(std::shared_ptr<DispatchQueue> queue);
  /// Ends the thread.
  ~QueueProbe();
  QueueProbe(const QueueProbe&) = delete;
  QueueProbe& operator=(const QueueProbe&) = delete;

  /// In milliseconds.
  [[nodiscard]] double longestWait() const;

 private:
  struct State;
  static void run(const std::shared_ptr<State>& state);

  std::shared_ptr<State> state_;
  std::thread thread_;
};

/// After a delay, has a queue run a job that stops something, and measures the time from the
/// request until the job has returned.
class StopProbe {
 public:
  StopProbe(std::shared_ptr<DispatchQueue> queue, std::chrono::milliseconds delay,
            std::function<void()> stop);
  /// Waits for the delay.
  ~StopProbe();
  StopProbe(const StopProbe&) = delete;
  StopProbe& operator=(const StopProbe&) = delete;

  /// In milliseconds; -1 if the job has not run.
  [[nodiscard]] double took() const { return *took_; }

 private:
  std::shared_ptr<std::atomic<double>> took_ = std::make_shared<std::atomic<double>>(-1);
  std::thread thread_;
};

}  // namespace kiv::bench
