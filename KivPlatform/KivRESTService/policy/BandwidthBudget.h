#pragma once

#include <chrono>
#include <cstdint>

#include "KivPlatform/Foundation/Export.h"

namespace kiv {

/// The bytes that a client may receive: one budget for all its transfers, a token bucket that may
/// be overdrawn. What has come is paid for with the time that it should have taken; as long as some
/// is unpaid, no transfer is to begin.
///
/// A single transfer can be slowed down while it runs, but a short one has come before that takes
/// effect. This keeps the many that follow from coming as fast.
class KIV_EXPORT BandwidthBudget {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /// What may come at once after a time in which nothing came, as the time that it should take.
  static constexpr std::chrono::milliseconds burst{100};

  /// 0 or less for no limit.
  explicit BandwidthBudget(std::int64_t bytesPerSecond) noexcept
      : bytesPerSecond_(bytesPerSecond) {}

  [[nodiscard]] bool isLimited() const noexcept { return bytesPerSecond_ > 0; }
  /// That many bytes have come.
  void spend(std::int64_t bytes, Time now) noexcept;
  /// When everything that has come is paid for; in the past where it is.
  [[nodiscard]] Time paidAt() const noexcept { return paidAt_; }

 private:
  std::int64_t bytesPerSecond_;
  Time paidAt_ = Time::min();
};

}  // namespace kiv
