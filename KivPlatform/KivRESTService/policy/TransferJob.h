#pragma once

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "KivPlatform/Foundation/values/Data.h"
#include "KivPlatform/Foundation/values/Error.h"
#include "KivPlatform/Foundation/values/URL.h"
#include "KivPlatform/KivRESTService/KivRESTServiceTask.h"

namespace kiv {

/// What the transfer threads know of a task. They never see the task itself, which belongs to the
/// client's queue.
struct TransferJob {
  /// The task's ID. IDs increase, so they are also the order of queuing.
  std::uint64_t id = 0;
  std::uint64_t priority = 0;
  /// The URLs of the file: the request's, then the mirrors.
  std::vector<URL> servers;
};

/// How a task, or an attempt, ended. Exactly one of response and error is set; the body only with
/// status 200.
struct TransferOutcome {
  std::optional<HTTPResponse> response;
  std::optional<Error> error;
  std::optional<Data> body;

  static TransferOutcome succeeded(Data body) {
    return {HTTPResponse(200), std::nullopt, std::move(body)};
  }
  static TransferOutcome answered(std::int64_t statusCode) {
    return {HTTPResponse(statusCode), std::nullopt, std::nullopt};
  }
  static TransferOutcome failed(Error error) {
    return {std::nullopt, std::move(error), std::nullopt};
  }
};

}  // namespace kiv
