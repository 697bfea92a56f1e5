// Out-of-memory in a session; see FailingCalls.cpp.

#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace {

using namespace kiv::test;

/// With 1, every allocation fails once.
std::string stride() {
  const char* const chosen = std::getenv("KIVRESOURCE_ALLOCATION_STRIDE");
  return chosen ? chosen : "17";
}

TEST(kivsessionMemoryTest, AnyAllocationThatFailsIsToldOfAndTheSessionGoesOn) {
  const TemporaryDirectory directory;
  directory.write("resources/packaged.png");
  ChildProcess child(FAILING_CALLS,
                     {directory.path("root"), directory.path("resources"), "0", stride()},
                     // The program replaces operator new by one that uses malloc().
                     {"ASAN_OPTIONS=detect_leaks=0:alloc_dealloc_mismatch=0"});
  ASSERT_TRUE(child.hasStarted());
  EXPECT_EQ(child.waitForExit(), 0);
}

}  // namespace
