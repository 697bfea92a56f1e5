#include <string>

#include <gtest/gtest.h>

#include "Platform/KivRESTService/TransferPlan.h"

namespace {

using kiv::Data;
using kiv::Error;
using kiv::TransferOutcome;
using kiv::TransferPlan;

/// "200" is a success whose body names the server, another number a response, "E" an error that
/// names the server.
TransferOutcome outcome(const std::string& sort, std::size_t server) {
  if (sort == "200") return TransferOutcome::succeeded(Data(std::to_string(server)));
  if (sort == "E")
    return TransferOutcome::failed(Error("test", static_cast<int>(server), "broken"));
  return TransferOutcome::answered(std::stoi(sort));
}

std::string describe(const TransferOutcome& outcome) {
  if (outcome.error) return "error of " + std::to_string(outcome.error->code);
  if (!outcome.body) return std::to_string(outcome.response->statusCode());
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
  TransferPlan plan(servers.size());
  std::vector<std::size_t> order;
  while (const auto server = plan.nextServer()) {
    order.push_back(*server);
    plan.record(*server, outcome(servers[*server], *server));
  }
  EXPECT_EQ(order, tried);
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

TEST(TransferPlan, TheOutcomeDoesNotDependOnTheOrderOfTrying) {
  TransferPlan plan(3);
  plan.record(2, outcome("500", 2));
  plan.record(1, outcome("404", 1));
  plan.record(0, outcome("E", 0));
  EXPECT_FALSE(plan.nextServer());
  EXPECT_EQ(describe(plan.takeOutcome()), "404");
}

TEST(TransferPlan, AnEmptyBodyIsASuccess) {
  TransferPlan plan(2);
  plan.record(0, TransferOutcome::succeeded(Data()));
  EXPECT_FALSE(plan.nextServer());
  const auto result = plan.takeOutcome();
  ASSERT_TRUE(result.body);
  EXPECT_TRUE(result.body->empty());
}

}  // namespace
