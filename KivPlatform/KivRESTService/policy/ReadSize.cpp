// The prediction is a moving average, because consecutive files tend to be alike: icons after
// icons, videos after videos.

#include "KivPlatform/KivRESTService/policy/ReadSize.h"

#include <algorithm>

namespace kiv {

ReadSize::ReadSize(const TransferSettings& settings) noexcept : bandwidth_(settings.bandwidth) {}

void ReadSize::noteBody(std::int64_t bytes) noexcept {
  constexpr std::int64_t memory = 4;  // bodies, about
  usualBody_ += (std::min(bytes, most) - usualBody_) / memory;
}

std::int64_t ReadSize::bytes() const noexcept {
  // libcurl checks its speed limit only after a hundred reads, so a hundred must not bring more
  // than one second's worth.
  constexpr std::int64_t readsASecond = 100;
  constexpr std::int64_t leastWithLimit = 1024;
  if (bandwidth_ > 0) return std::clamp(bandwidth_ / readsASecond, leastWithLimit, most);
  constexpr std::int64_t least = std::int64_t{64} * 1024;
  constexpr std::int64_t headers = std::int64_t{4} * 1024;
  return std::clamp(usualBody_ + headers, least, most);
}

}  // namespace kiv
