// The process ends with an open session; see ExitWithOpenSession.cpp.

#include <string>

#include <gtest/gtest.h>

#include "Tests/KivSession/OpenedSession.h"
#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/LoopbackServer.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace {

using namespace kiv::test;

class kivsessionExitTest : public testing::TestWithParam<const char*> {};

TEST_P(kivsessionExitTest, TheProcessEndsAsItMeansTo) {
  for (int round = 0; round < 5; ++round) {
    const TemporaryDirectory directory;
    LoopbackServer server;
    server.serve("/silent.png", Response::ok("a").after(Gate()));
    ChildProcess host(EXIT_WITH_OPEN_SESSION, {directory.path(), server.url(), GetParam()});
    ASSERT_TRUE(host.hasStarted());
    EXPECT_EQ(host.waitForExit(), 7);
    EXPECT_TRUE(OpenedSession(directory.path()).answers()) << "the root is usable";
  }
}

INSTANTIATE_TEST_SUITE_P(Ways, kivsessionExitTest,
                         testing::Values("return", "thread", "receiving", "closing", "opening",
                                         "log", "abandoned"),
                         [](const auto& way) { return std::string(way.param); });

}  // namespace
