#include <string>
#include <tuple>

#include <gtest/gtest.h>

#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/LoopbackServer.h"

namespace {

using namespace kiv::test;

// Not under AddressSanitizer, whose allocator does not take its locks before a fork: a child whose
// parent has threads that allocate may wait for them for ever.
#ifndef __SANITIZE_ADDRESS__

/// A host may fork while a client works; its threads are not in the child.
class KivRESTServiceFork : public testing::TestWithParam<std::tuple<const char*, const char*>> {};

TEST_P(KivRESTServiceFork, EndsTheTasksOfAChildWithAnError) {
  LoopbackServer server;
  server.serve("/a", Response::ok("12345"));
  const auto [queue, way] = GetParam();
  // Some children start a thread, which ThreadSanitizer has to be told to allow.
  ChildProcess child(TASKS_AFTER_FORK, {queue, way, server.url("/a")},
                     {"TSAN_OPTIONS=die_after_fork=0"});
  ASSERT_TRUE(child.hasStarted());
  EXPECT_EQ(child.waitForExit(), 0);
}

INSTANTIATE_TEST_SUITE_P(All, KivRESTServiceFork,
                         testing::Combine(testing::Values("main", "serial"),
                                          testing::Values("exit", "return", "destroy")),
                         [](const auto& testCase) {
                           return std::string(std::get<0>(testCase.param)) + "_" +
                                  std::get<1>(testCase.param);
                         });

#endif

}  // namespace
