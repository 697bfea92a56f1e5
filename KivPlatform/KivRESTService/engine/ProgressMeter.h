#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "KivPlatform/KivRESTService/KivRESTServiceMetrics.h"

namespace kiv {

struct Download;

/// Sums up the client's progress and measures its throughput. Owned by the scheduler.
class ProgressMeter {
 public:
  using Time = std::chrono::steady_clock::time_point;
  using Downloads = std::map<std::string, std::unique_ptr<Download>>;

  /// The shortest time between two measurements.
  static constexpr std::chrono::milliseconds interval{100};

  /// Called when an idle client gets a job.
  void restart() noexcept;
  /// Called when a download ends: for `tasks` tasks, with a body of `bytes` bytes.
  void noteEnded(std::size_t tasks, std::int64_t bytes) noexcept;

  /// When the next measurement is due.
  [[nodiscard]] Time nextTime() const noexcept { return lastTime_ + interval; }
  /// Takes a measurement. `downloads` are all of the client's.
  KivRESTServiceProgress measure(const Downloads& downloads, Time now);

 private:
  std::size_t endedTasks_ = 0;
  std::int64_t endedBytes_ = 0;
  std::int64_t lastBytes_ = 0;
  double bytesPerSecond_ = 0;
  Time lastTime_{};
};

}  // namespace kiv
