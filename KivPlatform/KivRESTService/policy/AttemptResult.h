#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <utility>

#include "KivPlatform/KivRESTService/KivRESTServiceErrors.h"
#include "KivPlatform/KivRESTService/policy/TransferJob.h"

namespace kiv {

/// How one try at one server ended, with what the next one needs to know.
struct AttemptResult {
  explicit AttemptResult(TransferOutcome attemptOutcome) : outcome(std::move(attemptOutcome)) {}

  /// Where the file did not come: the reason, as far as it is a transfer error.
  [[nodiscard]] std::optional<KivRESTServiceErrorCode> errorCode() const {
    if (!outcome.error) return std::nullopt;
    return static_cast<KivRESTServiceErrorCode>(outcome.error->code);
  }

  TransferOutcome outcome;
  /// No connection to the server came about, for a reason that may lie with the server.
  bool isUnreachable = false;
  /// The server has been sent the request.
  bool wasReached = false;
  /// A try that may pass is not to be repeated with that server all the same.
  bool isLast = false;
  /// More of the file is kept for the next try than there was before.
  bool madeProgress = false;
  /// What was kept of the file has turned out to be of no use, and is gone: the try says nothing
  /// about the server.
  bool startsOver = false;
  /// The try asked for the rest of the file and got none of it: the next one asks for the whole.
  bool restFailed = false;
  /// The server wants to be left alone for this long.
  std::optional<std::chrono::milliseconds> retryAfter;

  // What the task's metrics take over from a try that brought the file.
  std::int64_t resumedBytes = 0;
  std::chrono::microseconds timeToFirstByte{0};
  bool endedWithConnection = false;
};

}  // namespace kiv
