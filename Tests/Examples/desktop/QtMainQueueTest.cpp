#include <QThread>
#include <QTimer>
#include <atomic>
#include <optional>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Examples/desktop/QtMainQueue.h"
#include "KivResource/KivResource.h"
#include "Tests/Examples/desktop/Waiting.h"

using kiv::test::runWaitingEvents;
using kiv::test::waitUntil;

namespace {

const auto mainQueue = [] { return kiv::DispatchQueue::main(); };

}  // namespace

TEST(QtMainQueue, RunsAJobOfAnotherThreadOnThatOfTheApplication) {
  const QtMainQueue adapter;
  std::thread::id ranOn;
  std::thread([&] { mainQueue()->async([&] { ranOn = std::this_thread::get_id(); }); }).join();
  EXPECT_EQ(ranOn, std::thread::id());
  ASSERT_TRUE(waitUntil([&] { return ranOn != std::thread::id(); }));
  EXPECT_EQ(ranOn, std::this_thread::get_id());
}

TEST(QtMainQueue, RunsWhatWaitedBeforeItWasMade) {
  bool ran = false;
  mainQueue()->async([&] { ran = true; });
  const QtMainQueue adapter;
  EXPECT_TRUE(waitUntil([&] { return ran; }));
}

TEST(QtMainQueue, LeavesToTheNextOneWhatWaitsWhenItGoes) {
  int runs = 0;
  std::optional<QtMainQueue> adapter;
  adapter.emplace();
  mainQueue()->async([&] { ++runs; });
  adapter.reset();
  mainQueue()->async([&] { ++runs; });
  runWaitingEvents();
  EXPECT_EQ(runs, 0);
  adapter.emplace();
  EXPECT_TRUE(waitUntil([&] { return runs == 2; }));
}

TEST(QtMainQueue, LetsEventsThroughWhileJobsAddJobs) {
  const QtMainQueue adapter;
  bool goesOn = true;
  int runs = 0;
  std::function<void()> job = [&] {
    ++runs;
    if (goesOn) mainQueue()->async(job);
  };
  mainQueue()->async(job);
  int ticks = 0;
  QTimer timer;
  QObject::connect(&timer, &QTimer::timeout, [&] { ++ticks; });
  timer.start(1);
  EXPECT_TRUE(waitUntil([&] { return ticks >= 10 && runs >= 10; }));
  goesOn = false;
  const int atTheEnd = runs;
  EXPECT_TRUE(waitUntil([&] { return runs == atTheEnd + 1; }));
}

TEST(QtMainQueue, ComesAndGoesWhileThreadsAddJobs) {
  constexpr int jobsOfAThread = 20'000;
  std::atomic<int> added = 0;
  int runs = 0;
  std::vector<std::thread> threads(2);
  for (auto& thread : threads) {
    thread = std::thread([&] {
      for (int job = 0; job < jobsOfAThread; ++job, ++added)
        mainQueue()->async([&] { ++runs; });
    });
  }
  while (added < 2 * jobsOfAThread) {
    const QtMainQueue adapter;
    runWaitingEvents();
  }
  for (auto& thread : threads)
    thread.join();
  const QtMainQueue adapter;
  EXPECT_TRUE(waitUntil([&] { return runs == 2 * jobsOfAThread; }));
}
