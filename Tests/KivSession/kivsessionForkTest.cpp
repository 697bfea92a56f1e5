// fork() with an open session; see SessionAfterFork.cpp.

#include <gtest/gtest.h>

#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace {

using namespace kiv::test;

TEST(kivsessionForkTest, AChildHasNoSessionAndTheParentsGoesOn) {
  const TemporaryDirectory directory;
  // To a child, what the threads of its parent own is lost.
  ChildProcess host(SESSION_AFTER_FORK, {directory.path()}, {"ASAN_OPTIONS=detect_leaks=0"});
  ASSERT_TRUE(host.hasStarted());
  EXPECT_EQ(host.waitForExit(), 0);
}

}  // namespace
