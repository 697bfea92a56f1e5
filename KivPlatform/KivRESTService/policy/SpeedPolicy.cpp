// All speeds are averages over whole windows: a line that others use too has gaps of seconds, which
// must not count as slow.

#include "KivPlatform/KivRESTService/policy/SpeedPolicy.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace kiv {

namespace {

using std::chrono::seconds;

constexpr seconds windowWithoutStallTimeout{30};
constexpr seconds longestTurn{24 * 60 * 60};

/// Bounds the time so that the clock's arithmetic cannot overflow.
seconds bounded(seconds time) noexcept {
  constexpr seconds longest{365 * longestTurn.count()};
  return std::clamp(time, seconds(0), longest);
}

/// Half of a transfer's share if all slots share the bandwidth. A transfer that the client itself
/// slows down is not slow.
double halfShareOfBandwidth(const TransferSettings& settings) noexcept {
  if (settings.bandwidth <= 0) return std::numeric_limits<double>::max();
  const auto shares = static_cast<double>(std::max<std::size_t>(1, settings.parallelTransfers)) + 1;
  return static_cast<double>(settings.bandwidth) / shares / 2;
}

}  // namespace

SpeedPolicy::SpeedPolicy(const TransferSettings& settings) noexcept
    : window_(settings.stallTimeout.count() > 0 ? bounded(settings.stallTimeout)
                                                : windowWithoutStallTimeout),
      doubling_(settings.stallTimeout.count() > 0 ? bounded(settings.stallSpeedDoubling)
                                                  : seconds(0)),
      stallSpeed_(settings.stallTimeout.count() > 0 ? static_cast<double>(settings.stallSpeed) : 0),
      largestMinimum_(std::min(static_cast<double>(settings.largestStallSpeed),
                               halfShareOfBandwidth(settings))),
      slowSpeed_(std::min(static_cast<double>(settings.slowSpeed), halfShareOfBandwidth(settings))),
      turn_(bounded(settings.slowTurn)),
      deadline_(bounded(settings.deadline)) {}

double SpeedPolicy::minimum(Duration age) const noexcept {
  if (doubling_ == Duration::zero() || age < doubling_) return 0;
  return std::min(std::ldexp(stallSpeed_, static_cast<int>(std::min<std::int64_t>(
                                              age / doubling_, std::numeric_limits<int>::max()))),
                  largestMinimum_);
}

SpeedPolicy::Duration SpeedPolicy::turn(int timesYielded) const noexcept {
  Duration turn = turn_;
  for (int time = 0; time < timesYielded && turn < longestTurn; ++time)
    turn *= 2;
  return turn;
}

void SpeedMeter::restart(std::int64_t bytes, Time now) noexcept {
  since_ = now;
  bytes_ = bytes;
  speed_.reset();
}

void SpeedMeter::note(std::int64_t bytes, Time now, SpeedPolicy::Duration window) noexcept {
  const auto passed = now - since_;
  if (passed < window) return;
  const auto come = static_cast<double>(bytes - bytes_);
  restart(bytes, now);
  if (passed < 2 * window) speed_ = come / std::chrono::duration<double>(passed).count();
}

/// A long gap between two calls counts as one second at most: if the thread had no time to call
/// this, it had none to read either.
void SilenceMeter::note(std::size_t requests, std::int64_t bytes, Time now) noexcept {
  constexpr SpeedPolicy::Duration longestGap = seconds(1);
  const bool isSilent = requests > 1 && notedAt_ && bytes == bytes_;
  silence_ = isSilent ? silence_ + std::min(now - *notedAt_, longestGap) : SpeedPolicy::Duration(0);
  notedAt_ = now;
  bytes_ = bytes;
}

void BandwidthBudget::spend(std::int64_t bytes, Time now) noexcept {
  if (!isLimited()) return;
  using Seconds = std::chrono::duration<double>;
  constexpr Seconds longest = std::chrono::hours(24 * 365);  // within the range of the clock
  const auto begin = std::max(paidAt_, now - burst);
  const Seconds debt = std::max(begin - now, Time::duration::zero());
  const Seconds cost{static_cast<double>(bytes) / static_cast<double>(bytesPerSecond_)};
  const Seconds payable = std::min(cost, std::max(longest - debt, Seconds::zero()));
  paidAt_ = begin + std::chrono::duration_cast<Time::duration>(payable);
}

}  // namespace kiv
