#include "KivPlatform/KivRESTService/policy/BandwidthBudget.h"

#include <algorithm>

namespace kiv {

void BandwidthBudget::spend(std::int64_t bytes, Time now) noexcept {
  if (!isLimited()) return;
  using Seconds = std::chrono::duration<double>;
  constexpr Seconds longest = std::chrono::hours(24 * 365);  // which the clock can still add
  const auto begin = std::max(paidAt_, now - burst);
  const Seconds debt = std::max(begin - now, Time::duration::zero());
  const Seconds cost{static_cast<double>(bytes) / static_cast<double>(bytesPerSecond_)};
  const Seconds payable = std::min(cost, std::max(longest - debt, Seconds::zero()));
  paidAt_ = begin + std::chrono::duration_cast<Time::duration>(payable);
}

}  // namespace kiv
