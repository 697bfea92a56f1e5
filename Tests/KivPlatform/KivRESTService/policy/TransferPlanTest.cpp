#include <algorithm>
#include <chrono>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "KivPlatform/KivRESTService/policy/TransferPlan.h"
#include "KivPlatform/KivRESTService/policy/TransferSettings.h"

namespace {

using namespace std::chrono_literals;
using kiv::Data;
using kiv::Error;
using kiv::ServerState;
using kiv::TransferOutcome;
using kiv::TransferPlan;

TransferOutcome failed(KivRESTServiceErrorCode code) {
  return TransferOutcome::failed(
      Error(KivRESTServiceErrorDomain, static_cast<std::int64_t>(code), "failed"));
}

/// Executes a plan with a simulated clock that advances to the end of each wait.
struct Walk {
  Walk(std::size_t servers, kiv::TransferSettings chosen)
      : settings(std::move(chosen)), plan(servers, settings), policy(settings, 1) {}

  std::optional<std::size_t> next() {
    const auto step = plan.next(now, [this](std::size_t server) {
      if (probed.contains(server)) return ServerState::probed;
      return avoided.contains(server) ? ServerState::avoided : ServerState::good;
    });
    if (!step) return std::nullopt;
    if (step->notBefore > now) {
      waits.push_back(std::chrono::duration_cast<std::chrono::milliseconds>(step->notBefore - now));
      now = step->notBefore;
    }
    order.push_back(step->server);
    return step->server;
  }
  /// Records the result of the last attempt.
  void record(kiv::AttemptResult result) {
    plan.record(order.back(), std::move(result), policy, now);
  }
  void record(TransferOutcome outcome) { record(kiv::AttemptResult(std::move(outcome))); }

