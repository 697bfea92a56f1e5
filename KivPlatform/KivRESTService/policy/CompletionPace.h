#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace kiv {

/// Decides when tasks that have ended are completed. The consumer may do work once for all tasks of
/// a job, such as a wait for the disk. So the more a job has cost, the longer the next one waits
/// for more tasks: completing them takes at most a twentieth of the time and a hundredth of the
/// processor, and no task waits for more than a second.
class CompletionPace {
 public:
  using Time = std::chrono::steady_clock::time_point;

  struct Waiting {
    std::size_t tasks = 0;
    std::int64_t bytes = 0;    ///< of their bodies
    std::size_t inFlight = 0;  ///< tasks that may still join them
  };

  /// A job ends after this time and leaves the rest to another one, so that other jobs of the queue
  /// come in between.
  static constexpr std::chrono::milliseconds longestJob{15};
  static constexpr std::size_t manyTasks = 512;
  /// Less than TransferSettings::largestPendingBytes, at which no transfer starts.
  static constexpr std::int64_t manyBytes = 3 * 1024 * 1024;

  /// True if a job is to be started for the tasks that wait.
  [[nodiscard]] bool isDue(const Waiting& waiting, Time now) const noexcept;
  /// When it will be, if nothing else changes.
  [[nodiscard]] Time next() const noexcept { return next_; }

  struct Cost {
    Time::duration time{};
    Time::duration processorTime{};
  };

  /// A job has ended. `isCut` means that it left tasks, since it has taken long enough: they do not
  /// wait.
  void jobEnded(Cost cost, Time now, bool isCut) noexcept;

 private:
  Time next_{};
};

}  // namespace kiv
