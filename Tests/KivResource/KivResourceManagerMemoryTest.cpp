// Out-of-memory on threads of the framework during a pass; see FailingPasses.cpp.

#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/LoopbackServer.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace {

using namespace kiv::test;

/// The STRIDE of FailingPasses. With 1, every allocation fails once.
std::string stride() {
  const char* const chosen = std::getenv("KIVRESOURCE_ALLOCATION_STRIDE");
  return chosen ? chosen : "7";
}

/// Runs FailingPasses; `more` are its further arguments.
void runFailingPasses(const std::vector<std::string>& more) {
  const TemporaryDirectory directory;
  LoopbackServer server;
  for (int version = 1; version <= 2000; ++version) {
    for (const std::string banner : {"/0-", "/1-", "/2-"})
      server.serve(banner + std::to_string(version) + ".png", Response::ok("x"));
  }
  std::vector<std::string> arguments{directory.path("root"), server.url(), stride()};
  arguments.insert(arguments.end(), more.begin(), more.end());
  ChildProcess child(FAILING_PASSES, arguments,
                     // The program replaces operator new by one that uses malloc().
                     {"ASAN_OPTIONS=detect_leaks=0:alloc_dealloc_mismatch=0"});
  ASSERT_TRUE(child.hasStarted());
  EXPECT_EQ(child.waitForExit(), 0);
}

TEST(KivResourceManagerMemoryTest, AnyAllocationThatFailsEndsAPassAndTheNextOneLoadsEverything) {
  runFailingPasses({});
}

TEST(KivResourceManagerMemoryTest, AndAPassThatIsFollowedIsReportedOnce) {
  runFailingPasses({"followed"});
}

}  // namespace
