#include <atomic>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "KivPlatform/Foundation/queues/DispatchQueue.h"
#include "KivPlatform/GCDMulticastDelegate/GCDMulticastDelegate.h"

namespace {

using kiv::DispatchQueue;

class Listener {
 public:
  virtual ~Listener() = default;
  virtual void heard(const std::string& word) = 0;
};

using Multicast = GCDMulticastDelegate<Listener>;

/// Records the words in a list that several recorders may share, then runs the action that the test
/// has set, once.
class Recorder : public Listener {
 public:
  explicit Recorder(std::string name, std::vector<std::string>& list)
      : name_(std::move(name)), list_(list) {}

  void heard(const std::string& word) override {
    list_.push_back(name_ + word);
    const auto action = std::exchange(onNext_, nullptr);
    if (action) action();
  }
  void onNext(std::function<void()> action) { onNext_ = std::move(action); }

 private:
  const std::string name_;
  std::vector<std::string>& list_;
  std::function<void()> onNext_;
};

struct Counter : Listener {
  void heard(const std::string&) override { ++count; }
  std::atomic<int> count = 0;
};

class GCDMulticastDelegateTest : public testing::Test {
 protected:
  void SetUp() override { drain(); }
  void TearDown() override { drain(); }

  std::shared_ptr<Recorder> recorder(const std::string& name) {
    return std::make_shared<Recorder>(name, heard_);
  }
  void add(const std::shared_ptr<Listener>& listener) {
    multicast_.addDelegate_delegateQueue(listener, main_);
  }
  /// A registered recorder.
  std::shared_ptr<Recorder> added(const std::string& name) {
    auto listener = recorder(name);
    add(listener);
    return listener;
  }
  void send(const std::string& word) {
    multicast_.send([word](Listener& listener) { listener.heard(word); });
  }
  /// Drains the main queue and returns the recorded words.
  std::vector<std::string> drain() {
    while (main_->drain() != 0) {
    }
    return std::exchange(heard_, {});
  }

