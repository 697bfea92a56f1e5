// Memory that runs out on a thread of the framework while a manager loads, see FailingPasses.

#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/LoopbackServer.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace {

using namespace kiv::test;

/// How many allocations lie between those that fail: each fails in turn where it is 1.
std::string stride() {
  const char* const chosen = std::getenv("KIVRESOURCE_ALLOCATION_STRIDE");
  return chosen ? chosen : "7";
}

TEST(KivResourceManagerMemoryTest, AnyAllocationThatFailsEndsAPassAndTheNextOneLoadsEverything) {
  const TemporaryDirectory directory;
  LoopbackServer server;
  for (int version = 1; version <= 2000; ++version) {
    for (const std::string banner : {"/0-", "/1-", "/2-"})
      server.serve(banner + std::to_string(version) + ".png", Response::ok("x"));
  }
  ChildProcess child(FAILING_PASSES, {directory.path("root"), server.url(), stride()},
                     // The program's own operator new counts, and frees by free().
                     {"ASAN_OPTIONS=detect_leaks=0:alloc_dealloc_mismatch=0"});
  ASSERT_TRUE(child.hasStarted());
  EXPECT_EQ(child.waitForExit(), 0);
}

}  // namespace
