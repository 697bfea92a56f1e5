#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <random>

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/KivRESTService/KivRESTServiceErrors.h"
#include "KivPlatform/KivRESTService/KivRESTServiceSettings.h"

namespace kiv {

/// True for the statuses and errors that may pass: the same server may bring the file later.
KIV_EXPORT bool isRetryable(std::int64_t statusCode) noexcept;
KIV_EXPORT bool isRetryable(KivRESTServiceErrorCode code) noexcept;

/// How long to wait before a server is asked again: exponential back-off with full jitter, so that
/// many clients that failed together do not come back together.
class KIV_EXPORT RetryPolicy {
 public:
  using Milliseconds = std::chrono::milliseconds;

  /// `settings` must outlive the policy; equal seeds give equal waits.
  RetryPolicy(const KivRESTServiceSettings& settings, std::uint32_t seed)
      : settings_(settings), random_(seed) {}

  /// The wait after that many failures in a row, at least one. `asked` is how long the server
  /// wants to be left alone.
  Milliseconds wait(int failures, std::optional<Milliseconds> asked);

 private:
  const KivRESTServiceSettings& settings_;
  std::mt19937 random_;
};

}  // namespace kiv
