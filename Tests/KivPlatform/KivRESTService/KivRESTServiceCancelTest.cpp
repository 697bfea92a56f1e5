#include <array>
#include <atomic>
#include <filesystem>
#include <semaphore>
#include <thread>

#include <gtest/gtest.h>

#include "KivPlatform/Foundation/queues/DispatchQueue.h"
#include "Tests/KivPlatform/KivRESTService/ClientFixture.h"

namespace {

using namespace kiv::test;
using kiv::DispatchQueue;

std::size_t entriesOf(const char* directory) {
  std::size_t count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(directory))
    ++count;
  return count;
}

class KivRESTServiceCancel : public ClientFixture {
 protected:
  KivRESTServiceCancel() {
    server_.serve("/a", Response::ok("x"));
    server_.serve("/slow", Response::nothing().stallAt(0));
  }

  /// Loads another file, whose completion runs after all earlier jobs of the client's queue, and
  /// expects that none of `loads` has been completed.
  void expectNoCompletion(const std::vector<Load>& loads) {
    ASSERT_EQ(loaded().body(), "x");
    for (const auto& load : loads)
      EXPECT_EQ(load.completions(), 0);
  }
};

TEST_F(KivRESTServiceCancel, WithoutTasksNothingHappens) {
  client().cancelAllTasks();
  EXPECT_TRUE(client().currentQueue().empty());
}

TEST_F(KivRESTServiceCancel, RunningTransfersStopAtOnce) {
  server_.serve("/slow", Response::ok(std::string(1000, 'x')).stallAt(10));
  const auto loads = makeLoads(client(), url("/slow"), 6);
  ASSERT_TRUE(server_.waitForRequests(6));
  client().cancelAllTasks();
  EXPECT_TRUE(client().currentQueue().empty());
  EXPECT_TRUE(server_.waitForNoConnection());
  expectNoCompletion(loads);
}

