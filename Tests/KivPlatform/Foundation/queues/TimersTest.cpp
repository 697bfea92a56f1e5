#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "KivPlatform/Foundation/queues/DispatchQueue.h"
#include "KivPlatform/Foundation/queues/Timers.h"
#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/MainQueue.h"

namespace {

using namespace std::chrono_literals;
using kiv::DispatchQueue;
using kiv::Timers;
using kiv::test::waitUntil;

/// So far ahead that it does not come during the tests.
constexpr Timers::Time never = std::chrono::hours(100);

std::unique_ptr<Timers::Timer> setIn(Timers::Time time, Timers::Job job) {
  const auto timers = Timers::system();
  return timers->set(timers->now() + time, DispatchQueue::main(), std::move(job));
}

/// Calls the attempt with longer and longer times until it returns true: that it has set its timers
/// before the first of them was due.
void tryUntilInTime(const std::function<bool(Timers::Time time)>& attempt) {
  Timers::Time time = 10ms;
  while (!attempt(time))
    time *= 2;
}

bool hasPassed(Timers::Time when) {
  return Timers::system()->now() >= when;
}

TEST(Timers, AJobRunsOnItsQueueWhenItsTimeHasCome) {
  const auto timers = Timers::system();
  const auto due = timers->now() + 20ms;
  bool hasRun = false;
  const auto timer = timers->set(due, DispatchQueue::main(), [&] {
    hasRun = true;
    EXPECT_EQ(DispatchQueue::ofRunningJob(), DispatchQueue::main());
    EXPECT_GE(timers->now(), due);
  });
  ASSERT_TRUE(timer);
  EXPECT_TRUE(waitUntil([&] { return hasRun; }));
}

TEST(Timers, ATimeThatHasPassedIsDueAtOnceAndOnce) {
  int runs = 0;
  bool isOver = false;
  const auto timer = setIn(-std::chrono::hours(1), [&] { ++runs; });
  ASSERT_TRUE(waitUntil([&] { return runs > 0; }));
  const auto later = setIn(1ms, [&] { isOver = true; });
  EXPECT_TRUE(waitUntil([&] { return isOver; }));
  EXPECT_EQ(runs, 1);
}

TEST(Timers, TheyRunInTheOrderOfTheirTimes) {
  tryUntilInTime([](Timers::Time time) {
    const auto due = Timers::system()->now() + time;
    std::string order;
    const auto third = setIn(3 * time, [&] { order += "3"; });
    const auto first = setIn(time, [&] { order += "1"; });
    const auto second = setIn(2 * time, [&] { order += "2"; });
    const auto last = setIn(never, [&] { order += "never"; });
    const bool isInTime = !hasPassed(due);
    EXPECT_TRUE(waitUntil([&] { return order.size() >= 3; }));
    EXPECT_TRUE(order == "123" || !isInTime) << order;
    return isInTime;
  });
}

TEST(Timers, ACancelledOneDoesNotRun) {
  tryUntilInTime([](Timers::Time time) {
    const auto due = Timers::system()->now() + time;
    const auto hasRun = std::make_shared<bool>(false);
    bool isOver = false;
    auto cancelled = setIn(time, [hasRun] { *hasRun = true; });
    cancelled.reset();
    const bool isInTime = !hasPassed(due);
    const auto later = setIn(2 * time, [&] { isOver = true; });
    EXPECT_TRUE(waitUntil([&] { return isOver; }));
    EXPECT_TRUE(!*hasRun || !isInTime);
    return isInTime;
  });
}

TEST(Timers, ACancelledOneReleasesItsJob) {
  const auto held = std::make_shared<int>(1);
  auto timer = setIn(never, [held] {});
  EXPECT_EQ(held.use_count(), 2);
  timer.reset();
  EXPECT_EQ(held.use_count(), 1);
}

TEST(Timers, AnEmptyJobSetsNoTimer) {
  EXPECT_FALSE(setIn(1ms, nullptr));
}

TEST(Timers, AReleasedQueueRunsNothing) {
  tryUntilInTime([](Timers::Time time) {
    const auto timers = Timers::system();
    const auto due = timers->now() + time;
    const auto hasRun = std::make_shared<std::atomic<bool>>(false);
    bool isOver = false;
    auto queue = DispatchQueue::serial("gone");
    const auto timer = timers->set(due, std::weak_ptr(queue), [hasRun] { *hasRun = true; });
    queue.reset();
    const bool isInTime = !hasPassed(due);
    const auto later = setIn(2 * time, [&] { isOver = true; });
    EXPECT_TRUE(waitUntil([&] { return isOver; }));
    EXPECT_TRUE(!*hasRun || !isInTime);
    return isInTime;
  });
}

TEST(Timers, AJobMaySetTheNextTimer) {
  int runs = 0;
  std::unique_ptr<Timers::Timer> timer;
  const Timers::Job again = [&] {
    if (++runs < 5) timer = setIn(1ms, again);
  };
  timer = setIn(1ms, again);
  EXPECT_TRUE(waitUntil([&] { return runs == 5; }));
}

TEST(Timers, ManyThreadsSetAndCancel) {
  std::atomic<int> runs = 0;
  std::vector<std::thread> threads;
  std::vector<std::vector<std::unique_ptr<Timers::Timer>>> timers(4);
  for (auto& own : timers) {
    threads.emplace_back([&] {
      for (int round = 0; round < 100; ++round) {
        const auto kept = setIn(never, [] {});
        setIn(0ms, [] {});  // cancelled at once
      }
      for (int round = 0; round < 25; ++round)
        own.push_back(setIn(0ms, [&] { ++runs; }));
    });
  }
  for (auto& thread : threads)
    thread.join();
  EXPECT_TRUE(waitUntil([&] { return runs == 100; }));
}

TEST(Timers, AProcessExitsWithATimerSet) {
  for (const char* way : {"return", "exit", "job"}) {
    kiv::test::ChildProcess child(EXIT_WITH_TIMERS, {way});
    ASSERT_TRUE(child.hasStarted());
    EXPECT_EQ(child.waitForExit(), 0) << way;
  }
}

// As in KivRESTServiceForkTest.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST(Timers, AForkedChildHasTimersOfItsOwn) {
  kiv::test::ChildProcess child(EXIT_WITH_TIMERS, {"fork"});
  ASSERT_TRUE(child.hasStarted());
  EXPECT_EQ(child.waitForExit(), 0);
}
#endif

}  // namespace
