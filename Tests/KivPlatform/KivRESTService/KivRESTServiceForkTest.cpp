#include <string>
#include <tuple>

#include <gtest/gtest.h>

#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/LoopbackServer.h"

namespace {

using namespace kiv::test;

// Not with AddressSanitizer or ThreadSanitizer. Their allocators do not take their locks before a
// fork, so a child may deadlock if other threads of the parent allocate. ThreadSanitizer also
// aborts a child in which a new thread gets the stack of a thread of the parent.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

/// A host may fork while a client works; the child has none of its threads.
class KivRESTServiceFork : public testing::TestWithParam<std::tuple<const char*, const char*>> {};

TEST_P(KivRESTServiceFork, EndsTheTasksOfAChildWithAnError) {
  LoopbackServer server;
  server.serve("/a", Response::ok("12345"));
  const auto [queue, way] = GetParam();
  ChildProcess child(TASKS_AFTER_FORK, {queue, way, server.url("/a")});
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
