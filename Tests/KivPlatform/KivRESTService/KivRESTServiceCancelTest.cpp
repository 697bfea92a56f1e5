#include <array>
#include <atomic>
#include <filesystem>
#include <semaphore>
#include <thread>

#include <gtest/gtest.h>

#include "KivPlatform/Foundation/queues/DispatchQueue.h"
#include "KivPlatform/KivRESTService/KivRESTService.h"
#include "Tests/KivPlatform/KivRESTService/Load.h"
#include "Tests/Support/LoopbackServer.h"
#include "Tests/Support/LoopbackServerSockets.h"

namespace {

using namespace kiv::test;
using kiv::DispatchQueue;

std::size_t entriesOf(const char* directory) {
  std::size_t count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(directory))
    ++count;
  return count;
}

/// Loads one file, which ends after everything that was on the client's queue before.
void settle(KivRESTService& client, LoopbackServer& server) {
  server.serve("/settle", Response::ok("x"));
  ASSERT_TRUE(Load(client, server.url("/settle")).waitForEnd());
}

TEST(KivRESTServiceCancel, WithoutTasksNothingHappens) {
  KivRESTService client;
  client.cancelAllTasks();
  EXPECT_TRUE(client.currentQueue().empty());
}

TEST(KivRESTServiceCancel, RunningTransfersStopAtOnce) {
  LoopbackServer server;
  server.serve("/a", Response::ok(std::string(1000, 'x')).stallAt(10));
  KivRESTService client;
  const auto loads = makeLoads(client, server.url("/a"), 6);
  ASSERT_TRUE(server.waitForRequests(6));
  client.cancelAllTasks();
  EXPECT_TRUE(client.currentQueue().empty());
  EXPECT_TRUE(server.waitForNoConnection());
  settle(client, server);
  for (const auto& load : loads)
    EXPECT_EQ(load.completions(), 0);
}

