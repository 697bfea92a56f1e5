#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <mutex>
#include <new>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "KivPlatform/Foundation/queues/DispatchQueue.h"
#include "KivPlatform/Foundation/values/Result.h"
// For the check whether the current thread is the main thread.
#include "KivPlatform/Foundation/system/OperatingSystem.h"
#include "Tests/Support/LogCapture.h"

namespace {

using kiv::DispatchQueue;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr seconds generousDeadline{60};

/// A one-shot event; waiting for it has a deadline.
class Moment {
 public:
  void come() { promise_.set_value(); }
  [[nodiscard]] bool hasCome() { return future_.wait_for(generousDeadline) == ready_; }

 private:
  static constexpr auto ready_ = std::future_status::ready;
  std::promise<void> promise_;
  std::future<void> future_ = promise_.get_future();
};

/// Waits until all jobs that are on the queue now have run.
void finishJobs(const std::shared_ptr<DispatchQueue>& queue) {
  Moment finished;
  queue->async([&] { finished.come(); });
  ASSERT_TRUE(finished.hasCome());
}

/// Leaves the main queue empty and without a wake-up handler.
class MainQueueTest : public testing::Test {
 protected:
  void SetUp() override { leaveEmpty(); }
  void TearDown() override { leaveEmpty(); }

  const std::shared_ptr<DispatchQueue> main_ = DispatchQueue::main();

