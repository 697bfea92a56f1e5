#include <future>
#include <memory>
#include <thread>

#include <gtest/gtest.h>

#include "KivPlatform/Foundation/queues/QueueAssertion.h"

namespace {

using kiv::DispatchQueue;
using kiv::QueueAssertion;

/// An object without a lock, confined to one queue.
class Counter {
 public:
  void increment() { queue_.check("Counter"); }

 private:
  QueueAssertion queue_{"the counter"};
};

template <class Job>
void runOn(DispatchQueue& queue, Job job) {
  std::promise<void> done;
  queue.async([&] {
    job();
    done.set_value();
  });
  done.get_future().wait();
}

TEST(QueueAssertionTest, AnObjectIsUsedOnTheQueueOnWhichItWasMade) {
  const auto queue = DispatchQueue::serial("counter");
  std::unique_ptr<Counter> counter;
  runOn(*queue, [&] { counter = std::make_unique<Counter>(); });
  runOn(*queue, [&] { counter->increment(); });
}

TEST(QueueAssertionTest, OnAThreadWithoutAQueueTheMainQueueCounts) {
  std::unique_ptr<Counter> counter;
  std::thread([&] {
    counter = std::make_unique<Counter>();
    counter->increment();
  }).join();
  counter->increment();
  DispatchQueue::main()->async([&] { counter->increment(); });
  std::thread([] { DispatchQueue::main()->drain(); }).join();
}

TEST(QueueAssertionTest, WhereTheQueueIsGoneNothingIsChecked) {
  std::unique_ptr<Counter> counter;
  {
    const auto queue = DispatchQueue::serial("counter");
    runOn(*queue, [&] { counter = std::make_unique<Counter>(); });
  }
  counter->increment();
}

// Assertions are disabled with NDEBUG.
#ifndef NDEBUG
TEST(QueueAssertionDeathTest, AnotherQueueOrThreadEndsTheProgram) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  const std::string message =
      "Counter::increment was called off the queue on which the counter was made; post it there "
      "with kiv::DispatchQueue::async";
  EXPECT_DEATH(
      {
        Counter counter;
        runOn(*DispatchQueue::serial("other"), [&] { counter.increment(); });
      },
      message);
  EXPECT_DEATH(
      {
        Counter counter;
        std::thread([&] { counter.increment(); }).join();
      },
      message);
}
#endif

}  // namespace