TEST_F(KivRESTServiceCancel, AnEndlessBodyStops) {
  server_.serve("/a", Response::ok(std::string(100'000, 'x')).chunked().endless());
  const Load load(client(), url());
  ASSERT_TRUE(server_.waitForRequests(1));
  client().cancelAllTasks();
  EXPECT_TRUE(server_.waitForNoConnection());
  EXPECT_EQ(load.completions(), 0);
}

TEST_F(KivRESTServiceCancel, WaitingTasksNeverStart) {
  const auto loads = makeLoads(client(), url("/slow"), 20);
  ASSERT_TRUE(server_.waitForRequests(6));
  client().cancelAllTasks();
  expectNoCompletion(loads);
  EXPECT_EQ(server_.requests("/slow").size(), 6u);
}

TEST_F(KivRESTServiceCancel, TasksThatWereJustQueuedAreCancelled) {
  const Load load(client(), url());
  client().cancelAllTasks();
  expectNoCompletion({load});
}

TEST_F(KivRESTServiceCancel, ATaskWhoseCompletionIsOnItsWayIsNotCompleted) {
  const Load load(client(), url());
  // Wait until its completion is on the main queue, which is not drained.
  const auto posted = std::make_shared<std::counting_semaphore<>>(0);
  DispatchQueue::main()->setWakeUpHandler([posted] { posted->release(); });
  posted->acquire();
  DispatchQueue::main()->setWakeUpHandler(nullptr);
  EXPECT_EQ(client().currentQueue().size(), 1u);
  client().cancelAllTasks();
  EXPECT_TRUE(client().currentQueue().empty());
  expectNoCompletion({load});
  EXPECT_FALSE(load.task()->response());
}

TEST_F(KivRESTServiceCancel, ACompletionMayCancelTheOthers) {
  int completions = 0;
  for (int count = 0; count < 20; ++count) {
    queue(url(), [&](KivRESTServiceTask&) {
      ++completions;
      client().cancelAllTasks();
    });
  }
  ASSERT_TRUE(waitUntil([&] { return completions > 0; }));
  expectNoCompletion({});
  EXPECT_EQ(completions, 1);
}

TEST_F(KivRESTServiceCancel, TheClientServesAgainAfterwards) {
  for (int round = 0; round < 20; ++round) {
    const Load slow(client(), url("/slow"));
    client().cancelAllTasks();
    EXPECT_EQ(loaded().body(), "x");
    EXPECT_EQ(slow.completions(), 0);
  }
}

TEST_F(KivRESTServiceCancel, HandlersAreLetGoOfAtOnceOnTheClientsQueue) {
  auto task = Load::makeTask({url("/slow")});
  const std::weak_ptr<KivRESTServiceTask> watched = task;
  task->setCompletionHandler([task](KivRESTServiceTask&) {});
  client().queue(std::move(task));
  ASSERT_TRUE(server_.waitForRequests(1));
  client().cancelAllTasks();
  EXPECT_TRUE(watched.expired());
}

TEST_F(KivRESTServiceCancel, HandlersAreLetGoOfOnTheClientsQueueFromAnotherThread) {
  auto task = Load::makeTask({url("/slow")});
  const std::weak_ptr<KivRESTServiceTask> watched = task;
  auto releasedOn = std::make_shared<std::thread::id>();
  task->setCompletionHandler([task, token = std::shared_ptr<void>(nullptr, [releasedOn](void*) {
                                      *releasedOn = std::this_thread::get_id();
                                    })](KivRESTServiceTask&) {});
  client().queue(std::move(task));
  std::thread([&] { client().cancelAllTasks(); }).join();
  EXPECT_TRUE(client().currentQueue().empty());
  EXPECT_TRUE(waitUntil([&] { return watched.expired(); }));
  EXPECT_EQ(*releasedOn, std::this_thread::get_id());
}

TEST_F(KivRESTServiceCancel, HandlersMayDestroyTheClientWhenTheyAreLetGoOf) {
  auto client = std::make_shared<KivRESTService>();
  const std::weak_ptr<KivRESTService> watched = client;
  auto task = Load::makeTask({url("/slow")});
  task->setCompletionHandler([client](KivRESTServiceTask&) {});
  client->queue(std::move(task));
  ASSERT_TRUE(server_.waitForRequests(1));
  auto* const last = client.get();
  client.reset();
  last->cancelAllTasks();
  EXPECT_TRUE(watched.expired());
  EXPECT_TRUE(server_.waitForNoConnection());
}

TEST_F(KivRESTServiceCancel, LeavesNoThreadAndNoDescriptorBehind) {
  { KivRESTService().queue(Load::makeTask({url()})); }  // for resources that the libraries keep
  ASSERT_TRUE(server_.waitForNoConnection());
  const auto threads = entriesOf("/proc/self/task");
  const auto descriptors = entriesOf("/proc/self/fd");
  ASSERT_TRUE(loaded().hasEnded());
  const auto loads = makeLoads(client(), url("/slow"), 20);
  ASSERT_TRUE(server_.waitForRequests("/slow", 6));
  client().cancelAllTasks();
  EXPECT_TRUE(waitUntil([&] { return entriesOf("/proc/self/fd") <= descriptors; }));
  EXPECT_TRUE(waitUntil([&] { return entriesOf("/proc/self/task") <= threads; }));
}

TEST_F(KivRESTServiceCancel, DestructionWithTasksInEveryState) {
  server_.serve("/slow", Response::ok(std::string(1000, 'x')).stallAt(10));
  auto loads = makeLoads(client(), url(), 1);
  for (const Load& load : makeLoads(client(), url("/slow"), 20))
    loads.push_back(load);
  ASSERT_TRUE(server_.waitForRequests("/slow", 5));
  endClient();
  EXPECT_TRUE(server_.waitForNoConnection());
  expectNoCompletion(loads);
}

TEST_F(KivRESTServiceCancel, DestructionWhileLookingUpAHostThatDoesNotExist) {
  const Load load = [] {
    KivRESTService client;
    return Load(client, "http://no-such-host.invalid/a");
  }();
  EXPECT_EQ(load.completions(), 0);
}

TEST_F(KivRESTServiceCancel, DestructionWithoutAnyTask) {
  EXPECT_NO_THROW(KivRESTService());
}

TEST_F(KivRESTServiceCancel, DestructionInACompletion) {
  auto client = std::make_unique<KivRESTService>();
  auto task = Load::makeTask({url()});
  task->setCompletionHandler([&](KivRESTServiceTask&) { client.reset(); });
  const Load slow(*client, url("/slow"));
  client->queue(task);
  EXPECT_TRUE(waitUntil([&] { return !client; }));
  EXPECT_TRUE(server_.waitForNoConnection());
  EXPECT_EQ(slow.completions(), 0);
}

TEST_F(KivRESTServiceCancel, DestructionOnAnotherThreadThanTheQueues) {
  const auto queue = DispatchQueue::serial("client");
  std::atomic<int> completions = 0;
  for (int round = 0; round < 20; ++round) {
    std::unique_ptr<KivRESTService> client;
    runOn(*queue, [&] { client = std::make_unique<KivRESTService>(); });
    for (int count = 0; count < 10; ++count) {
      auto task = Load::makeTask({url()});
      task->setCompletionHandler([&](KivRESTServiceTask&) { ++completions; });
      client->queue(task);
    }
    ASSERT_TRUE(server_.waitForRequests("/a", 1));
  }
  runOn(*queue, [] {});
  const int completionsSoFar = completions;
  runOn(*queue, [] {});
  EXPECT_EQ(completions, completionsSoFar);
  EXPECT_LE(completions, 200);
}

TEST_F(KivRESTServiceCancel, QueuingAndCancellingFromManyThreadsCompletesNothingTwice) {
  std::vector<std::shared_ptr<int>> counts(200);
  for (auto& count : counts)
    count = std::make_shared<int>(0);
  KivRESTService& shared = client();
  std::array<std::thread, 4> threads;
  for (std::size_t first = 0; first < threads.size(); ++first) {
    threads[first] = std::thread([&, first] {
      for (std::size_t at = first; at < counts.size(); at += threads.size()) {
        auto task = Load::makeTask({url()});
        task->setCompletionHandler([count = counts[at]](KivRESTServiceTask&) { ++*count; });
        shared.queue(task);
        if (at % 16 == 0) shared.cancelAllTasks();
      }
    });
  }
  EXPECT_TRUE(waitUntil([&] { return client().currentQueue().empty(); }));
  for (auto& thread : threads)
    thread.join();
  EXPECT_TRUE(waitUntil([&] { return client().currentQueue().empty(); }));
  expectNoCompletion({});
  for (const auto& count : counts)
    EXPECT_LE(*count, 1);
}

}  // namespace
