// 408 and 503 (RFC 9110) and 429 (RFC 6585) invite a retry, and 500, 502 and 504 are often
// temporary. After any other status, the same request would get the same response.

#include "KivPlatform/KivRESTService/policy/RetryPolicy.h"

#include <algorithm>

namespace kiv {

bool isRetryable(std::int64_t statusCode) noexcept {
  switch (statusCode) {
    case 408:  // Request Timeout
    case 429:  // Too Many Requests
    case 500:
    case 502:
    case 503:
    case 504:
      return true;
    default:
      return false;
  }
}

bool isRetryable(KivRESTServiceErrorCode code) noexcept {
  using Code = KivRESTServiceErrorCode;
  return code == Code::cannotConnect || code == Code::timedOut || code == Code::connectionLost;
}

RetryPolicy::Milliseconds RetryPolicy::wait(int failures, std::optional<Milliseconds> asked) {
  const auto longest = std::max(settings_.longestRetryDelay, Milliseconds{0});
  auto bound = std::clamp(settings_.firstRetryDelay, Milliseconds{0}, longest);
  for (int failure = 1; failure < failures && bound < longest; ++failure)
    bound = std::min(2 * bound, longest);
  std::uniform_int_distribution<Milliseconds::rep> chance(0, bound.count());
  const Milliseconds own(chance(random_));
  if (!asked) return own;
  return std::max(own, std::min(*asked, settings_.longestRetryAfter));
}

}  // namespace kiv