  using Words = std::vector<std::string>;
  const std::shared_ptr<DispatchQueue> main_ = DispatchQueue::main();
  std::vector<std::string> heard_;
  Multicast multicast_;
};

void finishJobs(const std::shared_ptr<DispatchQueue>& queue) {
  std::promise<void> finished;
  auto future = finished.get_future();
  queue->async([&] { finished.set_value(); });
  ASSERT_EQ(future.wait_for(std::chrono::seconds(60)), std::future_status::ready);
}

TEST_F(GCDMulticastDelegateTest, DeliversLaterAndInOrder) {
  const auto a = added("a");
  const auto b = added("b");
  send("1");
  send("2");
  EXPECT_TRUE(heard_.empty());
  EXPECT_EQ(drain(), (Words{"a1", "b1", "a2", "b2"}));
}

TEST_F(GCDMulticastDelegateTest, WithoutObserversSendsNothing) {
  send("1");
  EXPECT_EQ(main_->drain(), 0U);
}

TEST_F(GCDMulticastDelegateTest, AnObserverHearsOnlyWhatIsSentWhileItIsRegistered) {
  const auto a = recorder("a");
  send("0");
  add(a);
  send("1");
  EXPECT_EQ(drain(), (Words{"a1"}));
  multicast_.removeDelegate(a);
  send("2");
  EXPECT_EQ(drain(), Words());
}

TEST_F(GCDMulticastDelegateTest, OnePairIsRegisteredOnce) {
  const auto a = added("a");
  add(a);
  send("1");
  EXPECT_EQ(drain(), (Words{"a1"}));
  multicast_.removeDelegate(a);
  send("2");
  EXPECT_EQ(drain(), Words());
}

TEST_F(GCDMulticastDelegateTest, WithoutAQueueOrAnObserverNothingIsRegistered) {
  const auto a = recorder("a");
  multicast_.addDelegate_delegateQueue(a, nullptr);
  multicast_.addDelegate_delegateQueue(nullptr, main_);
  multicast_.removeDelegate(nullptr);
  send("1");
  EXPECT_EQ(main_->drain(), 0U);
  EXPECT_EQ(heard_, Words());
}

TEST_F(GCDMulticastDelegateTest, RemovingAnUnknownObserverChangesNothing) {
  const auto a = added("a");
  multicast_.removeDelegate(recorder("b"));
  send("1");
  EXPECT_EQ(drain(), (Words{"a1"}));
}

TEST_F(GCDMulticastDelegateTest, RemovalStopsCallbacksThatAreOnTheirWay) {
  const auto a = added("a");
  const auto b = added("b");
  send("1");
  multicast_.removeDelegate(a);
  EXPECT_EQ(drain(), (Words{"b1"}));
}

TEST_F(GCDMulticastDelegateTest, AnObserverAddedAgainDoesNotHearWhatWasSentBefore) {
  const auto a = added("a");
  send("1");
  multicast_.removeDelegate(a);
  add(a);
  send("2");
  EXPECT_EQ(drain(), (Words{"a2"}));
}

TEST_F(GCDMulticastDelegateTest, AnObserverAddedAgainComesLast) {
  const auto a = added("a");
  const auto b = added("b");
  multicast_.removeDelegate(a);
  add(a);
  send("1");
  EXPECT_EQ(drain(), (Words{"b1", "a1"}));
}

TEST_F(GCDMulticastDelegateTest, HoldsItsObserversWeakly) {
  auto a = added("a");
  const std::weak_ptr<Recorder> watched = a;
  send("1");
  a.reset();
  EXPECT_TRUE(watched.expired());
  send("2");
  EXPECT_EQ(drain(), Words());
}

TEST_F(GCDMulticastDelegateTest, AnObserverInThePlaceOfOneThatHasGoneIsNotMistakenForIt) {
  // Not make_shared: a weak reference would keep the memory of the first one allocated.
  alignas(Recorder) unsigned char place[sizeof(Recorder)];
  const auto placed = [&](const char* name) {
    return std::shared_ptr<Recorder>(new (place) Recorder(name, heard_),
                                     [](Recorder* recorder) { recorder->~Recorder(); });
  };
  auto first = placed("a");
  add(first);
  send("1");
  first.reset();
  const auto second = placed("b");
  add(second);
  send("2");
  EXPECT_EQ(drain(), (Words{"b2"}));
}

TEST_F(GCDMulticastDelegateTest, AnObserverMayRemoveItselfDuringACallback) {
  const auto a = added("a");
  const auto b = added("b");
  a->onNext([&] { multicast_.removeDelegate(a); });
  send("1");
  send("2");
  EXPECT_EQ(drain(), (Words{"a1", "b1", "b2"}));
}

TEST_F(GCDMulticastDelegateTest, AnObserverMayRemoveAnotherDuringACallback) {
  const auto a = added("a");
  const auto b = added("b");
  const auto c = added("c");
  a->onNext([&] { multicast_.removeDelegate(b); });
  send("1");
  send("2");
  EXPECT_EQ(drain(), (Words{"a1", "c1", "a2", "c2"}));
}

TEST_F(GCDMulticastDelegateTest, AnObserverMayAddOneDuringACallback) {
  const auto a = added("a");
  const auto b = recorder("b");
  a->onNext([&] {
    add(b);
    send("2");
  });
  send("1");
  EXPECT_EQ(drain(), (Words{"a1", "a2", "b2"}));
}

TEST_F(GCDMulticastDelegateTest, AnObserverMayDieDuringItsOwnCallback) {
  auto a = added("a");
  const auto b = added("b");
  const std::weak_ptr<Recorder> watched = a;
  a->onNext([&] {
    a.reset();
    EXPECT_FALSE(watched.expired());  // kept alive until its callback has returned
  });
  send("1");
  send("2");
  EXPECT_EQ(drain(), (Words{"a1", "b1", "b2"}));
  EXPECT_TRUE(watched.expired());
}

TEST_F(GCDMulticastDelegateTest, AnObserverMayLetAnotherDieDuringACallback) {
  const auto a = added("a");
  auto b = added("b");
  a->onNext([&] { b.reset(); });
  send("1");
  send("2");
  EXPECT_EQ(drain(), (Words{"a1", "a2"}));
}

TEST_F(GCDMulticastDelegateTest, EveryObserverHearsOnItsOwnQueue) {
  struct QueueNote : Listener {
    void heard(const std::string&) override { queues.push_back(DispatchQueue::current()); }
    std::vector<std::shared_ptr<DispatchQueue>> queues;
  };
  const auto queue = DispatchQueue::serial("observer");
  const auto here = std::make_shared<QueueNote>();
  const auto there = std::make_shared<QueueNote>();
  multicast_.addDelegate_delegateQueue(here, main_);
  multicast_.addDelegate_delegateQueue(there, queue);
  send("1");
  finishJobs(queue);
  EXPECT_EQ(there->queues, std::vector{queue});
  EXPECT_TRUE(here->queues.empty());
  drain();
  EXPECT_EQ(here->queues, std::vector{main_});
}

TEST_F(GCDMulticastDelegateTest, OneObserverOnTwoQueuesHearsOnBothAndIsRemovedFromBoth) {
  const auto queue = DispatchQueue::serial("second");
  const auto counter = std::make_shared<Counter>();
  multicast_.addDelegate_delegateQueue(counter, main_);
  multicast_.addDelegate_delegateQueue(counter, queue);
  send("1");
  drain();
  finishJobs(queue);
  EXPECT_EQ(counter->count, 2);
  multicast_.removeDelegate(counter);
  send("2");
  drain();
  finishJobs(queue);
  EXPECT_EQ(counter->count, 2);
}

TEST_F(GCDMulticastDelegateTest, TheMulticasterMayGoWhileCallbacksAreOnTheirWay) {
  const auto a = recorder("a");
  auto multicast = std::make_unique<Multicast>();
  multicast->addDelegate_delegateQueue(a, main_);
  multicast->send([](Listener& listener) { listener.heard("1"); });
  multicast.reset();
  EXPECT_EQ(drain(), (Words{"a1"}));
}

TEST_F(GCDMulticastDelegateTest, AWakeUpHandlerMayUseTheMulticaster) {
  const auto a = added("a");
  main_->setWakeUpHandler([&] { multicast_.removeDelegate(a); });
  send("1");
  main_->setWakeUpHandler(nullptr);
  EXPECT_EQ(drain(), Words());
}

// A registration may own the last reference to a queue. Removing it then waits for the jobs of the
// queue, which may call the multicaster.
TEST_F(GCDMulticastDelegateTest, AQueueThatGoesWithItsRegistrationMayStillUseTheMulticaster) {
  const auto a = recorder("a");
  const auto b = recorder("b");
  auto queue = DispatchQueue::serial("last holder");
  queue->async([&, watched = std::weak_ptr<DispatchQueue>(queue)] {
    while (!watched.expired())
      std::this_thread::yield();
    add(b);
  });
  multicast_.addDelegate_delegateQueue(a, queue);
  queue.reset();
  multicast_.removeDelegate(a);
  send("1");
  EXPECT_EQ(drain(), (Words{"b1"}));
}

TEST_F(GCDMulticastDelegateTest, ObserversComeAndGoOnManyThreadsWhileCallbacksAreSent) {
  constexpr int rounds = 200;
  const auto queue = DispatchQueue::serial("busy");
  const auto steady = std::make_shared<Counter>();
  multicast_.addDelegate_delegateQueue(steady, queue);
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 3; ++thread) {
    threads.emplace_back([&] {
      for (int round = 0; round < rounds; ++round) {
        const auto passing = std::make_shared<Counter>();
        multicast_.addDelegate_delegateQueue(passing, queue);
        if (round % 2 == 0) multicast_.removeDelegate(passing);
      }
    });
    threads.emplace_back([&] {
      for (int round = 0; round < rounds; ++round)
        send("x");
    });
  }
  for (auto& thread : threads)
    thread.join();
  finishJobs(queue);
  EXPECT_EQ(steady->count, 3 * rounds);
}

TEST_F(GCDMulticastDelegateTest, AfterItsRemovalOnItsOwnQueueAnObserverHearsNothing) {
  struct Strict : Listener {
    void heard(const std::string&) override { EXPECT_FALSE(removed); }
    bool removed = false;  // accessed only on the queue
  };
  const auto queue = DispatchQueue::serial("strict");
  for (int round = 0; round < 100; ++round) {
    const auto strict = std::make_shared<Strict>();
    multicast_.addDelegate_delegateQueue(strict, queue);
    std::thread sender([&] {
      for (int word = 0; word < 10; ++word)
        send("x");
    });
    queue->async([&, strict] {
      multicast_.removeDelegate(strict);
      strict->removed = true;
    });
    sender.join();
    finishJobs(queue);
  }
}

}  // namespace
