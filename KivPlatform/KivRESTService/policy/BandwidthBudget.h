#pragma once

#include <chrono>
#include <cstdint>

#include "KivPlatform/Foundation/Export.h"

namespace kiv {

/// The bandwidth limit of a client: one token bucket for all of its transfers, which may be
/// overdrawn. While it is overdrawn, no transfer starts.
///
/// libcurl limits the speed of each transfer, but short ones end before that takes effect. This
/// limits a sequence of those.
class KIV_EXPORT BandwidthBudget {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /// The burst after an idle time, expressed as time at the limit.
  static constexpr std::chrono::milliseconds burst{100};

  /// In bytes per second; 0 or less for no limit.
  explicit BandwidthBudget(std::int64_t bytesPerSecond) noexcept
      : bytesPerSecond_(bytesPerSecond) {}

  [[nodiscard]] bool isLimited() const noexcept { return bytesPerSecond_ > 0; }
  /// Called when bytes were received.
  void spend(std::int64_t bytes, Time now) noexcept;
  /// When the bucket is no longer overdrawn; in the past if it is not.
  [[nodiscard]] Time paidAt() const noexcept { return paidAt_; }

 private:
  std::int64_t bytesPerSecond_;
  Time paidAt_ = Time::min();
};

}  // namespace kiv
