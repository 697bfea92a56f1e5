#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <mutex>
#include <vector>

#include <gtest/gtest.h>

#include "KivPlatform/KivRESTService/KivRESTService.h"
#include "Tests/KivPlatform/KivRESTService/Load.h"
#include "Tests/Support/LoopbackServer.h"
#include "Tests/Support/MainQueue.h"

namespace {

using namespace kiv::test;

/// The wake-up handler of the main queue may wait for a thread that uses the client: the framework
/// holds no lock while it runs.
TEST(KivRESTServiceLocks, AWakeUpHandlerMayWaitForAThreadThatUsesTheClient) {
  LoopbackServer server;
  server.serve("/a", Response::ok(std::string(1000, 'x')));
  auto client = std::make_unique<KivRESTService>();
  std::atomic<int> blocked = 0;
  std::atomic<int> calls = 0;
  // If the test fails, the blocked calls are kept until they return.
  std::vector<std::future<void>> others;
  std::mutex mutex;
  kiv::DispatchQueue::main()->setWakeUpHandler([&] {
    ++calls;
    auto other = std::async(std::launch::async, [&] {
      static_cast<void>(client->currentQueue());
      client->queue(Load::makeTask({server.url("/missing")}));
      client->setEndHandler(nullptr);
      client->setProgressHandler([](const KivRESTServiceProgress&) {});
    });
    if (blocked > 0) return;
    if (other.wait_for(std::chrono::seconds(10)) != std::future_status::ready) ++blocked;
    const std::lock_guard lock(mutex);
    others.push_back(std::move(other));
  });
  client->setProgressHandler([](const KivRESTServiceProgress&) {});
  for (int round = 0; round < 20 && blocked == 0; ++round) {
    const auto loads = makeLoads(*client, server.url("/a"), 3);
    for (const auto& load : loads)
      EXPECT_TRUE(load.waitForEnd());
  }
  EXPECT_EQ(blocked, 0);
  EXPECT_GT(calls, 0);
  kiv::DispatchQueue::main()->setWakeUpHandler(nullptr);
  others.clear();
  client.reset();
  while (kiv::DispatchQueue::main()->drain() != 0) {
  }
}

}  // namespace
