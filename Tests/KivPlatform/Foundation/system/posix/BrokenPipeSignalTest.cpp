#include <cerrno>
#include <csignal>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

// For the internal function with which threads block SIGPIPE.
#include "KivPlatform/Foundation/system/OperatingSystem.h"

namespace {

bool isBlockedOnThisThread() {
  sigset_t signals;
  pthread_sigmask(SIG_BLOCK, nullptr, &signals);
  return sigismember(&signals, SIGPIPE) == 1;
}

TEST(BrokenPipeSignal, OnTheThreadABrokenPipeIsAnErrorOnly) {
  int failure = 0;
  std::thread([&] {
    kiv::system::blockBrokenPipeSignalOnThisThread();
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    close(ends[0]);
    EXPECT_EQ(write(ends[1], "x", 1), -1);
    failure = errno;
    close(ends[1]);
  }).join();
  EXPECT_EQ(failure, EPIPE);
}

TEST(BrokenPipeSignal, OtherThreadsAreLeftAlone) {
  std::thread([] {
    kiv::system::blockBrokenPipeSignalOnThisThread();
    EXPECT_TRUE(isBlockedOnThisThread());
  }).join();
  EXPECT_FALSE(isBlockedOnThisThread());
}

}  // namespace
