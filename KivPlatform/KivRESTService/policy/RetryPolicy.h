#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <random>

#include "KivPlatform/KivRESTService/KivRESTServiceErrors.h"
#include "KivPlatform/KivRESTService/policy/TransferSettings.h"

namespace kiv {

/// True for statuses and errors after which the same request may succeed later.
bool isRetryable(std::int64_t statusCode) noexcept;
bool isRetryable(KivRESTServiceErrorCode code) noexcept;

/// The wait before a retry: exponential back-off with full jitter, so that clients that failed
/// together do not come back together.
class RetryPolicy {
 public:
  using Milliseconds = std::chrono::milliseconds;

  /// `settings` must outlive the policy. Equal seeds give equal waits.
  RetryPolicy(const TransferSettings& settings, std::uint32_t seed)
      : settings_(settings), random_(seed) {}

  /// The wait after that many consecutive failures, at least one. `asked` is the server's
  /// Retry-After.
  Milliseconds wait(int failures, std::optional<Milliseconds> asked);

 private:
  const TransferSettings& settings_;
  std::mt19937 random_;
};

}  // namespace kiv
