// fork() with an open session; see SessionAfterFork.cpp.

#include <gtest/gtest.h>

#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace {

using namespace kiv::test;

// Not with AddressSanitizer or ThreadSanitizer. Their runtimes do not take all of their own locks
// before a fork, so a child may deadlock in malloc() or free() if other threads of the parent
// allocate.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

TEST(kivsessionForkTest, AChildHasNoSessionAndTheParentsGoesOn) {
  const TemporaryDirectory directory;
  ChildProcess host(SESSION_AFTER_FORK, {directory.path()});
  ASSERT_TRUE(host.hasStarted());
  EXPECT_EQ(host.waitForExit(), 0);
}

#endif

}  // namespace