 private:
  void leaveEmpty() {
    main_->setWakeUpHandler(nullptr);
    while (main_->drain() != 0) {
    }
  }
};

// --- A queue with its own thread -----------------------------------------------------------------

TEST(SerialQueueTest, KeepsItsLabel) {
  EXPECT_EQ(DispatchQueue::serial("worker")->label(), "worker");
  EXPECT_EQ(DispatchQueue::main()->label(), "main");
}

TEST(SerialQueueTest, RunsJobsInTheirOrderOnOneThreadOfItsOwn) {
  const auto queue = DispatchQueue::serial("order");
  std::vector<int> order;
  std::vector<std::thread::id> threads;
  for (int job = 0; job < 1000; ++job) {
    queue->async([&, job] {
      order.push_back(job);
      threads.push_back(std::this_thread::get_id());
    });
  }
  finishJobs(queue);
  ASSERT_EQ(order.size(), 1000U);
  for (int job = 0; job < 1000; ++job) {
    EXPECT_EQ(order[static_cast<std::size_t>(job)], job);
    EXPECT_EQ(threads[static_cast<std::size_t>(job)], threads[0]);
  }
  EXPECT_NE(threads[0], std::this_thread::get_id());
}

TEST(SerialQueueTest, RunsAJobAddedByAJobAfterThoseThatWait) {
  const auto queue = DispatchQueue::serial("order");
  std::string order;
  Moment bothWait;
  Moment allRan;
  queue->async([&] {
    EXPECT_TRUE(bothWait.hasCome());
    order += "a";
    queue->async([&] {
      order += "c";
      allRan.come();
    });
    order += "-";
  });
  queue->async([&] { order += "b"; });
  bothWait.come();
  ASSERT_TRUE(allRan.hasCome());
  EXPECT_EQ(order, "a-bc");
}

TEST(SerialQueueTest, AnEmptyJobIsNone) {
  const auto queue = DispatchQueue::serial("empty");
  queue->async(nullptr);
  bool ran = false;
  queue->async([&] { ran = true; });
  finishJobs(queue);
  EXPECT_TRUE(ran);
}

TEST(SerialQueueTest, LetsGoOfWhatAJobHoldsBeforeTheNextRuns) {
  const auto queue = DispatchQueue::serial("release");
  auto held = std::make_shared<int>(1);
  const std::weak_ptr<int> watched = held;
  queue->async([held = std::move(held)] {});
  bool gone = false;
  queue->async([&] { gone = watched.expired(); });
  finishJobs(queue);
  EXPECT_TRUE(gone);
}

TEST(SerialQueueTest, WhatAJobHoldsIsLetGoOfOnTheQueue) {
  const auto queue = DispatchQueue::serial("release");
  std::shared_ptr<DispatchQueue> seen;
  std::shared_ptr<int> held(new int(1), [&](const int* number) {
    delete number;
    seen = DispatchQueue::current();
  });
  queue->async([held = std::move(held)] {});
  finishJobs(queue);
  EXPECT_EQ(seen, queue);
}

TEST(SerialQueueTest, ReleasedFromOutsideRunsWhatWaitsAndThenReturns) {
  auto queue = DispatchQueue::serial("release");
  Moment released;
  std::atomic<int> ran = 0;
  queue->async([&] { EXPECT_TRUE(released.hasCome()); });
  for (int job = 0; job < 100; ++job)
    queue->async([&] { ++ran; });
  released.come();
  queue.reset();
  EXPECT_EQ(ran, 100);
}

TEST(SerialQueueTest, ReleasedByItsOwnJobRunsWhatWaits) {
  auto queue = DispatchQueue::serial("release");
  Moment holderMoved;
  Moment lastRan;
  auto holder = std::make_shared<std::shared_ptr<DispatchQueue>>();
  queue->async([&holderMoved, holder] {
    EXPECT_TRUE(holderMoved.hasCome());
    holder->reset();
  });
  queue->async([&lastRan] {
    EXPECT_EQ(DispatchQueue::current(), nullptr);  // all references to it are gone
    lastRan.come();
  });
  *holder = std::move(queue);
  holderMoved.come();
  EXPECT_TRUE(lastRan.hasCome());
}

TEST(SerialQueueTest, HeldOnlyByItsJobsItLivesUntilTheyHaveRun) {
  auto queue = DispatchQueue::serial("release");
  const std::weak_ptr<DispatchQueue> watched = queue;
  Moment released;
  Moment ran;
  queue->async([&, own = queue] {
    EXPECT_TRUE(released.hasCome());
    EXPECT_EQ(DispatchQueue::current(), own);
    ran.come();
  });
  queue.reset();
  EXPECT_FALSE(watched.expired());
  released.come();
  EXPECT_TRUE(ran.hasCome());
}

TEST(SerialQueueTest, WhatIsForTheHostsLoopDoesNothing) {
  const auto queue = DispatchQueue::serial("own thread");
  queue->setWakeUpHandler([] { ADD_FAILURE() << "nobody is to be woken"; });
  queue->stop();
  queue->run();
  Moment go;
  std::thread::id thread;
  queue->async([&] { EXPECT_TRUE(go.hasCome()); });
  queue->async([&] { thread = std::this_thread::get_id(); });
  EXPECT_EQ(queue->drain(), 0U);
  EXPECT_EQ(queue->drainFor(generousDeadline), 0U);
  go.come();
  finishJobs(queue);
  EXPECT_NE(thread, std::thread::id());
  EXPECT_NE(thread, std::this_thread::get_id());
}

TEST(SerialQueueTest, TakesJobsOfManyThreadsAndRunsThemOneAtATime) {
  constexpr int producers = 8;
  constexpr int jobsEach = 500;
  const auto queue = DispatchQueue::serial("many");
  std::vector<int> lastOf(producers, -1);  // accessed only by jobs: an overlap is a data race
  int ran = 0;
  bool inOrder = true;
  std::vector<std::thread> threads;
  for (std::size_t producer = 0; producer < producers; ++producer) {
    threads.emplace_back([&, producer] {
      for (int job = 0; job < jobsEach; ++job) {
        queue->async([&, producer, job] {
          inOrder = inOrder && lastOf[producer] == job - 1;
          lastOf[producer] = job;
          ++ran;
        });
      }
    });
  }
  for (auto& thread : threads)
    thread.join();
  finishJobs(queue);
  EXPECT_EQ(ran, producers * jobsEach);
  EXPECT_TRUE(inOrder);
}

TEST(SerialQueueTest, ManyQueuesComeAndGo) {
  std::atomic<int> ran = 0;
  for (int round = 0; round < 200; ++round) {
    const auto queue = DispatchQueue::serial("short");
    queue->async([&] { ++ran; });
  }
  EXPECT_EQ(ran, 200);
}

// --- The current queue ---------------------------------------------------------------------------

TEST_F(MainQueueTest, CurrentIsTheMainQueueOnTheMainThread) {
  ASSERT_TRUE(kiv::system::isMainThread());
  EXPECT_EQ(DispatchQueue::current(), main_);
}

TEST_F(MainQueueTest, CurrentIsTheQueueOfTheJobThatRuns) {
  const auto queue = DispatchQueue::serial("current");
  std::shared_ptr<DispatchQueue> inSerialJob;
  std::shared_ptr<DispatchQueue> inMainJob;
  queue->async([&] { inSerialJob = DispatchQueue::current(); });
  finishJobs(queue);
  main_->async([&] { inMainJob = DispatchQueue::current(); });
  EXPECT_EQ(main_->drain(), 1U);
  EXPECT_EQ(inSerialJob, queue);
  EXPECT_EQ(inMainJob, main_);
}

TEST_F(MainQueueTest, CurrentIsNoneOnAThreadWithoutAQueue) {
  bool isMain = true;
  std::shared_ptr<DispatchQueue> seen = main_;
  std::thread([&] {
    isMain = kiv::system::isMainThread();
    seen = DispatchQueue::current();
  }).join();
  EXPECT_FALSE(isMain);
  EXPECT_EQ(seen, nullptr);
}

TEST_F(MainQueueTest, CurrentIsTheMainQueueWhereverItsJobsRun) {
  std::shared_ptr<DispatchQueue> inJob;
  std::shared_ptr<DispatchQueue> afterwards = main_;
  main_->async([&] { inJob = DispatchQueue::current(); });
  std::thread([&] {
    main_->drain();
    afterwards = DispatchQueue::current();
  }).join();
  EXPECT_EQ(inJob, main_);
  EXPECT_EQ(afterwards, nullptr);
}

// --- The main queue ------------------------------------------------------------------------------

TEST_F(MainQueueTest, IsOneObject) {
  EXPECT_EQ(DispatchQueue::main(), DispatchQueue::main());
}

TEST_F(MainQueueTest, RunsNothingByItself) {
  bool ran = false;
  main_->async([&] { ran = true; });
  EXPECT_FALSE(ran);
  EXPECT_EQ(main_->drain(), 1U);
  EXPECT_TRUE(ran);
  EXPECT_EQ(main_->drain(), 0U);
}

TEST_F(MainQueueTest, DrainLeavesWhatItsJobsAdd) {
  std::string order;
  main_->async([&] {
    order += "a";
    main_->async([&] { order += "c"; });
  });
  main_->async([&] { order += "b"; });
  EXPECT_EQ(main_->drain(), 2U);
  EXPECT_EQ(order, "ab");
  EXPECT_EQ(main_->drain(), 1U);
  EXPECT_EQ(order, "abc");
}

// --- The end of a job ----------------------------------------------------------------------------

/// A job that appends its letter to the text, and at its end the letter in upper case.
DispatchQueue::Job letter(std::string& text, char name) {
  return [&text, name] {
    text += name;
    DispatchQueue::atEndOfJob([&text, name] { text += static_cast<char>(name - 'a' + 'A'); });
  };
}

TEST_F(MainQueueTest, WhatIsForTheEndOfAJobRunsBeforeTheNextJob) {
  std::string order;
  main_->async([&] {
    letter(order, 'a')();
    letter(order, 'b')();
  });
  main_->async(letter(order, 'c'));
  main_->drain();
  EXPECT_EQ(order, "abABcC");
}

TEST_F(MainQueueTest, AJobEndsBeforeTheHostGetsControlBack) {
  std::string order;
  main_->async([&] {
    letter(order, 'a')();
    main_->stop();
  });
  main_->async(letter(order, 'b'));
  main_->run();
  EXPECT_EQ(order, "aA");
  main_->drain();
  EXPECT_EQ(order, "aAbB");
}

TEST_F(MainQueueTest, AnEndOfAJobMayHaveOneItself) {
  std::string order;
  main_->async([&] {
    DispatchQueue::atEndOfJob([&] {
      EXPECT_EQ(DispatchQueue::ofRunningJob(), main_);
      letter(order, 'a')();
    });
  });
  main_->async([&] { order += "-"; });
  main_->drain();
  EXPECT_EQ(order, "aA-");
}

TEST_F(MainQueueTest, AJobThatThrowsHasAnEndToo) {
  const kiv::test::LogCapture log;
  std::string order;
  main_->async([&] {
    letter(order, 'a')();
    throw std::runtime_error("thrown on purpose");
  });
  main_->async([&] { order += "-"; });
  main_->drain();
  EXPECT_EQ(order, "aA-");
}

TEST_F(MainQueueTest, WhereNoJobRunsTheEndIsNow) {
  std::string order;
  letter(order, 'a')();
  EXPECT_EQ(order, "aA");
}

TEST(SerialQueueTest, JobsHaveAnEndToo) {
  std::string order;
  {
    const auto queue = DispatchQueue::serial("ends");
    queue->async(letter(order, 'a'));
    queue->async([&] { order += "-"; });
  }
  EXPECT_EQ(order, "aA-");
}

TEST_F(MainQueueTest, DrainsDoNotNest) {
  std::string order;
  main_->async([&] {
    order += "(";
    EXPECT_EQ(main_->drain(), 0U);
    EXPECT_EQ(main_->drainFor(milliseconds(0)), 0U);
    main_->run();
    order += ")";
  });
  main_->async([&] { order += "b"; });
  EXPECT_EQ(main_->drain(), 2U);
  EXPECT_EQ(order, "()b");
}

TEST_F(MainQueueTest, DrainForWithinAJobDoesNotWait) {
  // The deadline exceeds the time limit of the test, so that waiting would be detected.
  main_->async([&] { EXPECT_EQ(main_->drainFor(std::chrono::hours(24)), 0U); });
  EXPECT_EQ(main_->drain(), 1U);
}

TEST_F(MainQueueTest, DrainForTakesWhatIsThereWithoutWaiting) {
  main_->async([] {});
  main_->async([] {});
  EXPECT_EQ(main_->drainFor(std::chrono::hours(24)), 2U);
}

TEST_F(MainQueueTest, DrainForWaitsForAJobOfAnotherThread) {
  std::thread producer([&] { main_->async([] {}); });
  EXPECT_EQ(main_->drainFor(generousDeadline), 1U);
  producer.join();
}

TEST_F(MainQueueTest, DrainForGivesUp) {
  EXPECT_EQ(main_->drainFor(milliseconds(1)), 0U);
  EXPECT_EQ(main_->drainFor(milliseconds(0)), 0U);
  EXPECT_EQ(main_->drainFor(milliseconds(-1)), 0U);
}

TEST_F(MainQueueTest, RunEndsAfterTheJobThatStopsIt) {
  std::string order;
  main_->async([&] { order += "a"; });
  main_->async([&] {
    main_->stop();
    order += "b";
  });
  main_->async([&] { order += "c"; });
  main_->run();
  EXPECT_EQ(order, "ab");
  EXPECT_EQ(main_->drain(), 1U);
  EXPECT_EQ(order, "abc");
}

TEST_F(MainQueueTest, StopBeforeRunEndsThatRunAtOnceAndNoOther) {
  bool ran = false;
  main_->async([&] { ran = true; });
  main_->stop();
  main_->stop();
  main_->run();
  EXPECT_FALSE(ran);
  main_->async([&] { main_->stop(); });
  main_->run();
  EXPECT_TRUE(ran);
}

TEST_F(MainQueueTest, RunIsStoppedFromAnotherThread) {
  std::thread stopper([&] { main_->stop(); });
  main_->run();
  stopper.join();
}

TEST_F(MainQueueTest, RunServesManyThreads) {
  constexpr int producers = 4;
  constexpr int jobsEach = 1000;
  int ran = 0;
  std::vector<std::thread> threads;
  for (int producer = 0; producer < producers; ++producer) {
    threads.emplace_back([&] {
      for (int job = 0; job < jobsEach; ++job) {
        main_->async([&] {
          if (++ran == producers * jobsEach) main_->stop();
        });
      }
    });
  }
  main_->run();
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(ran, producers * jobsEach);
}

// --- The wake-up handler -------------------------------------------------------------------------

TEST_F(MainQueueTest, WakesUpWhenAJobComesToTheEmptyQueueOnly) {
  int calls = 0;
  main_->setWakeUpHandler([&] { ++calls; });
  EXPECT_EQ(calls, 0);
  main_->async([] {});
  EXPECT_EQ(calls, 1);
  main_->async([] {});
  EXPECT_EQ(calls, 1);
  main_->drain();
  EXPECT_EQ(calls, 1);
  main_->async([] {});
  EXPECT_EQ(calls, 2);
}

TEST_F(MainQueueTest, WakesUpAtOnceWhereJobsWaitAlready) {
  int calls = 0;
  main_->async([] {});
  main_->setWakeUpHandler([&] { ++calls; });
  EXPECT_EQ(calls, 1);
}

TEST_F(MainQueueTest, WakesUpForJobsThatADrainLeaves) {
  int calls = 0;
  main_->async([&] { main_->async([] {}); });
  main_->async([] {});
  main_->setWakeUpHandler([&] { ++calls; });
  calls = 0;
  main_->drain();
  EXPECT_EQ(calls, 1);
  main_->drain();
  EXPECT_EQ(calls, 1);
}

TEST_F(MainQueueTest, WakesUpForJobsThatAStoppedRunLeaves) {
  int calls = 0;
  main_->async([&] { main_->stop(); });
  main_->async([] {});
  main_->setWakeUpHandler([&] { ++calls; });
  calls = 0;
  main_->run();
  EXPECT_EQ(calls, 1);
}

TEST_F(MainQueueTest, ARemovedHandlerIsNotCalled) {
  main_->setWakeUpHandler([] { ADD_FAILURE() << "called after its removal"; });
  main_->setWakeUpHandler(nullptr);
  main_->async([] {});
  EXPECT_EQ(main_->drain(), 1U);
}

TEST_F(MainQueueTest, AHandlerMayRemoveItself) {
  int calls = 0;
  const std::string longEnoughForTheHeap(100, 'x');
  main_->setWakeUpHandler([this, &calls, longEnoughForTheHeap] {
    main_->setWakeUpHandler(nullptr);
    if (longEnoughForTheHeap.size() == 100) ++calls;
  });
  main_->async([] {});
  main_->drain();
  main_->async([] {});
  EXPECT_EQ(calls, 1);
}

TEST_F(MainQueueTest, AHandlerMayAddAJob) {
  int calls = 0;
  main_->setWakeUpHandler([&] {
    ++calls;
    main_->async([] {});
  });
  main_->async([] {});
  EXPECT_EQ(calls, 1);
  main_->setWakeUpHandler(nullptr);
  EXPECT_EQ(main_->drain(), 2U);
}

TEST_F(MainQueueTest, ARemovedHandlerRunsOnNoOtherThread) {
  for (int round = 0; round < 200; ++round) {
    auto state = std::make_unique<int>(0);  // destroyed after the removal: a late call is a race
    main_->setWakeUpHandler([counter = state.get()] { ++*counter; });
    std::thread producer([&] { main_->async([] {}); });
    main_->setWakeUpHandler(nullptr);
    state.reset();
    producer.join();
    main_->drain();
  }
}

TEST_F(MainQueueTest, AHandlerRunsWithoutALock) {
  // The handler waits for the thread that adds a job, so that thread must not wait for the handler.
  Moment added;
  std::atomic<int> calls = 0;
  bool isInTime = true;
  main_->setWakeUpHandler([&] {
    if (++calls > 1) return;
    std::thread([&] {
      main_->drain();
      main_->async([] {});  // the queue is empty, so this calls the handler again
      added.come();
    }).detach();
    isInTime = added.hasCome();
  });
  main_->async([] {});
  EXPECT_TRUE(isInTime);
  EXPECT_EQ(calls, 2);
}

TEST_F(MainQueueTest, AHandlerThatThrowsIsCalledAgain) {
  const kiv::test::LogCapture log;
  int calls = 0;
  main_->setWakeUpHandler([&] {
    ++calls;
    throw std::runtime_error("no loop");
  });
  main_->async([] {});
  main_->drain();
  main_->async([] {});
  EXPECT_EQ(calls, 2);
  ASSERT_EQ(log.lines().size(), 2U);
  EXPECT_EQ(log.lines()[0], "The wake-up handler of the queue \"main\" has thrown: no loop");
}

// --- Jobs that throw -----------------------------------------------------------------------------

TEST_F(MainQueueTest, AJobThatThrowsDoesNotKeepOthersFromRunning) {
  const kiv::test::LogCapture log;
  int ran = 0;
  main_->async([] { throw std::runtime_error("bad job"); });
  main_->async([] { throw 1; });
  main_->async([&] { ++ran; });
  EXPECT_EQ(main_->drain(), 3U);
  EXPECT_EQ(ran, 1);
  main_->async([&] { ++ran; });
  EXPECT_EQ(main_->drainFor(milliseconds(0)), 1U);
  EXPECT_EQ(ran, 2);
  EXPECT_EQ(DispatchQueue::ofRunningJob(), nullptr);
  EXPECT_EQ(log.lines(),
            (std::vector<std::string>{
                "A job of the queue \"main\" has thrown: bad job",
                "A job of the queue \"main\" has thrown: something that is no std::exception"}));
}

TEST_F(MainQueueTest, AJobThatThrowsDoesNotEndARun) {
  const kiv::test::LogCapture log;
  bool ran = false;
  main_->async([] { throw std::bad_alloc(); });
  main_->async([&] {
    ran = true;
    main_->stop();
  });
  main_->run();
  EXPECT_TRUE(ran);
}

TEST(SerialQueueTest, AJobThatThrowsDoesNotKeepOthersFromRunning) {
  const kiv::test::LogCapture log;
  const auto queue = DispatchQueue::serial("work");
  queue->async([] { throw std::runtime_error("bad job"); });
  queue->async([] { throw 1; });
  finishJobs(queue);
  ASSERT_EQ(log.lines().size(), 2U);
  EXPECT_EQ(log.lines()[0], "A job of the queue \"work\" has thrown: bad job");
}

TEST_F(MainQueueTest, NoWakeUpIsLost) {
  constexpr int producers = 4;
  constexpr int jobsEach = 500;
  // An event loop that drains the queue only when it is woken.
  std::mutex mutex;
  std::condition_variable changed;
  bool woken = false;
  main_->setWakeUpHandler([&] {
    const std::lock_guard lock(mutex);
    woken = true;
    changed.notify_one();
  });
  std::vector<std::thread> threads;
  int ran = 0;
  for (int producer = 0; producer < producers; ++producer) {
    threads.emplace_back([&] {
      for (int job = 0; job < jobsEach; ++job) {
        main_->async([&] { main_->async([&] { ++ran; }); });
      }
    });
  }
  bool lost = false;
  while (ran < producers * jobsEach && !lost) {
    {
      std::unique_lock lock(mutex);
      lost = !changed.wait_for(lock, generousDeadline, [&] { return woken; });
      woken = false;
    }
    main_->drain();
  }
  for (auto& thread : threads)
    thread.join();
  EXPECT_FALSE(lost) << ran << " of " << producers * jobsEach << " jobs ran";
}

// --- sync() --------------------------------------------------------------------------------------

bool isDeadlock(const kiv::Status& status) {
  return !status && kiv::isSystemError(status.error(), std::errc::resource_deadlock_would_occur);
}

TEST(SyncTest, ReturnsWhenTheJobHasRunOnTheQueue) {
  const auto queue = DispatchQueue::serial("q");
  std::shared_ptr<DispatchQueue> current;
  EXPECT_TRUE(queue->sync([&] { current = DispatchQueue::current(); }));
  EXPECT_EQ(current, queue);
}

TEST(SyncTest, RunsTheJobAfterThoseThatWait) {
  const auto queue = DispatchQueue::serial("q");
  std::vector<int> order;
  for (int number = 0; number < 100; ++number)
    queue->async([&order, number] { order.push_back(number); });
  EXPECT_TRUE(queue->sync([&] { order.push_back(100); }));
  ASSERT_EQ(order.size(), 101U);
  EXPECT_EQ(order.back(), 100);
}

TEST(SyncTest, AnEmptyJobIsNone) {
  EXPECT_TRUE(DispatchQueue::serial("q")->sync(nullptr));
}

TEST(SyncTest, WhatTheJobHoldsIsGoneWhenItReturns) {
  const auto queue = DispatchQueue::serial("q");
  auto held = std::make_shared<int>(1);
  const std::weak_ptr<int> seen = held;
  EXPECT_TRUE(queue->sync([held = std::move(held)] {}));
  EXPECT_TRUE(seen.expired());
}

TEST(SyncTest, WaitsForWhatRunsAtTheEndOfTheJob) {
  const auto queue = DispatchQueue::serial("q");
  std::vector<int> order;
  EXPECT_TRUE(queue->sync([&] {
    DispatchQueue::atEndOfJob([&] {
      order.push_back(1);
      DispatchQueue::atEndOfJob([&] {
        DispatchQueue::atEndOfJob([&] { order.push_back(3); });
        order.push_back(2);
      });
    });
  }));
  EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
}

TEST(SyncTest, ThrowsWhatTheJobThrowsAndLogsNothing) {
  const kiv::test::LogCapture log;
  const auto queue = DispatchQueue::serial("q");
  EXPECT_THROW(static_cast<void>(queue->sync([] { throw std::runtime_error("x"); })),
               std::runtime_error);
  EXPECT_TRUE(queue->sync([] {}));
  EXPECT_TRUE(log.lines().empty());
}

TEST(SyncTest, FailsInAJobOfTheSameQueue) {
  const auto queue = DispatchQueue::serial("q");
  bool hasRun = false;
  kiv::Status inner;
  EXPECT_TRUE(queue->sync([&] { inner = queue->sync([&] { hasRun = true; }); }));
  EXPECT_TRUE(isDeadlock(inner));
  EXPECT_TRUE(queue->sync([] {}));
  EXPECT_FALSE(hasRun);
  EXPECT_EQ(inner.error().localizedDescription(),
            "Could not wait for a job of the queue \"q\": Resource deadlock avoided.");
}

TEST(SyncTest, FailsByWayOfOtherQueues) {
  std::vector<std::shared_ptr<DispatchQueue>> queues;
  for (const char* const name : {"a", "b", "c"})
    queues.push_back(DispatchQueue::serial(name));
  kiv::Status last;
  EXPECT_TRUE(queues[0]->sync([&] {
    EXPECT_TRUE(queues[1]->sync(
        [&] { EXPECT_TRUE(queues[2]->sync([&] { last = queues[0]->sync([] {}); })); }));
  }));
  EXPECT_TRUE(isDeadlock(last));
}

/// Both wait for the other at one time; one of them is told.
TEST(SyncTest, FailsWhereTwoQueuesMeet) {
  const auto a = DispatchQueue::serial("a");
  const auto b = DispatchQueue::serial("b");
  for (int round = 0; round < 200; ++round) {
    kiv::Status ofA;
    kiv::Status ofB;
    a->async([&] { ofA = b->sync([] {}); });
    b->async([&] { ofB = a->sync([] {}); });
    EXPECT_TRUE(a->sync([] {}));
    EXPECT_TRUE(b->sync([] {}));
    EXPECT_TRUE(ofA || ofB);
    EXPECT_TRUE(ofA || isDeadlock(ofA));
    EXPECT_TRUE(ofB || isDeadlock(ofB));
  }
}

TEST_F(MainQueueTest, SyncFailsOnTheMainThread) {
  EXPECT_TRUE(isDeadlock(main_->sync([] {})));
  const auto queue = DispatchQueue::serial("q");
  kiv::Status inner;
  EXPECT_TRUE(queue->sync([&] { inner = main_->sync([] {}); }))
      << "the main thread waits, so it serves nobody";
  EXPECT_TRUE(isDeadlock(inner));
  EXPECT_EQ(main_->drain(), 0U);
}

TEST_F(MainQueueTest, SyncFailsInAJobThatRunsWithinOneOfTheQueue) {
  const auto queue = DispatchQueue::serial("q");
  kiv::Status inner;
  EXPECT_TRUE(queue->sync([&] {
    main_->async([&] { inner = queue->sync([] {}); });
    main_->drain();
  }));
  EXPECT_TRUE(isDeadlock(inner));
}

TEST_F(MainQueueTest, SyncWaitsForTheHostsLoop) {
  bool isMain = false;
  kiv::Status status;
  std::thread thread([&] {
    status = main_->sync([&] { isMain = kiv::system::isMainThread(); });
    main_->stop();
  });
  main_->run();
  thread.join();
  EXPECT_TRUE(status);
  EXPECT_TRUE(isMain);
}

TEST(SyncTest, ManyThreadsCallManyQueues) {
  std::vector<std::shared_ptr<DispatchQueue>> queues;
  for (int number = 0; number < 4; ++number)
    queues.push_back(DispatchQueue::serial(std::to_string(number)));
  std::vector<int> counts(queues.size());
  std::vector<std::thread> threads;
  for (int number = 0; number < 8; ++number) {
    threads.emplace_back([&] {
      for (int round = 0; round < 200; ++round) {
        for (std::size_t index = 0; index < queues.size(); ++index)
          EXPECT_TRUE(queues[index]->sync([&] { ++counts[index]; }));
      }
    });
  }
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(counts, std::vector<int>(4, 1600));
}

}  // namespace
