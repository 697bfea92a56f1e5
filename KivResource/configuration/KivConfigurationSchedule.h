#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <random>

namespace kiv {

/// Decides how long to wait for the next check.
class ConfigurationSchedule {
 public:
  using Milliseconds = std::chrono::milliseconds;

  /// After a failed check the next one comes sooner than usual: after a minute, and after twice as
  /// long with each further failure.
  static constexpr Milliseconds firstRetry = std::chrono::minutes(1);
  static constexpr Milliseconds longestInterval = std::chrono::hours(24 * 366);

  /// `interval` is the least time between two checks; without one, nothing is planned. Each wait is
  /// longer by a random part of it, up to the fraction `jitter`, between 0 and 1. Equal seeds give
  /// equal waits.
  ConfigurationSchedule(std::chrono::seconds interval, double jitter, std::uint32_t seed);

  /// The wait after a check; nothing if there is no interval.
  [[nodiscard]] std::optional<Milliseconds> next(bool hasFailed);

 private:
  const Milliseconds interval_;
  const double jitter_;
  std::mt19937 random_;
  Milliseconds retry_ = firstRetry;
};

}  // namespace kiv
