#include <string>

#include <gtest/gtest.h>

#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/LoopbackServer.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace {

using namespace kiv::test;

TEST(KivRESTServiceMemory, AnyAllocationThatFailsOnAThreadOfTheClientEndsTasksWithAnError) {
  const TemporaryDirectory directory;
  LoopbackServer server;
  server.serve("/small", Response::ok("12345"));
  server.serve("/large", Response::ok(std::string(50'000, 'x')).header("ETag", "\"1\""));
  server.serve("/moved", Response::redirect(302, "/small"));
  ChildProcess child(
      FAILING_ALLOCATIONS,
      {directory.path("spool"), server.url("/small"), server.url("/large"), server.url("/moved")},
      // The program replaces operator new by one that uses malloc().
      {"ASAN_OPTIONS=detect_leaks=0:alloc_dealloc_mismatch=0"});
  ASSERT_TRUE(child.hasStarted());
  EXPECT_EQ(child.waitForExit(), 0);
}

}  // namespace
