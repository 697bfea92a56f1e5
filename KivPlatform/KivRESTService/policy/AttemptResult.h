#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <utility>

#include "KivPlatform/KivRESTService/KivRESTServiceErrors.h"
#include "KivPlatform/KivRESTService/policy/TransferJob.h"

namespace kiv {

/// How one attempt at one server ended, with what the next attempt needs to know.
struct AttemptResult {
  explicit AttemptResult(TransferOutcome attemptOutcome) : outcome(std::move(attemptOutcome)) {}

  /// The transfer error, if the attempt failed with one.
  [[nodiscard]] std::optional<KivRESTServiceErrorCode> errorCode() const {
    if (!outcome.error) return std::nullopt;
    return static_cast<KivRESTServiceErrorCode>(outcome.error->code);
  }

  TransferOutcome outcome;
  /// No connection could be made, for a reason that may lie with the server.
  bool isUnreachable = false;
  /// The request was sent.
  bool wasReached = false;
  /// Do not retry with this server, even if the failure is retryable.
  bool isLast = false;
  /// More of the body is kept for the next attempt than before.
  bool madeProgress = false;
  /// The kept part was unusable and is discarded: the attempt says nothing about the server.
  bool startsOver = false;
  /// A range request got nothing of the range: the next attempt asks for the whole file.
  bool restFailed = false;
  /// The server's Retry-After.
  std::optional<std::chrono::milliseconds> retryAfter;

  // For the task's metrics, if the attempt succeeded.
  std::int64_t resumedBytes = 0;
  std::chrono::microseconds timeToFirstByte{0};
  bool endedWithConnection = false;
};

}  // namespace kiv
