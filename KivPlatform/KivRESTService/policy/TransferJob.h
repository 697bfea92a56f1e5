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

/// What the transfer threads need to know of a task. It never sees the task itself, which belongs
/// to the client's queue.
struct TransferJob {
  /// Names the task between the threads. Grows with every task of a client, so that it is also the
  /// order of queuing.
  std::uint64_t id = 0;
  std::uint64_t priority = 0;
  /// The URLs of the file: that of the request, then the mirrors.
  std::vector<URL> servers;
};

/// How a task, or one server's part in it, ended. Exactly one of response and error is there; the
/// body comes with a response of status 200 only.
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
