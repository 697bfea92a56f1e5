#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace kiv {

/// Decides when tasks that have ended are completed, each time several of them in one job of the
/// queue. The consumer may do some work once for all tasks of a job, such as waiting for the disk.
/// So the more a job has cost, the longer the next one waits for more tasks: completions take at
/// most a twentieth of the time and a hundredth of the processor time, and no task waits for more
/// than a second.
class CompletionPace {
 public:
  using Time = std::chrono::steady_clock::time_point;

  struct Waiting {
    std::size_t tasks = 0;
    std::int64_t bytes = 0;    ///< of their bodies
    std::size_t inFlight = 0;  ///< tasks that may still join them
  };

  /// A job that has run for this long leaves the rest to another one, so that other jobs of the
  /// queue come in between.
  static constexpr std::chrono::milliseconds longestJob{15};
  static constexpr std::size_t manyTasks = 512;
  /// Less than TransferSettings::largestPendingBytes, at which no transfer starts.
  static constexpr std::int64_t manyBytes = 3 * 1024 * 1024;

  /// True if a job for the waiting tasks is due.
  [[nodiscard]] bool isDue(const Waiting& waiting, Time now) const noexcept;
  /// When a job will be due if nothing else changes.
  [[nodiscard]] Time next() const noexcept { return next_; }

  struct Cost {
    Time::duration time{};
    Time::duration processorTime{};
  };

  /// Called when a job has ended. `hasMore` means that it ran for longestJob and left tasks, which
  /// then do not wait.
  void jobEnded(Cost cost, Time now, bool hasMore) noexcept;

 private:
  Time next_{};
};

}  // namespace kiv
