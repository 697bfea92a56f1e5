// Only decisions, without clock and network, so that tests can play every order of responses.

#include "KivPlatform/KivRESTService/policy/TransferPlan.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace kiv {

namespace {

bool isPassing(const AttemptResult& result) {
  if (const auto code = result.errorCode()) return isRetryable(*code);
  return result.outcome.status && isRetryable(*result.outcome.status);
}

}  // namespace

TransferPlan::TransferPlan(std::size_t servers, const TransferSettings& settings)
    : triesPerServer_(std::max(1, settings.triesPerServer)),
      triesInAll_(std::max(1, settings.triesInAll)),
      servers_(servers) {}

std::optional<TransferPlan::Step> TransferPlan::next(
    Time now, const std::function<ServerState(std::size_t server)>& stateOf) const {
  if (isOver()) return std::nullopt;
  // Servers that can be tried now come first, then healthy ones, then those with fewer attempts.
  using Rank = std::tuple<Time, ServerState, int>;
  std::optional<Rank> best;
  std::optional<Step> step;
  for (std::size_t place = 0; place < servers_.size(); ++place) {
    const Server& server = servers_[place];
    if (server.isDone) continue;
    const ServerState state = stateOf(place);
    const Time notBefore = state == ServerState::probed ? Time::max() : server.notBefore;
    const Rank rank{std::max(now, notBefore), state, server.tries};
    if (best && *best <= rank) continue;
    best = rank;
    step = Step{place, notBefore};
  }
  return step;
}

bool TransferPlan::mayTry(std::size_t server, Time now) const {
  return !isOver() && !servers_[server].isDone && servers_[server].notBefore <= now;
}

void TransferPlan::record(std::size_t server, AttemptResult result, RetryPolicy& policy, Time now) {
  Server& tried = servers_[server];
  ++tries_;
  if (result.outcome.isSuccess()) success_ = server;
  // A final failure of a range request may not be final for the whole file.
  const bool startsOver = result.startsOver || (result.rangeFailed && !isPassing(result));
  if (!startsOver) ++tried.tries;
  if (startsOver) {
    tried.notBefore = now;
  } else if (isPassing(result)) {
    // A failure over HTTP/2 does not count: the body may have waited for those of other streams.
    if (!result.madeProgress && !result.failedOverHTTP2) ++tried.spent;
    tried.failures = result.madeProgress ? 1 : tried.failures + 1;
    tried.notBefore = now + policy.wait(tried.failures, result.retryAfter);
    const bool isSpent = tried.spent >= triesPerServer_ && !result.rangeFailed;
    tried.isDone = result.isLast || isSpent;
  } else {
    tried.isDone = true;
  }
  tried.outcome = std::move(result.outcome);
}

std::size_t TransferPlan::decisiveServer() const noexcept {
  if (success_) return *success_;
  const auto placeOf = [this](auto isIt) {
    return static_cast<std::size_t>(std::find_if(servers_.begin(), servers_.end(), isIt) -
                                    servers_.begin());
  };
  const auto answered = placeOf(
      [](const Server& server) { return server.outcome && server.outcome->status.has_value(); });
  if (answered < servers_.size()) return answered;
  // Not always the first server: if another one used up all attempts, the first was never tried.
  return placeOf([](const Server& server) { return server.outcome.has_value(); });
}

TransferOutcome TransferPlan::takeOutcome() {
  return std::move(givenUp_ ? *givenUp_ : *servers_[decisiveServer()].outcome);
}

}  // namespace kiv
