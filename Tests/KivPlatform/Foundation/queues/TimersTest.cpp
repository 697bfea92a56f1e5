#include <atomic>
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
  std::string order;
  const auto third = setIn(30ms, [&] { order += "3"; });
  const auto first = setIn(10ms, [&] { order += "1"; });
  const auto second = setIn(20ms, [&] { order += "2"; });
  const auto last = setIn(never, [&] { order += "never"; });
  EXPECT_TRUE(waitUntil([&] { return order.size() >= 3; }));
  EXPECT_EQ(order, "123");
}

TEST(Timers, ACancelledOneDoesNotRun) {
  bool hasRun = false;
  auto cancelled = setIn(1ms, [&] { hasRun = true; });
  cancelled.reset();
  DispatchQueue::main()->drain();  // it may have been on the queue already
  hasRun = false;
  bool isOver = false;
  const auto later = setIn(2ms, [&] { isOver = true; });
  EXPECT_TRUE(waitUntil([&] { return isOver; }));
  EXPECT_FALSE(hasRun);
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
  std::atomic<bool> hasRun = false;
  bool isOver = false;
  auto queue = DispatchQueue::serial("gone");
  const auto timers = Timers::system();
  const auto timer = timers->set(timers->now() + 1ms, std::weak_ptr(queue), [&] { hasRun = true; });
  queue.reset();
  hasRun = false;  // it may have been on the queue already
  const auto later = setIn(2ms, [&] { isOver = true; });
  EXPECT_TRUE(waitUntil([&] { return isOver; }));
  EXPECT_FALSE(hasRun);
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
