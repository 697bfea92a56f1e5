#pragma once

#include <cstdint>
#include <list>
#include <optional>
#include <string>

#include "KivPlatform/Foundation/values/URL.h"
#include "KivPlatform/KivRESTService/KivRESTServiceRequest.h"

// What the host can change while transfers run, and the questions to its start condition and to its
// request handler.

namespace kiv {

/// What the host has set last.
struct TransferControls {
  bool isPaused = false;
  std::int64_t bandwidth = 0;  ///< In bytes per second; 0 for no limit.
  /// The host is asked before each start.
  bool hasStartCondition = false;
  /// Grows when the host's answers may have changed.
  std::uint64_t conditionVersion = 0;
  /// The host is asked for the headers of each request.
  bool hasRequestHandler = false;
  /// Grows when the handler is replaced.
  std::uint64_t handlerVersion = 0;
};

/// Whether a transfer may start. The task's ID identifies the question as well, since a download
/// has one at a time.
struct StartQuestion {
  std::uint64_t task = 0;  ///< The first of the tasks that share the transfer.
  URL url;                 ///< The URL that is about to be requested.
};

struct StartAnswer {
  std::uint64_t task = 0;
  /// TransferControls::conditionVersion from before the host was asked.
  std::uint64_t version = 0;
  bool mayStart = true;
};

/// A request that is about to be sent, to which the host may add headers.
struct RequestQuestion {
  std::uint64_t task = 0;    ///< The first of the tasks that share the transfer.
  std::uint64_t number = 0;  ///< Of the questions about that task.
  URL url;
  int tries = 0;
  int redirects = 0;
};

struct RequestAnswer {
  std::uint64_t task = 0;
  std::uint64_t number = 0;
  /// The handler has returned without an answer, which follows or is on its way.
  bool isPostponed = false;
  std::optional<KivRESTServiceRequest::Headers> headers;  ///< Nothing: the request is refused.
  std::string refusal;                                    ///< Why, if there is more to say.
};

/// A list, since a request that is destroyed without an answer passes on one where no memory may be
/// asked for.
using RequestAnswers = std::list<RequestAnswer>;

}  // namespace kiv
