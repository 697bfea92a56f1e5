#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "KivPlatform/KivRESTService/KivRESTServiceMetrics.h"
#include "KivPlatform/KivRESTService/engine/Download.h"

namespace kiv {

/// Adds up how far a client has come, and measures how fast. Belongs to the scheduler.
class ProgressMeter {
 public:
  using Time = std::chrono::steady_clock::time_point;
  using Downloads = std::map<std::string, std::unique_ptr<Download>>;

  /// The shortest time between two measurements.
  static constexpr std::chrono::milliseconds interval{100};

  /// The client had nothing to do, and now has.
  void restart() noexcept;
  /// A download has ended, for that many tasks, with a body of that size.
  void noteEnded(std::size_t tasks, std::int64_t bytes) noexcept;

  /// When the next measurement is due.
  [[nodiscard]] Time nextTime() const noexcept { return lastTime_ + interval; }
  /// Measures; `downloads` are all that the client has now.
  KivRESTServiceProgress measure(const Downloads& downloads, Time now);

 private:
  std::size_t endedTasks_ = 0;
  std::int64_t endedBytes_ = 0;
  std::int64_t lastBytes_ = 0;
  double bytesPerSecond_ = 0;
  Time lastTime_{};
};

}  // namespace kiv