  const kiv::TransferSettings settings;
  TransferPlan plan;
  kiv::RetryPolicy policy;
  TransferPlan::Time now{1h};
  std::set<std::size_t> avoided;
  std::set<std::size_t> probed;
  std::vector<std::size_t> order;
  std::vector<std::chrono::milliseconds> waits;
};

/// "200" is a success whose body is the index of the server, any other number a response with that
/// status, "E" an error with the index as its code, and "lost" a lost connection.
TransferOutcome outcome(const std::string& sort, std::size_t server) {
  if (sort == "lost") return failed(KivRESTServiceErrorCode::connectionLost);
  if (sort == "200") return TransferOutcome::succeeded(Data(std::to_string(server)));
  if (sort == "E")
    return TransferOutcome::failed(Error("test", static_cast<int>(server), "broken"));
  return TransferOutcome::answered(std::stoi(sort));
}

std::string describe(const TransferOutcome& outcome) {
  if (outcome.error) return "error of " + std::to_string(outcome.error->code);
  if (!outcome.body) return std::to_string(*outcome.status);
  return "body of " + std::string(outcome.body->view());
}

struct PlanCase {
  const char* name;
  std::vector<std::string> servers;
  std::vector<std::size_t> tried;
  const char* result;
};

class TransferPlanTable : public testing::TestWithParam<PlanCase> {};

TEST_P(TransferPlanTable, EndsWith) {
  const auto& [name, servers, tried, result] = GetParam();
  kiv::TransferSettings settings;
  settings.triesPerServer = 1;
  Walk walk(servers.size(), settings);
  while (const auto server = walk.next())
    walk.record(outcome(servers[*server], *server));
  TransferPlan& plan = walk.plan;
  EXPECT_EQ(walk.order, tried);
  EXPECT_EQ(describe(plan.takeOutcome()), result);
}

INSTANTIATE_TEST_SUITE_P(
    All, TransferPlanTable,
    testing::Values(PlanCase{"MainSucceeds", {"200", "200"}, {0}, "body of 0"},
                    PlanCase{"MirrorSucceedsAfterError", {"E", "200"}, {0, 1}, "body of 1"},
                    PlanCase{"MirrorSucceedsAfterStatus", {"404", "200"}, {0, 1}, "body of 1"},
                    PlanCase{"SecondMirrorSucceeds", {"E", "500", "200"}, {0, 1, 2}, "body of 2"},
                    PlanCase{"MainStatusBeforeMirrorStatus", {"404", "500"}, {0, 1}, "404"},
                    PlanCase{"MainStatusBeforeMirrorError", {"404", "E"}, {0, 1}, "404"},
                    PlanCase{"MirrorStatusBeforeMainError", {"E", "503"}, {0, 1}, "503"},
                    PlanCase{"EarlierMirrorStatus", {"E", "404", "500"}, {0, 1, 2}, "404"},
                    PlanCase{"MainErrorOfAllErrors", {"E", "E", "E"}, {0, 1, 2}, "error of 0"},
                    PlanCase{"OneServerFails", {"E"}, {0}, "error of 0"},
                    PlanCase{"OneServerAnswers", {"206"}, {0}, "206"}),
    [](const auto& testCase) { return std::string(testCase.param.name); });

using Order = std::vector<std::size_t>;

TEST(TransferPlan, OneThatIsGivenUpEndsWithThatWhateverTheServersAnswered) {
  Walk walk(2, {});
  walk.next();
  walk.record(outcome("404", 0));
  walk.plan.giveUp(outcome("E", 7));
  EXPECT_EQ(walk.next(), std::nullopt);
  EXPECT_FALSE(walk.plan.mayTry(1, walk.now));
  EXPECT_EQ(describe(walk.plan.takeOutcome()), "error of 7");
}

TEST(TransferPlan, TheOutcomeDoesNotDependOnTheOrderOfTrying) {
  kiv::TransferSettings settings;
  TransferPlan plan(3, settings);
  kiv::RetryPolicy policy(settings, 1);
  plan.record(2, kiv::AttemptResult(outcome("501", 2)), policy, {});
  plan.record(1, kiv::AttemptResult(outcome("404", 1)), policy, {});
  plan.record(0, kiv::AttemptResult(outcome("E", 0)), policy, {});
  EXPECT_FALSE(plan.next({}, [](std::size_t) { return ServerState::good; }));
  EXPECT_EQ(describe(plan.takeOutcome()), "404");
}

TEST(TransferPlan, AnEmptyBodyIsASuccess) {
  Walk walk(2, {});
  walk.next();
  walk.record(TransferOutcome::succeeded(Data()));
  EXPECT_FALSE(walk.next());
  const auto result = walk.plan.takeOutcome();
  ASSERT_TRUE(result.body);
  EXPECT_TRUE(result.body->empty());
}

TEST(TransferPlan, WhatMayPassIsTriedThreeTimesAServer) {
  Walk walk(2, {});
  while (const auto server = walk.next())
    walk.record(outcome(*server == 0 ? "503" : "lost", *server));
  // The plan uses the mirror while the main server is waiting for its retry.
  EXPECT_EQ(std::count(walk.order.begin(), walk.order.end(), 0U), 3);
  EXPECT_EQ(std::count(walk.order.begin(), walk.order.end(), 1U), 3);
  EXPECT_EQ(walk.order[0], 0U);
  EXPECT_EQ(walk.order[1], 1U);
  EXPECT_EQ(describe(walk.plan.takeOutcome()), "503");
}

TEST(TransferPlan, WhatCannotPassIsTriedOnce) {
  for (const char* const sort : {"400", "403", "404", "410", "501", "505", "E"}) {
    Walk walk(1, {});
    while (walk.next())
      walk.record(outcome(sort, 0));
    EXPECT_EQ(walk.order.size(), 1U) << sort;
  }
}

TEST(TransferPlan, TheServerThatCanBeTriedNowComesBeforeTheOneThatWaits) {
  kiv::TransferSettings settings;
  settings.firstRetryDelay = 1000ms;
  Walk walk(2, settings);
  walk.next();
  walk.record(outcome("500", 0));
  EXPECT_EQ(walk.next(), 1U);
  EXPECT_TRUE(walk.waits.empty());
  walk.record(outcome("404", 1));
  EXPECT_EQ(walk.next(), 0U);
}

TEST(TransferPlan, ALaterSuccessOfTheMainServerCounts) {
  Walk walk(2, {});
  walk.next();
  walk.record(outcome("503", 0));
  walk.next();
  walk.record(outcome("404", 1));
  ASSERT_EQ(walk.next(), 0U);
  walk.record(outcome("200", 0));
  EXPECT_FALSE(walk.next());
  EXPECT_EQ(describe(walk.plan.takeOutcome()), "body of 0");
}

TEST(TransferPlan, ATryThatMadeProgressIsNotSpentUpToTenInAll) {
  Walk walk(1, {});
  while (walk.next()) {
    kiv::AttemptResult result(outcome("lost", 0));
    result.madeProgress = true;
    walk.record(std::move(result));
  }
  EXPECT_EQ(walk.order.size(), 10U);
}

TEST(TransferPlan, AFailureOverHTTP2IsNotSpent) {
  Walk walk(1, {});
  walk.next();
  kiv::AttemptResult result(outcome("lost", 0));
  result.failedOverHTTP2 = true;
  walk.record(std::move(result));
  while (walk.next())
    walk.record(kiv::AttemptResult(outcome("lost", 0)));
  EXPECT_EQ(walk.order.size(), 4U);
}

TEST(TransferPlan, ProgressBeginsTheWaitsAnew) {
  kiv::TransferSettings settings;
  settings.firstRetryDelay = 100ms;
  Walk walk(1, settings);
  while (walk.next()) {
    kiv::AttemptResult result(outcome("lost", 0));
    result.madeProgress = true;
    walk.record(std::move(result));
  }
  for (const auto wait : walk.waits)
    EXPECT_LE(wait, 100ms);
}

TEST(TransferPlan, StartingOverIsNotSpentAndComesAtOnce) {
  Walk walk(1, {});
  walk.next();
  kiv::AttemptResult result(outcome("416", 0));
  result.startsOver = true;
  walk.record(std::move(result));
  ASSERT_EQ(walk.next(), 0U);
  EXPECT_TRUE(walk.waits.empty());
}

/// The number of attempts with a server that gives the first response to a range request and the
/// second one to all later requests.
std::size_t triesAfterARest(const std::string& toTheRest, const std::string& later, int allowed) {
  kiv::TransferSettings settings;
  settings.triesPerServer = allowed;
  Walk walk(1, settings);
  walk.next();
  kiv::AttemptResult result(outcome(toTheRest, 0));
  result.rangeFailed = true;
  walk.record(std::move(result));
  while (walk.next())
    walk.record(outcome(later, 0));
  return walk.order.size();
}

TEST(TransferPlan, TheWholeIsAskedForAfterARestThatDidNotCome) {
  EXPECT_EQ(triesAfterARest("503", "200", 1), 2U);
  EXPECT_EQ(triesAfterARest("lost", "200", 1), 2U);
  EXPECT_EQ(triesAfterARest("403", "200", 1), 2U);
  EXPECT_EQ(triesAfterARest("E", "200", 1), 2U);
}

TEST(TransferPlan, ARestThatDidNotComeIsSpentWhereItMayPass) {
  EXPECT_EQ(triesAfterARest("503", "503", 3), 3U);
  EXPECT_EQ(triesAfterARest("503", "503", 1), 2U);
  EXPECT_EQ(triesAfterARest("403", "503", 3), 4U);
  EXPECT_EQ(triesAfterARest("403", "403", 3), 2U);
}

TEST(TransferPlan, TheWholeIsAskedForAtOnceWhereTheAnswerCannotPass) {
  kiv::TransferSettings settings;
  settings.firstRetryDelay = 1000ms;
  Walk walk(1, settings);
  walk.next();
  kiv::AttemptResult result(outcome("403", 0));
  result.rangeFailed = true;
  walk.record(std::move(result));
  EXPECT_EQ(walk.next(), 0U);
  EXPECT_TRUE(walk.waits.empty());
}

TEST(TransferPlan, AnAvoidedServerComesLastButComes) {
  Walk walk(3, {});
  walk.avoided = {0};
  for (int count = 0; count < 3; ++count) {
    const auto server = walk.next();
    ASSERT_TRUE(server);
    walk.record(outcome("404", *server));
  }
  EXPECT_EQ(walk.order, (Order{1, 2, 0}));
  EXPECT_FALSE(walk.next());
}

TEST(TransferPlan, OneThatIsProbedComesAfterEveryOther) {
  Walk walk(3, {});
  walk.probed = {0};
  walk.avoided = {1};
  EXPECT_EQ(walk.next(), 2U);
  walk.record(outcome("503", 2));
  EXPECT_EQ(walk.next(), 1U);
  walk.record(outcome("404", 1));
  EXPECT_EQ(walk.next(), 2U) << "after its own wait, rather than for a probe without end";
}

TEST(TransferPlan, WhereOnlyAProbedOneIsLeftTheWaitHasNoEndOfItsOwn) {
  Walk walk(2, {});
  walk.probed = {0};
  walk.next();
  walk.record(outcome("404", 1));
  EXPECT_EQ(walk.next(), 0U);
  EXPECT_EQ(walk.now, TransferPlan::Time::max());
}

TEST(TransferPlan, ALastTryEndsItsServerWhateverTheReason) {
  Walk walk(2, {});
  walk.next();
  kiv::AttemptResult result(outcome("lost", 0));
  result.isLast = true;
  walk.record(std::move(result));
  EXPECT_FALSE(walk.plan.mayTry(0, walk.now + 1h));
  EXPECT_TRUE(walk.plan.mayTry(1, walk.now));
  while (const auto server = walk.next())
    walk.record(outcome("lost", *server));
  EXPECT_EQ(walk.order, (Order{0, 1, 1, 1}));
}

TEST(TransferPlan, AServerMayBeTriedWhenItsWaitIsOver) {
  kiv::TransferSettings settings;
  settings.triesInAll = 2;
  Walk walk(1, settings);
  EXPECT_TRUE(walk.plan.mayTry(0, walk.now));
  walk.next();
  kiv::AttemptResult result(outcome("503", 0));
  result.retryAfter = 10s;
  walk.record(std::move(result));
  EXPECT_FALSE(walk.plan.mayTry(0, walk.now + 9s));
  EXPECT_TRUE(walk.plan.mayTry(0, walk.now + 10s));
  walk.next();
  walk.record(outcome("503", 0));
  EXPECT_FALSE(walk.plan.mayTry(0, walk.now + 1h)) << "no try is left";
}

TEST(TransferPlan, WhatWasNeverTriedDecidesNothing) {
  kiv::TransferSettings settings;
  settings.triesInAll = 1;
  Walk walk(2, settings);
  walk.avoided = {0};
  EXPECT_EQ(walk.next(), 1U);
  walk.record(outcome("E", 1));
  EXPECT_FALSE(walk.next());
  EXPECT_EQ(walk.plan.decisiveServer(), 1U);
  EXPECT_EQ(describe(walk.plan.takeOutcome()), "error of 1");
}

}  // namespace
