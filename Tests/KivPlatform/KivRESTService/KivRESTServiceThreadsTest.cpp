// The number of threads a client uses for its transfers, and that its behaviour does not depend on
// it.

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Tests/KivPlatform/KivRESTService/ClientFixture.h"
#include "Tests/KivPlatform/KivRESTService/TransferThreads.h"
#include "Tests/Support/NginxServer.h"
#include "Tests/Support/RangeServer.h"

namespace {

using namespace kiv::test;

class KivRESTServiceThreads : public ClientFixture {
 protected:
  KivRESTServiceThreads() {
    server_.serve("/a", Response::ok("x"));
    server_.serve("/stalls", Response::ok(std::string(1000, 'x')).stallAt(10));
  }

  /// Starts that many transfers that stall, and returns the number of transfer threads.
  std::size_t threadsFor(std::size_t transfers) {
    const auto loads = makeLoads(client(), url("/stalls"), transfers);
    EXPECT_TRUE(server_.waitForRequests(transfers));
    return transferThreads();
  }

  /// The server waits for a request and ignores the start of a TLS handshake.
  [[nodiscard]] std::string secureURLThatStalls() const { return "https" + url().substr(4); }
};

TEST_F(KivRESTServiceThreads, WhatComesAloneTakesOneThreadAndOneConnection) {
  for (int number = 0; number < 20; ++number) {
    ASSERT_TRUE(loaded().hasEnded());
    ASSERT_EQ(transferThreads(), 1U);
  }
  EXPECT_EQ(server_.connectionCount(), 1U);
}

TEST_F(KivRESTServiceThreads, TwoAtOneTimeTakeTwo) {
  EXPECT_EQ(threadsFor(2), 2U);
}

TEST_F(KivRESTServiceThreads, ManyAtOneTimeTakeNoMore) {
  EXPECT_EQ(threadsFor(6), 2U);
}

/// A second thread would parse the certificate authorities again.
TEST_F(KivRESTServiceThreads, AFewOverHTTPSTakeOne) {
  settings_.http2 = false;
  const auto loads = makeLoads(client(), secureURLThatStalls(), 6);
  EXPECT_TRUE(waitUntil([&] { return server_.connectionCount() == 6; }));
  EXPECT_EQ(transferThreads(), 1U);
}

TEST_F(KivRESTServiceThreads, ManyOverHTTPSTakeTwo) {
  NginxServer server;
  server.addFile("file", "contents");
  settings_.certificateAuthoritiesPath = server.certificatePath();
  expectBodies(makeLoads(client(), server.secureURL("/file"), 100), "contents");
  EXPECT_EQ(transferThreads(), 2U);
}

TEST_F(KivRESTServiceThreads, ThereAreAsManyAsAreSet) {
  settings_.threads = 4;
  EXPECT_EQ(threadsFor(6), 4U);
}

TEST_F(KivRESTServiceThreads, ThereAreNoMoreThanPlaces) {
  settings_.threads = 40;
  settings_.parallelTransfers = 3;
  EXPECT_EQ(threadsFor(3), 3U);
}

TEST_F(KivRESTServiceThreads, NoneIsOne) {
  settings_.threads = 0;
  EXPECT_EQ(threadsFor(6), 1U);
}

TEST_F(KivRESTServiceThreads, ALimitOfTheSpeedTakesOne) {
  settings_.bandwidth = 1'000'000;
  EXPECT_EQ(threadsFor(6), 1U);
}

TEST_F(KivRESTServiceThreads, ManyFilesTakeNoMoreConnectionsThanPlaces) {
  const auto loads = makeLoads(client(), url(), 500);
  ASSERT_TRUE(waitForEnd(loads));
  EXPECT_LE(server_.connectionCount(), client().settings().parallelTransfers);
}

TEST_F(KivRESTServiceThreads, TheyGoWhenThereIsNothingToDo) {
  settings_.idleTime = std::chrono::seconds(0);
  const auto loads = makeLoads(client(), url(), 50);
  ASSERT_TRUE(waitForEnd(loads));
  EXPECT_TRUE(waitUntil([] { return transferThreads() == 0; }));
  ASSERT_TRUE(Load(client(), url()).waitForEnd()) << "others come when they are needed";
}

TEST_F(KivRESTServiceThreads, ADropOfAllLeavesNothingInUse) {
  const std::string body = patternedBytes(300'000);
  server_.serve("/a", [body](const Request& request) {
    auto response = rangeResponse(request, body, "\"1\"");
    return request.header("Range") ? response : response.stallAt(200'000);
  });
  spool();
  client().setProgressHandler([](const KivRESTServiceProgress&) {});
  const auto stalled = makeLoads(client(), url(), 4);
  ASSERT_TRUE(waitUntil([&] {
    return std::all_of(stalled.begin(), stalled.end(), [](const Load& load) {
      return load.task()->progress().bytesReceived == 200'000;
    });
  }));
  client().cancelAllTasks();
  // Immediately afterwards: the threads that still own the bodies must release them first.
  const auto resumed = makeLoads(client(), url(), 4);
  for (const Load& load : resumed) {
    ASSERT_TRUE(load.waitForEnd());
    EXPECT_TRUE(load.body() == body);
    EXPECT_EQ(load.task()->metrics().resumedBytes, 200'000);
  }
}

}  // namespace
