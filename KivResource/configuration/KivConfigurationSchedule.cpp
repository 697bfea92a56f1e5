// Pure arithmetic without a clock. Hosts that were started together, or that lost one server
// together, must not come back together.

#include "KivResource/configuration/KivConfigurationSchedule.h"

#include <algorithm>
#include <utility>

namespace kiv {

namespace {

/// A number that is none counts as 0.
double fractionFrom(double number) noexcept {
  return number > 0 ? std::min(number, 1.0) : 0.0;
}

/// Compared in seconds, since the longest of them do not fit into milliseconds.
ConfigurationSchedule::Milliseconds bounded(std::chrono::seconds interval) noexcept {
  constexpr auto longest =
      std::chrono::duration_cast<std::chrono::seconds>(ConfigurationSchedule::longestInterval);
  return std::clamp(interval, std::chrono::seconds(0), longest);
}

}  // namespace

ConfigurationSchedule::ConfigurationSchedule(std::chrono::seconds interval, double jitter,
                                             std::uint32_t seed)
    : interval_(bounded(interval)), jitter_(fractionFrom(jitter)), random_(seed) {}

std::optional<ConfigurationSchedule::Milliseconds> ConfigurationSchedule::next(bool hasFailed) {
  if (interval_ <= Milliseconds(0)) return std::nullopt;
  Milliseconds wait = interval_;
  if (hasFailed) {
    wait = std::min(retry_, interval_);
    retry_ = std::min(2 * retry_, longestInterval);
  } else {
    retry_ = firstRetry;
  }
  const auto most = static_cast<double>(wait.count()) * jitter_;
  std::uniform_int_distribution<Milliseconds::rep> chance(0, static_cast<Milliseconds::rep>(most));
  return wait + Milliseconds(chance(random_));
}

}  // namespace kiv