TEST(KivRESTServiceCancel, AnEndlessBodyStops) {
  LoopbackServer server;
  server.serve("/a", Response::ok(std::string(100'000, 'x')).chunked().endless());
  KivRESTService client;
  const Load load(client, server.url("/a"));
  ASSERT_TRUE(server.waitForRequests(1));
  client.cancelAllTasks();
  EXPECT_TRUE(server.waitForNoConnection());
  EXPECT_EQ(load.completions(), 0);
}

TEST(KivRESTServiceCancel, WaitingTasksNeverStart) {
  LoopbackServer server;
  server.serve("/a", Response::nothing().stallAt(0));
  KivRESTService client;
  const auto loads = makeLoads(client, server.url("/a"), 20);
  ASSERT_TRUE(server.waitForRequests(6));
  client.cancelAllTasks();
  settle(client, server);
  EXPECT_EQ(server.requests("/a").size(), 6u);
  for (const auto& load : loads)
    EXPECT_EQ(load.completions(), 0);
}

TEST(KivRESTServiceCancel, TasksThatWereJustQueuedAreCancelled) {
  LoopbackServer server;
  KivRESTService client;
  const Load load(client, server.url("/a"));
  client.cancelAllTasks();
  settle(client, server);
  EXPECT_EQ(load.completions(), 0);
}

TEST(KivRESTServiceCancel, ATaskWhoseCompletionIsOnItsWayIsNotCompleted) {
  LoopbackServer server;
  server.serve("/a", Response::ok("x"));
  KivRESTService client;
  const Load load(client, server.url("/a"));
  // Its completion comes to the main queue, which nobody drains.
  const auto posted = std::make_shared<std::counting_semaphore<>>(0);
  DispatchQueue::main()->setWakeUpHandler([posted] { posted->release(); });
  posted->acquire();
  DispatchQueue::main()->setWakeUpHandler(nullptr);
  EXPECT_EQ(client.currentQueue().size(), 1u);
  client.cancelAllTasks();
  EXPECT_TRUE(client.currentQueue().empty());
  settle(client, server);
  EXPECT_EQ(load.completions(), 0);
  EXPECT_FALSE(load.task()->response());
}

TEST(KivRESTServiceCancel, ACompletionMayCancelTheOthers) {
  LoopbackServer server;
  server.serve("/a", Response::ok("x"));
  KivRESTService client;
  int completions = 0;
  for (int count = 0; count < 20; ++count) {
    auto task = Load::makeTask({server.url("/a")});
    task->setCompletionHandler([&](KivRESTServiceTask&) {
      ++completions;
      client.cancelAllTasks();
    });
    client.queue(task);
  }
  ASSERT_TRUE(waitUntil([&] { return completions > 0; }));
  settle(client, server);
  EXPECT_EQ(completions, 1);
}

TEST(KivRESTServiceCancel, TheClientServesAgainAfterwards) {
  LoopbackServer server;
  server.serve("/slow", Response::nothing().stallAt(0));
  server.serve("/a", Response::ok("x"));
  KivRESTService client;
  for (int round = 0; round < 20; ++round) {
    const Load slow(client, server.url("/slow"));
    client.cancelAllTasks();
    const Load load(client, server.url("/a"));
    ASSERT_TRUE(load.waitForEnd());
    EXPECT_EQ(load.body(), "x");
    EXPECT_EQ(slow.completions(), 0);
  }
}

TEST(KivRESTServiceCancel, HandlersAreLetGoOfAtOnceOnTheClientsQueue) {
  LoopbackServer server;
  server.serve("/a", Response::nothing().stallAt(0));
  KivRESTService client;
  auto task = Load::makeTask({server.url("/a")});
  const std::weak_ptr<KivRESTServiceTask> watched = task;
  task->setCompletionHandler([task](KivRESTServiceTask&) {});
  client.queue(std::move(task));
  ASSERT_TRUE(server.waitForRequests(1));
  client.cancelAllTasks();
  EXPECT_TRUE(watched.expired());
}

TEST(KivRESTServiceCancel, HandlersAreLetGoOfOnTheClientsQueueFromAnotherThread) {
  LoopbackServer server;
  server.serve("/a", Response::nothing().stallAt(0));
  KivRESTService client;
  auto task = Load::makeTask({server.url("/a")});
  const std::weak_ptr<KivRESTServiceTask> watched = task;
  auto releasedOn = std::make_shared<std::thread::id>();
  task->setCompletionHandler([task, token = std::shared_ptr<void>(nullptr, [releasedOn](void*) {
                                      *releasedOn = std::this_thread::get_id();
                                    })](KivRESTServiceTask&) {});
  client.queue(std::move(task));
  std::thread([&] { client.cancelAllTasks(); }).join();
  EXPECT_TRUE(client.currentQueue().empty());
  EXPECT_TRUE(waitUntil([&] { return watched.expired(); }));
  EXPECT_EQ(*releasedOn, std::this_thread::get_id());
}

TEST(KivRESTServiceCancel, HandlersMayDestroyTheClientWhenTheyAreLetGoOf) {
  LoopbackServer server;
  server.serve("/a", Response::nothing().stallAt(0));
  auto client = std::make_shared<KivRESTService>();
  const std::weak_ptr<KivRESTService> watched = client;
  auto task = Load::makeTask({server.url("/a")});
  task->setCompletionHandler([client](KivRESTServiceTask&) {});
  client->queue(std::move(task));
  ASSERT_TRUE(server.waitForRequests(1));
  auto* const last = client.get();
  client.reset();
  last->cancelAllTasks();
  EXPECT_TRUE(watched.expired());
  EXPECT_TRUE(server.waitForNoConnection());
}

TEST(KivRESTServiceCancel, LeavesNoThreadAndNoDescriptorBehind) {
  LoopbackServer server;
  server.serve("/a", Response::ok("x"));
  server.serve("/slow", Response::nothing().stallAt(0));
  { KivRESTService().queue(Load::makeTask({server.url("/a")})); }  // what the libraries keep
  ASSERT_TRUE(server.waitForNoConnection());
  const auto threads = entriesOf("/proc/self/task");
  const auto descriptors = entriesOf("/proc/self/fd");
  KivRESTService client;
  ASSERT_TRUE(Load(client, server.url("/a")).waitForEnd());
  const auto loads = makeLoads(client, server.url("/slow"), 20);
  ASSERT_TRUE(server.waitForRequests("/slow", 6));
  client.cancelAllTasks();
  EXPECT_TRUE(waitUntil([&] { return entriesOf("/proc/self/fd") <= descriptors; }));
  EXPECT_TRUE(waitUntil([&] { return entriesOf("/proc/self/task") <= threads; }));
}

TEST(KivRESTServiceCancel, DestructionWithTasksInEveryState) {
  LoopbackServer server;
  server.serve("/a", Response::ok("x"));
  server.serve("/slow", Response::ok(std::string(1000, 'x')).stallAt(10));
  std::vector<Load> loads;
  {
    KivRESTService client;
    loads.emplace_back(client, server.url("/a"));
    for (int count = 0; count < 20; ++count)
      loads.emplace_back(client, server.url("/slow?" + std::to_string(count)));
    ASSERT_TRUE(server.waitForRequests("/slow", 5));
  }
  EXPECT_TRUE(server.waitForNoConnection());
  KivRESTService another;
  settle(another, server);
  for (const auto& load : loads)
    EXPECT_EQ(load.completions(), 0);
}

TEST(KivRESTServiceCancel, DestructionWhileLookingUpAHostThatDoesNotExist) {
  const Load load = [] {
    KivRESTService client;
    return Load(client, "http://no-such-host.invalid/a");
  }();
  EXPECT_EQ(load.completions(), 0);
}

TEST(KivRESTServiceCancel, DestructionWithoutAnyTask) {
  EXPECT_NO_THROW(KivRESTService());
}

TEST(KivRESTServiceCancel, DestructionInACompletion) {
  LoopbackServer server;
  server.serve("/a", Response::ok("x"));
  server.serve("/slow", Response::nothing().stallAt(0));
  auto client = std::make_unique<KivRESTService>();
  auto task = Load::makeTask({server.url("/a")});
  task->setCompletionHandler([&](KivRESTServiceTask&) { client.reset(); });
  const Load slow(*client, server.url("/slow"));
  client->queue(task);
  EXPECT_TRUE(waitUntil([&] { return !client; }));
  EXPECT_TRUE(server.waitForNoConnection());
  EXPECT_EQ(slow.completions(), 0);
}

TEST(KivRESTServiceCancel, DestructionOnAnotherThreadThanTheQueues) {
  LoopbackServer server;
  server.serve("/a", Response::ok("x"));
  const auto queue = DispatchQueue::serial("client");
  std::atomic<int> completions = 0;
  for (int round = 0; round < 20; ++round) {
    std::unique_ptr<KivRESTService> client;
    runOn(*queue, [&] { client = std::make_unique<KivRESTService>(); });
    for (int count = 0; count < 10; ++count) {
      auto task = Load::makeTask({server.url("/a")});
      task->setCompletionHandler([&](KivRESTServiceTask&) { ++completions; });
      client->queue(task);
    }
    ASSERT_TRUE(server.waitForRequests("/a", 1));
  }
  runOn(*queue, [] {});
  const int completionsSoFar = completions;
  runOn(*queue, [] {});
  EXPECT_EQ(completions, completionsSoFar);
  EXPECT_LE(completions, 200);
}

TEST(KivRESTServiceCancel, QueuingAndCancellingFromManyThreadsCompletesNothingTwice) {
  LoopbackServer server;
  server.serve("/a", Response::ok("x"));
  KivRESTService client;
  std::vector<std::shared_ptr<int>> counts(200);
  for (auto& count : counts)
    count = std::make_shared<int>(0);
  std::array<std::thread, 4> threads;
  for (std::size_t first = 0; first < threads.size(); ++first) {
    threads[first] = std::thread([&, first] {
      for (std::size_t at = first; at < counts.size(); at += threads.size()) {
        auto task = Load::makeTask({server.url("/a")});
        task->setCompletionHandler([count = counts[at]](KivRESTServiceTask&) { ++*count; });
        client.queue(task);
        if (at % 16 == 0) client.cancelAllTasks();
      }
    });
  }
  EXPECT_TRUE(waitUntil([&] { return client.currentQueue().empty(); }));
  for (auto& thread : threads)
    thread.join();
  EXPECT_TRUE(waitUntil([&] { return client.currentQueue().empty(); }));
  settle(client, server);
  for (const auto& count : counts)
    EXPECT_LE(*count, 1);
}

}  // namespace
