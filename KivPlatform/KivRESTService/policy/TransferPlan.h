#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

#include "KivPlatform/KivRESTService/policy/AttemptResult.h"
#include "KivPlatform/KivRESTService/policy/HostHealth.h"
#include "KivPlatform/KivRESTService/policy/RetryPolicy.h"

namespace kiv {

/// Decides which of a task's servers is tried next, and when, and which of their outcomes is the
/// task's.
///
/// After a retryable failure a server is tried again after a wait, and others meanwhile. The task's
/// outcome depends only on what each server answered and on their order in the list, not on the
/// order of the attempts.
class TransferPlan {
 public:
  using Time = std::chrono::steady_clock::time_point;

  struct Step {
    std::size_t server;  ///< Index in the list.
    Time notBefore;      ///< Time::max() if a probe has to end first.
  };

  /// `servers` is the number of servers in the list, the request's own first; at least one.
  TransferPlan(std::size_t servers, const TransferSettings& settings);

  /// The next attempt; nothing if the task has ended. Of the servers that may be tried now, one
  /// that is not avoided, with the fewest failures, and the first of those in the list. If all have
  /// to wait, the one with the shortest wait; a server that is being probed comes last.
  [[nodiscard]] std::optional<Step> next(
      Time now, const std::function<ServerState(std::size_t server)>& stateOf) const;
  /// True if this task may try that server now.
  [[nodiscard]] bool mayTry(std::size_t server, Time now) const;
  /// Records the result of an attempt at that server, which has just ended.
  void record(std::size_t server, AttemptResult result, RetryPolicy& policy, Time now);

  /// Ends the task with that outcome, whatever the attempts gave.
  void giveUp(TransferOutcome outcome) { givenUp_ = std::move(outcome); }

  /// The task's outcome: the first success; otherwise the last response of the earliest server in
  /// the list that gave one; otherwise the error of the request's own server. To be called once,
  /// when nothing is left to try.
  [[nodiscard]] TransferOutcome takeOutcome();
  /// The server whose outcome that is.
  [[nodiscard]] std::size_t decisiveServer() const noexcept;

 private:
  struct Server {
    std::optional<TransferOutcome> outcome;  // of the last attempt
    int tries = 0;                           // without those that only discarded a part
    int spent = 0;                           // of these, those that count against the limit
    int failures = 0;                        // consecutive, without progress
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
