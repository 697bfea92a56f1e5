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

/// Decides which of a task's servers is tried next and when, and which of their outcomes becomes
/// the task's.
///
/// After a retryable failure a server is tried again after a wait, and other servers meanwhile. The
/// task's outcome depends only on what each server answered and on their order in the list, not on
/// the order of the attempts.
class TransferPlan {
 public:
  using Time = std::chrono::steady_clock::time_point;

  struct Step {
    std::size_t server;  ///< Index in the list.
    Time notBefore;      ///< Time::max() stands for the end of the server's probe.
  };

  /// `servers` is the number of servers in the list, the request's own first; at least one.
  TransferPlan(std::size_t servers, const TransferSettings& settings);

  /// The next attempt; nothing if the task has ended. Servers that may be tried now come before
  /// those that have to wait, of which the one with the shortest wait comes first. Among equals,
  /// those that are not avoided come first, then those with fewer attempts, then those earlier in
  /// the list. A server that is being probed comes last.
  [[nodiscard]] std::optional<Step> next(
      Time now, const std::function<ServerState(std::size_t server)>& stateOf) const;
  /// True if this task may try that server now.
  [[nodiscard]] bool mayTry(std::size_t server, Time now) const;
  /// Records the result of an attempt at that server.
  void record(std::size_t server, AttemptResult result, RetryPolicy& policy, Time now);

  /// Ends the task with that outcome, whatever the attempts have given.
  void giveUp(TransferOutcome outcome) { givenUp_ = std::move(outcome); }

  /// The task's outcome: that of giveUp(); otherwise a success; otherwise the response of the
  /// earliest server in the list whose last attempt got one; otherwise the error of the earliest
  /// server that was tried. To be called once, when nothing is left to try.
  [[nodiscard]] TransferOutcome takeOutcome();
  /// The server with that outcome.
  [[nodiscard]] std::size_t decisiveServer() const noexcept;

 private:
  struct Server {
    std::optional<TransferOutcome> outcome;  // of the last attempt
    int tries = 0;     // not counting those that only discarded a partial body
    int spent = 0;     // of these, those that count against triesPerServer_
    int failures = 0;  // since the last progress, with that attempt
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
