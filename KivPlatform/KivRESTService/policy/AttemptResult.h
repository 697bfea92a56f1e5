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
  /// Those of the response, if it gave what was asked for.
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
  /// No connection could be made, for a reason that may lie with the server.
  bool isUnreachable = false;
  /// A connection was made, by a proxy at least.
  bool wasReached = false;
  /// Do not retry with this server, even if the failure is retryable.
  bool isLast = false;
  /// More of the body is kept for the next attempt than before.
  bool madeProgress = false;
  /// The kept part was unusable and is discarded: the attempt says nothing about the server.
  bool startsOver = false;
  /// A range request got nothing of the range: the next attempt asks for the whole file.
  bool restFailed = false;
  /// A whole body came over HTTP/2.
  bool cameOverHTTP2 = false;
  /// HTTP/2 was offered to the server, and its response came over HTTP/1.
  bool refusedHTTP2 = false;
  /// The request was offered to HTTP/2, and its transport failed: the file is requested over
  /// HTTP/1.1 from now on.
  bool failedOverHTTP2 = false;
  /// True if the next request is part of the same attempt. A body torn over HTTP/2 may be the fault
  /// of another stream. Not after a time-out: then the next server is asked first.
  [[nodiscard]] bool isRepeatedOverHTTP1() const {
    return failedOverHTTP2 && errorCode() != KivRESTServiceErrorCode::timedOut;
  }
  /// The server's Retry-After.
  std::optional<std::chrono::milliseconds> retryAfter;

  // For the task's metrics, if the attempt succeeded.
  std::int64_t resumedBytes = 0;
  std::chrono::microseconds timeToFirstByte{0};
  bool endedWithConnection = false;

  // What it says of the line to the server, if the attempt succeeded without a redirect.
  std::optional<std::chrono::microseconds> handshake;  // of TCP, for a new connection
  std::optional<std::chrono::microseconds> transfer;   // from the request to the end of the body
};

}  // namespace kiv
