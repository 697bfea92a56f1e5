#include <array>
#include <fcntl.h>
#include <optional>
#include <poll.h>
#include <sys/resource.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "KivPlatform/KivRESTService/engine/WakeUpPipe.h"

namespace {

using kiv::WakeUpPipe;

bool isReadable(int descriptor) {
  pollfd asked{descriptor, POLLIN, 0};
  return poll(&asked, 1, 0) == 1 && (asked.revents & POLLIN) != 0;
}

/// Both descriptors of the pipe. They are consecutive, since it gets the lowest free numbers.
std::array<int, 2> numbersOf(const WakeUpPipe& wakeUp) {
  const int readEnd = wakeUp.descriptor().value();
  return {readEnd, readEnd + 1};
}

TEST(WakeUpPipe, IsReadableFromAWakeUpToItsClearing) {
  const WakeUpPipe wakeUp;
  const int descriptor = wakeUp.descriptor().value();
  EXPECT_FALSE(isReadable(descriptor));
  wakeUp.wakeUp();
  EXPECT_TRUE(isReadable(descriptor));
  wakeUp.clear();
  EXPECT_FALSE(isReadable(descriptor));
}

TEST(WakeUpPipe, TakesAnyNumberOfWakeUpsAndForgetsThemAll) {
  const WakeUpPipe wakeUp;
  for (int count = 0; count < 200'000; ++count)
    wakeUp.wakeUp();
  EXPECT_TRUE(isReadable(*wakeUp.descriptor()));
  wakeUp.clear();
  EXPECT_FALSE(isReadable(*wakeUp.descriptor()));
}

TEST(WakeUpPipe, IsNotInheritedByOtherPrograms) {
  const WakeUpPipe wakeUp;
  for (const int number : numbersOf(wakeUp))
    EXPECT_EQ(fcntl(number, F_GETFD), FD_CLOEXEC);
}

TEST(WakeUpPipe, WithoutDescriptorsIsNone) {
  rlimit former{};
  getrlimit(RLIMIT_NOFILE, &former);
  const rlimit none{0, former.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  const WakeUpPipe wakeUp;
  setrlimit(RLIMIT_NOFILE, &former);
  EXPECT_EQ(wakeUp.descriptor(), std::nullopt);
  wakeUp.wakeUp();
  wakeUp.clear();
}

/// Creates a pipe so that ends[which] is `number`, which must be the lowest free descriptor.
void makePipe(int (&ends)[2], std::size_t which, int number) {
  ASSERT_EQ(pipe(ends), 0);
  if (ends[which] == number) return;
  ends[1 - which] = dup(ends[1 - which]);
  ASSERT_EQ(dup2(ends[which], number), number);
  close(ends[which]);
  ends[which] = number;
}

class ClosedWakeUpPipe : public testing::TestWithParam<std::size_t> {};

TEST_P(ClosedWakeUpPipe, IsNoneAndLeavesTheNumberToOthers) {
  int other[2] = {-1, -1};
  {
    const WakeUpPipe wakeUp;
    const int number = numbersOf(wakeUp)[GetParam()];
    close(number);
    EXPECT_EQ(wakeUp.descriptor(), std::nullopt);
    wakeUp.wakeUp();
    wakeUp.clear();
    makePipe(other, GetParam(), number);
    EXPECT_EQ(wakeUp.descriptor(), std::nullopt);
    wakeUp.wakeUp();
    EXPECT_FALSE(isReadable(other[0]));
    ASSERT_EQ(write(other[1], "x", 1), 1);
    wakeUp.clear();
    EXPECT_TRUE(isReadable(other[0]));
  }
  char byte = 0;
  EXPECT_EQ(read(other[0], &byte, 1), 1);
  EXPECT_EQ(close(other[0]), 0);
  EXPECT_EQ(close(other[1]), 0);
}

INSTANTIATE_TEST_SUITE_P(All, ClosedWakeUpPipe, testing::Values(0U, 1U), [](const auto& testCase) {
  return testCase.param == 0 ? "ReadEnd" : "WriteEnd";
});

}  // namespace
