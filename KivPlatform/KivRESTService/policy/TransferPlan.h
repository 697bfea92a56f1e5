#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/KivRESTService/policy/AttemptResult.h"
#include "KivPlatform/KivRESTService/policy/HostHealth.h"
#include "KivPlatform/KivRESTService/policy/RetryPolicy.h"

namespace kiv {

/// Decides which of a task's servers is tried next, and when, and which of their outcomes the task
/// ends with.
///
/// A server that failed for a reason that may pass is tried again after a wait; meanwhile the
/// others are. What a task ends with depends on what each server answered and on their order in the
/// list alone, not on the order in which they were tried.
class KIV_EXPORT TransferPlan {
 public:
  using Time = std::chrono::steady_clock::time_point;

  struct Step {
    std::size_t server;  ///< The place in the list.
    Time notBefore;      ///< Time::max() where a probe has to end first.
  };

  /// `servers` is the number of servers in the list, the request's own first; at least one.
  TransferPlan(std::size_t servers, const KivRESTServiceSettings& settings);

  /// What to try next; nothing where the task has ended. Of the servers that may be tried now those
  /// come first that are not avoided, of these those that have failed least often, and of these the
  /// first in the list; where all must wait, the one that waits least. One that is being probed
  /// waits longest.
  [[nodiscard]] std::optional<Step> next(
      Time now, const std::function<ServerState(std::size_t server)>& stateOf) const;
  /// True where that server may be tried now, as far as this task is concerned.
  [[nodiscard]] bool mayTry(std::size_t server, Time now) const;
  /// Notes how the try of that server, which ended now, came out.
  void record(std::size_t server, AttemptResult result, RetryPolicy& policy, Time now);

  /// Nothing more is to be tried: the task ends with that, whatever the tries came to.
  void giveUp(TransferOutcome outcome) { givenUp_ = std::move(outcome); }

  /// What the task ends with, where it was not given up: the first 200; else the response that the
  /// earliest server gave last; else the error of the request's own server. To be asked once, when
  /// nothing is left to try.
  [[nodiscard]] TransferOutcome takeOutcome();
  /// The server whose outcome that is.
  [[nodiscard]] std::size_t decisiveServer() const noexcept;

 private:
  struct Server {
    std::optional<TransferOutcome> outcome;  // of the last try
    int tries = 0;                           // but for those that only started over
    int spent = 0;                           // of these, those that count
    int failures = 0;                        // in a row without progress
    Time notBefore{};
    bool isDone = false;
  };

  [[nodiscard]] bool isOver() const noexcept {
    return success_ || givenUp_ || tries_ >= triesInAll_;
  }

  const int triesPerServer_;
  const int triesInAll_;
  std::vector<Server> servers_;
  int tries_ = 0;
  std::optional<std::size_t> success_;
  std::optional<TransferOutcome> givenUp_;
};

}  // namespace kiv
