#include <string>
#include <tuple>

#include <gtest/gtest.h>

#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/LoopbackServer.h"

namespace {

using namespace kiv::test;

/// A host may fork while a client works; its threads are not in the child.
class KivRESTServiceFork : public testing::TestWithParam<std::tuple<const char*, const char*>> {};

TEST_P(KivRESTServiceFork, EndsTheTasksOfAChildWithAnError) {
  LoopbackServer server;
  server.serve("/a", Response::ok("12345"));
  const auto [queue, way] = GetParam();
  // Some children start a thread, which ThreadSanitizer has to be told to allow.
  ChildProcess child(TASKS_AFTER_FORK, {queue, way, server.url("/a")},
                     {"TSAN_OPTIONS=die_after_fork=0", "ASAN_OPTIONS=detect_leaks=0"});
  ASSERT_TRUE(child.hasStarted());
  EXPECT_EQ(child.waitForExit(), 0);
}

// A child of a process with threads can find AddressSanitizer's own locks held for ever, so that
// only the children that do least are tried with it.
#ifdef __SANITIZE_ADDRESS__
const auto queues = testing::Values("serial");
const auto ways = testing::Values("exit");
#else
const auto queues = testing::Values("main", "serial");
const auto ways = testing::Values("exit", "return", "destroy");
#endif

INSTANTIATE_TEST_SUITE_P(All, KivRESTServiceFork, testing::Combine(queues, ways),
                         [](const auto& testCase) {
                           return std::string(std::get<0>(testCase.param)) + "_" +
                                  std::get<1>(testCase.param);
                         });

}  // namespace
