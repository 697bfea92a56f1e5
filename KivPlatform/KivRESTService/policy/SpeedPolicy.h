#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/KivRESTService/KivRESTServiceSettings.h"

namespace kiv {

/// How fast a download has to be to go on, and to keep its place while others wait.
class KIV_EXPORT SpeedPolicy {
 public:
  using Duration = std::chrono::steady_clock::duration;
  using Time = std::chrono::steady_clock::time_point;

  explicit SpeedPolicy(const KivRESTServiceSettings& settings) noexcept;

  /// The time over which a speed is measured.
  [[nodiscard]] Duration window() const noexcept { return window_; }
  /// The least speed, in bytes a second, of a download whose tries have run for `age` in all. 0 for
  /// a young one, which only libcurl's own limit holds for.
  [[nodiscard]] double minimum(Duration age) const noexcept;
  /// True for a speed at which a download does not keep its place while others wait. One that has
  /// stalled is libcurl's to end: that is a failed try.
  [[nodiscard]] bool isSlow(double bytesPerSecond) const noexcept {
    return bytesPerSecond >= stallSpeed_ && bytesPerSecond < slowSpeed_;
  }
  /// How long a try keeps its place however slow it is. Each turn is twice as long as the one
  /// before, so that a body of which no part can be kept comes as well.
  [[nodiscard]] Duration turn(int timesGivenWay) const noexcept;
  /// When a download that began then has to end; nothing where there is no deadline.
  [[nodiscard]] std::optional<Time> deadline(Time begun) const noexcept {
    return deadline_ > Duration::zero() ? std::optional(begun + deadline_) : std::nullopt;
  }
  /// True for a download which has begun after `older` of those that share so many places. The
  /// older half never gives way: where the line itself is slow, files are completed one after the
  /// other, and not all of them at the very end.
  [[nodiscard]] static bool mayGiveWay(std::size_t older, std::size_t places) noexcept {
    return older >= places / 2;
  }

 private:
  Duration window_;
  Duration doubling_;
  double stallSpeed_;
  double largestMinimum_;
  double slowSpeed_;
  Duration turn_;
  Duration deadline_;
};

/// Measures the speed of a transfer, over one window after the other.
class KIV_EXPORT SpeedMeter {
 public:
  using Time = SpeedPolicy::Time;

  /// A request begins, when that many bytes have come.
  void restart(std::int64_t bytes, Time now) noexcept;
  /// That many bytes have come by now.
  void note(std::int64_t bytes, Time now, SpeedPolicy::Duration window) noexcept;
  /// Bytes a second in the last window; nothing in the first one, and where nobody has looked for
  /// longer than a window: the thread may have had no time to read what was there.
  [[nodiscard]] std::optional<double> bytesPerSecond() const noexcept { return speed_; }

 private:
  Time since_{};
  std::int64_t bytes_ = 0;
  std::optional<double> speed_;
};

}  // namespace kiv
