#include <string>

#include <gtest/gtest.h>

#include "Tests/Support/ChildProcess.h"

namespace {

using kiv::test::ChildProcess;

class SerialQueueExit : public testing::TestWithParam<const char*> {};

TEST_P(SerialQueueExit, StopsTheJobsBeforeTheLibrariesGo) {
  for (int round = 0; round < 20; ++round) {
    ChildProcess child(EXIT_DURING_JOBS, {GetParam()});
    ASSERT_TRUE(child.hasStarted());
    ASSERT_EQ(child.waitForExit(), 0) << "in round " << round;
  }
}

INSTANTIATE_TEST_SUITE_P(All, SerialQueueExit,
                         testing::Values("return", "exit", "job", "finish", "sync"),
                         [](const auto& testCase) { return std::string(testCase.param); });

}  // namespace
