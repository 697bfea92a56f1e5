#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <utility>

#include "KivPlatform/Foundation/values/Data.h"
#include "KivPlatform/Foundation/values/Error.h"
#include "KivPlatform/KivRESTService/KivRESTServiceErrors.h"
#include "KivPlatform/KivRESTService/KivRESTServiceValidators.h"

namespace kiv {

/// How a task, or an attempt, ended: with the status of a response, or with an error. The body is
/// set with status 200 only.
struct TransferOutcome {
  std::optional<std::int64_t> status;
  std::optional<Error> error;
  std::optional<Data> body;
  /// The answer to a conditional request: the file has not changed.
  bool isUnchanged = false;
  /// The validators of the response, if it gave what was asked for.
  std::optional<KivRESTServiceValidators> validators = {};

  /// True if the server gave what was asked for.
  [[nodiscard]] bool isSuccess() const noexcept { return body || isUnchanged; }

  static TransferOutcome succeeded(Data body) { return {200, std::nullopt, std::move(body)}; }
  static TransferOutcome answered(std::int64_t status) {
    return {status, std::nullopt, std::nullopt};
  }
  static TransferOutcome unchanged() { return {304, std::nullopt, std::nullopt, true}; }
  static TransferOutcome failed(Error error) {
    return {std::nullopt, std::move(error), std::nullopt};
  }
};

/// How one attempt at one server ended, with what the next attempt needs to know.
struct AttemptResult {
  explicit AttemptResult(TransferOutcome attemptOutcome) : outcome(std::move(attemptOutcome)) {}

  /// The transfer error, if the attempt failed with one.
  [[nodiscard]] std::optional<KivRESTServiceErrorCode> errorCode() const {
    if (!outcome.error) return std::nullopt;
    return static_cast<KivRESTServiceErrorCode>(outcome.error->code);
  }

  TransferOutcome outcome;
  /// No connection could be made, and the server may be the reason.
  bool isUnreachable = false;
  /// A connection was made, at least to a proxy.
  bool wasReached = false;
  /// Do not try this server again, even if the failure is retryable.
  bool isLast = false;
  /// More of the body is kept for the next attempt than before this one.
  bool madeProgress = false;
  /// The partial body was unusable and has been discarded. The attempt says nothing about the
  /// server.
  bool startsOver = false;
  /// A range request got no part of the range: the next attempt asks for the whole file.
  bool rangeFailed = false;
  /// A whole body came over HTTP/2.
  bool cameOverHTTP2 = false;
  /// HTTP/2 was offered to the server, and its response came over HTTP/1.
  bool refusedHTTP2 = false;
  /// The request used or offered HTTP/2, and the connection failed: from now on the file is
  /// requested over HTTP/1.1.
  bool failedOverHTTP2 = false;
  /// True if the request is repeated over HTTP/1.1 within the same attempt, since another stream
  /// may be to blame for the failure. Not after a time-out: then other servers are tried first.
  [[nodiscard]] bool isRepeatedOverHTTP1() const {
    return failedOverHTTP2 && errorCode() != KivRESTServiceErrorCode::timedOut;
  }
  /// The server's Retry-After.
  std::optional<std::chrono::milliseconds> retryAfter;

  // For the task's metrics.
  std::int64_t resumedBytes = 0;
  std::chrono::microseconds timeToFirstByte{0};
  bool endedWithConnection = false;

  // What it tells about the line to the server, if the attempt succeeded without a redirect.
  std::optional<std::chrono::microseconds> handshake;  // of TCP; for a new connection
  std::optional<std::chrono::microseconds> transfer;   // from the request to the end of the body
};

}  // namespace kiv
