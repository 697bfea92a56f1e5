#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "KivPlatform/KivRESTService/policy/TransferSettings.h"

namespace kiv {

/// How fast a download must be to continue, and to keep its slot while others wait.
class SpeedPolicy {
 public:
  using Duration = std::chrono::steady_clock::duration;
  using Time = std::chrono::steady_clock::time_point;

  explicit SpeedPolicy(const TransferSettings& settings) noexcept;

  /// The length of the window over which speeds are measured.
  [[nodiscard]] Duration window() const noexcept { return window_; }
  /// The minimum speed, in bytes per second, of a download whose attempts have run for `age` in
  /// total. 0 for a young download, to which only libcurl's own limit applies.
  [[nodiscard]] double minimum(Duration age) const noexcept;
  /// True for a speed at which a download yields its slot if others wait. A stalled one does not:
  /// libcurl ends it as a failed attempt.
  [[nodiscard]] bool isSlow(double bytesPerSecond) const noexcept {
    return bytesPerSecond >= stallSpeed_ && bytesPerSecond < slowSpeed_;
  }
  /// How long an attempt keeps its slot, however slow it is. It doubles each time, so that a body
  /// that cannot be resumed completes eventually.
  [[nodiscard]] Duration turn(int timesYielded) const noexcept;
  /// The deadline of a download that began at that time; nothing if there is none.
  [[nodiscard]] std::optional<Time> deadline(Time begun) const noexcept {
    return deadline_ > Duration::zero() ? std::optional(begun + deadline_) : std::nullopt;
  }
  /// True if a download that began after `older` others may have to yield. The older half of the
  /// slots never does. So on a slow line files complete one after the other, rather than all at the
  /// end.
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

/// Measures the speed of a transfer over consecutive windows.
class SpeedMeter {
 public:
  using Time = SpeedPolicy::Time;

  /// Called when a request starts; `bytes` have been received so far.
  void restart(std::int64_t bytes, Time now) noexcept;
  /// Called with the bytes received so far.
  void note(std::int64_t bytes, Time now, SpeedPolicy::Duration window) noexcept;
  /// Bytes per second in the last window. Nothing in the first window, or if note() was not called
  /// for longer than a window: the thread may have had no time to read.
  [[nodiscard]] std::optional<double> bytesPerSecond() const noexcept { return speed_; }

 private:
  Time since_{};
  std::int64_t bytes_ = 0;
  std::optional<double> speed_;
};

/// Measures for how long no bytes have come over a connection that several requests share.
class SilenceMeter {
 public:
  using Time = SpeedPolicy::Time;

  /// To be called regularly, with the number of requests on the connection and the bytes that these
  /// have received so far.
  void note(std::size_t requests, std::int64_t bytes, Time now) noexcept;
  [[nodiscard]] SpeedPolicy::Duration silence() const noexcept { return silence_; }

 private:
  std::optional<Time> notedAt_;
  std::int64_t bytes_ = 0;
  SpeedPolicy::Duration silence_{};
};

/// The bandwidth limit of a client: a token bucket for all of its transfers together, which may be
/// overdrawn. While it is, no transfer starts.
///
/// libcurl limits the speed of each transfer, but a short transfer ends before that takes effect.
/// This limits a sequence of short ones.
class BandwidthBudget {
 public:
  using Time = SpeedPolicy::Time;

  /// The burst after an idle time: as many bytes as the limit allows in this time.
  static constexpr std::chrono::milliseconds burst{100};

  /// In bytes per second; 0 or less for no limit.
  explicit BandwidthBudget(std::int64_t bytesPerSecond) noexcept
      : bytesPerSecond_(bytesPerSecond) {}

  [[nodiscard]] bool isLimited() const noexcept { return bytesPerSecond_ > 0; }
  /// Called when bytes were received.
  void spend(std::int64_t bytes, Time now) noexcept;
  /// When the bucket is no longer overdrawn; a time in the past if it is not overdrawn.
  [[nodiscard]] Time paidAt() const noexcept { return paidAt_; }

 private:
  std::int64_t bytesPerSecond_;
  Time paidAt_ = Time::min();
};

}  // namespace kiv
