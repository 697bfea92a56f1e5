// How many threads a client takes for its transfers, and that nothing of what it does depends on
// it.

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "KivPlatform/KivRESTService/KivRESTService.h"
#include "KivPlatform/KivRESTService/policy/TransferSettings.h"
#include "Tests/KivPlatform/KivRESTService/Load.h"
#include "Tests/Support/LoopbackServer.h"
#include "Tests/Support/RangeServer.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace {

using namespace kiv::test;

std::size_t transferThreads() {
  std::size_t count = 0;
  for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
    std::string name;
    std::getline(std::ifstream(thread.path() / "comm"), name);
    if (name == "KivRESTService") ++count;
  }
  return count;
}

class KivRESTServiceThreads : public testing::Test {
 protected:
  KivRESTServiceThreads() {
    server_.serve("/a", Response::ok("x"));
    server_.serve("/stalls", Response::ok(std::string(1000, 'x')).stallAt(10));
  }

  /// Has that many transfers stall, and says how many threads there are then.
  std::size_t threadsFor(std::size_t transfers, kiv::TransferSettings settings) {
    KivRESTService client(std::move(settings));
    std::vector<Load> loads;
    for (std::size_t number = 1; number <= transfers; ++number)
      loads.emplace_back(client, server_.url("/stalls?" + std::to_string(number)));
    EXPECT_TRUE(server_.waitForRequests(transfers));
    return transferThreads();
  }

  LoopbackServer server_;
};

TEST_F(KivRESTServiceThreads, WhatComesAloneTakesOneThreadAndOneConnection) {
  KivRESTService client;
  for (int number = 0; number < 20; ++number) {
    ASSERT_TRUE(Load(client, server_.url("/a")).waitForEnd());
    ASSERT_EQ(transferThreads(), 1U);
  }
  EXPECT_EQ(server_.connectionCount(), 1U);
}

TEST_F(KivRESTServiceThreads, TwoAtOneTimeTakeTwo) {
  EXPECT_EQ(threadsFor(2, {}), 2U);
}

TEST_F(KivRESTServiceThreads, ManyAtOneTimeTakeNoMore) {
  EXPECT_EQ(threadsFor(6, {}), 2U);
}

TEST_F(KivRESTServiceThreads, ThereAreAsManyAsAreSet) {
  kiv::TransferSettings settings;
  settings.threads = 4;
  EXPECT_EQ(threadsFor(6, settings), 4U);
}

TEST_F(KivRESTServiceThreads, ThereAreNoMoreThanPlaces) {
  kiv::TransferSettings settings;
  settings.threads = 40;
  settings.parallelTransfers = 3;
  EXPECT_EQ(threadsFor(3, settings), 3U);
}

TEST_F(KivRESTServiceThreads, NoneIsOne) {
  kiv::TransferSettings settings;
  settings.threads = 0;
  EXPECT_EQ(threadsFor(6, settings), 1U);
}

TEST_F(KivRESTServiceThreads, ALimitOfTheSpeedTakesOne) {
  kiv::TransferSettings settings;
  settings.bandwidth = 1'000'000;
  EXPECT_EQ(threadsFor(6, settings), 1U);
}

TEST_F(KivRESTServiceThreads, ManyFilesTakeNoMoreConnectionsThanPlaces) {
  KivRESTService client;
  const auto loads = makeLoads(client, server_.url("/a"), 500);
  for (const auto& load : loads)
    ASSERT_TRUE(load.waitForEnd());
  EXPECT_LE(server_.connectionCount(), client.settings().parallelTransfers);
}

TEST_F(KivRESTServiceThreads, TheyGoWhenThereIsNothingToDo) {
  kiv::TransferSettings settings;
  settings.idleTime = std::chrono::seconds(0);
  KivRESTService client(settings);
  const auto loads = makeLoads(client, server_.url("/a"), 50);
  for (const auto& load : loads)
    ASSERT_TRUE(load.waitForEnd());
  EXPECT_TRUE(waitUntil([] { return transferThreads() == 0; }));
  ASSERT_TRUE(Load(client, server_.url("/a")).waitForEnd()) << "others come when they are needed";
}

TEST_F(KivRESTServiceThreads, ADropOfAllLeavesNothingInUse) {
  const TemporaryDirectory directory;
  const std::string body = patternedBytes(300'000);
  for (const std::string path : {"/1", "/2", "/3", "/4"}) {
    server_.serve(path, [body](const Request& request) {
      auto response = rangeResponse(request, body, "\"1\"");
      return request.header("Range") ? response : response.stallAt(200'000);
    });
  }
  kiv::TransferSettings settings;
  settings.spoolDirectory = directory.path("spool");
  settings.largestBodyInMemory = 1000;
  KivRESTService client(settings);
  client.setProgressHandler([](const KivRESTServiceProgress&) {});
  const auto makeAll = [&] {
    std::vector<Load> loads;
    for (const std::string path : {"/1", "/2", "/3", "/4"})
      loads.emplace_back(client, server_.url(path));
    return loads;
  };
  const auto stalled = makeAll();
  ASSERT_TRUE(waitUntil([&] {
    return std::all_of(stalled.begin(), stalled.end(), [](const Load& load) {
      return load.task()->progress().bytesReceived == 200'000;
    });
  }));
  client.cancelAllTasks();
  // At once: the threads that still hold the bodies have to let go of them first.
  const auto resumed = makeAll();
  for (const Load& load : resumed) {
    ASSERT_TRUE(load.waitForEnd());
    EXPECT_TRUE(load.body() == body);
    EXPECT_EQ(load.task()->metrics().resumedBytes, 200'000);
  }
}

}  // namespace
