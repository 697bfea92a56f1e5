#pragma once

#include <cstdint>
#include <list>
#include <optional>
#include <string>

#include "KivPlatform/Foundation/values/URL.h"
#include "KivPlatform/KivRESTService/KivRESTServiceRequest.h"

// What the host can change while transfers run, and the questions to its start condition and its
// request handler.

namespace kiv {

/// The latest settings of the host.
struct TransferControls {
  bool isPaused = false;
  std::int64_t bandwidth = 0;  ///< In bytes per second; 0 for no limit.
  /// The start condition is asked before each start.
  bool hasStartCondition = false;
  /// Grows when the host's answers may have changed.
  std::uint64_t conditionVersion = 0;
  /// The host is asked for the headers of each request.
  bool hasRequestHandler = false;
  /// Grows when the handler is replaced.
  std::uint64_t handlerVersion = 0;
};

/// Asks whether a transfer may start. A download has one such question at a time, so the task's ID
/// identifies it.
struct StartQuestion {
  std::uint64_t task = 0;  ///< The first of the tasks that share the transfer.
  URL url;                 ///< The URL that is about to be requested.
};

struct StartAnswer {
  std::uint64_t task = 0;
  /// TransferControls::conditionVersion before the host was asked.
  std::uint64_t version = 0;
  bool mayStart = true;
};

/// A request that is about to be sent, to which the host may add headers.
struct RequestQuestion {
  std::uint64_t task = 0;    ///< The first of the tasks that share the transfer.
  std::uint64_t number = 0;  ///< Counts the questions about that task.
  URL url;
  int tries = 0;
  int redirects = 0;
};

struct RequestAnswer {
  std::uint64_t task = 0;
  std::uint64_t number = 0;
  /// The handler has returned; unless it has answered already, the answer comes later.
  bool isPostponed = false;
  std::optional<KivRESTServiceRequest::Headers> headers;  ///< Nothing: the request is refused.
  std::string refusal;                                    ///< The host's reason, if it gave one.
};

/// A list, so that the destructor of an unanswered request can pass on its answer without
/// allocating.
using RequestAnswers = std::list<RequestAnswer>;

}  // namespace kiv
