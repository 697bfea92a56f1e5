// The bandwidth limit applies to a client as a whole, however many transfers it runs.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Tests/KivPlatform/KivRESTService/ClientFixture.h"
#include "Tests/KivPlatform/KivRESTService/TransferThreads.h"
#include "Tests/Support/NginxServer.h"
#include "Tests/Support/RangeServer.h"

namespace {

using namespace kiv::test;
using Clock = std::chrono::steady_clock;

class KivRESTServiceBandwidthTest : public ClientFixture {
 protected:
  /// Loads `count` files, at least one, and returns the seconds it took.
  double secondsFor(const std::string& path, std::size_t count) {
    KivRESTService client(settings_);
    const auto start = Clock::now();
    const auto loads = makeLoads(client, server_.url(path), count);
    for (const auto& load : loads) {
      EXPECT_TRUE(load.waitForEnd());
      EXPECT_EQ(load.completions(), 1);
      lastStatus_ = load.status();
    }
    return std::chrono::duration<double>(Clock::now() - start).count();
  }

  std::int64_t lastStatus_ = 0;
};

// A slow machine only takes longer, so the tests check lower bounds. These allow for the initial
// burst.

TEST_F(KivRESTServiceBandwidthTest, ManySmallFilesTogetherKeepToIt) {
  server_.serve("/a", Response::ok(std::string(5'000, 'x')));
  settings_.bandwidth = 500'000;
  EXPECT_GE(secondsFor("/a", 100), 0.8);
  EXPECT_EQ(lastStatus_, 200);
}

TEST_F(KivRESTServiceBandwidthTest, OnManyThreadsToo) {
  server_.serve("/a", Response::ok(std::string(5'000, 'x')));
  settings_.bandwidth = 500'000;
  settings_.threads = 4;
  settings_.parallelTransfers = 24;
  settings_.parallelTransfersPerHost = 24;
  EXPECT_GE(secondsFor("/a", 100), 0.6);
}

TEST_F(KivRESTServiceBandwidthTest, BodiesThatAreNotTakenCountToo) {
  server_.serve("/a", Response::status(404, std::string(5'000, 'x')));
  settings_.bandwidth = 500'000;
  EXPECT_GE(secondsFor("/a", 100), 0.8);
  EXPECT_EQ(lastStatus_, 404);
}

TEST_F(KivRESTServiceBandwidthTest, HeadersCountToo) {
  server_.serve("/a", Response::ok("x").header("X-Long", std::string(5'000, 'x')));
  settings_.bandwidth = 500'000;
  EXPECT_GE(secondsFor("/a", 100), 0.8);
  EXPECT_EQ(lastStatus_, 200);
}

TEST_F(KivRESTServiceBandwidthTest, AFileThatUsesItUpKeepsNoOtherFromComing) {
  server_.serve("/endless", Response::ok(std::string(64 * 1024, 'x')).withoutLength().endless());
  server_.serve("/a", Response::ok(std::string(5'000, 'x')));
  settings_.bandwidth = 1'000'000;
  settings_.takesBodiesWithoutLength = true;
  const Load endless(client(), url("/endless"));
  ASSERT_TRUE(server_.waitForRequests("/endless", 1));
  const auto loads = makeLoads(client(), url(), 50);
  for (const auto& load : loads) {
    ASSERT_TRUE(load.waitForEnd());
    EXPECT_EQ(load.status(), 200) << load.message();
  }
  EXPECT_FALSE(endless.hasEnded()) << endless.message();
  client().cancelAllTasks();
}

// --- Changes while transfers run -----------------------------------------------------------------

class BandwidthOfARunningClient : public KivRESTServiceBandwidthTest {
 protected:
  BandwidthOfARunningClient() {
    spool();
    serve("/a");
    serve("/b");
  }

  /// Serves the file so that the whole waits at 100,000 bytes until the gate is open.
  void serve(const std::string& path) {
    server_.serve(path, [this](const Request& request) {
      auto response = rangeResponse(request, body_, "\"a\"");
      return request.header("Range") ? response : response.gateAt(100'000, gate_);
    });
  }

  /// Queues that many downloads, and waits until all have come to the gate.
  [[nodiscard]] std::vector<Load> loadsAtTheGate(std::size_t count) {
    client().setProgressHandler(
        [this](const KivRESTServiceProgress& progress) { come_ = progress.bytesReceived; });
    auto loads = makeLoads(client(), url(), count);
    EXPECT_TRUE(waitUntil([&] { return come_ == 100'000 * static_cast<std::int64_t>(count); }));
    return loads;
  }

  /// Another client without a limit, which loads the same bytes.
  void expectThatOthersComeMeanwhile() {
    KivRESTService other{KivRESTServiceSettings()};
    gate_.open();
    expectBodies(makeLoads(other, url("/b"), 3), body_);
  }

  const std::string body_ = patternedBytes(1'000'000);
  const Gate gate_;
  std::int64_t come_ = 0;
};

TEST_F(BandwidthOfARunningClient, ALimitHoldsForTransfersThatRunWithoutOne) {
  settings_.threads = 1;  // which halts all of them at once
  const auto loads = loadsAtTheGate(4);
  client().setBandwidth(1000);
  EXPECT_EQ(client().settings().bandwidth, 1000);
  ASSERT_TRUE(server_.waitForRequests(5)) << "one is continued";
  expectThatOthersComeMeanwhile();
  for (const Load& load : loads)
    EXPECT_FALSE(load.hasEnded());
  client().setBandwidth(0);
  expectBodies(loads, body_);
  for (const Load& load : loads) {
    EXPECT_EQ(load.task()->metrics().tries, 1);
    EXPECT_TRUE(load.task()->metrics().failedTries.empty());
    EXPECT_GE(load.task()->metrics().resumedBytes, 100'000);
  }
}

TEST_F(BandwidthOfARunningClient, ALowerLimitHoldsForTransfersThatRunWithAHigherOne) {
  settings_.bandwidth = 100'000'000;
  const auto loads = loadsAtTheGate(2);
  client().setBandwidth(1000);
  ASSERT_TRUE(server_.waitForRequests(3)) << "one is continued";
  expectThatOthersComeMeanwhile();
  for (const Load& load : loads)
    EXPECT_FALSE(load.hasEnded());
  client().setBandwidth(-1);
  EXPECT_EQ(client().settings().bandwidth, 0);
  expectBodies(loads, body_);
}

TEST_F(BandwidthOfARunningClient, ALimitContinuesTheTransfersOfAllThreads) {
  settings_.threads = 3;
  const auto loads = loadsAtTheGate(6);
  client().setBandwidth(100'000'000);
  // Nothing opens the gate for those that were not continued.
  expectBodies(loads, body_);
  for (const Load& load : loads)
    EXPECT_EQ(load.task()->metrics().resumedBytes, 100'000);
  EXPECT_EQ(server_.requests().size(), 12U);
}

TEST_F(BandwidthOfARunningClient, AHigherLimitEndsTheWaitOfTransfersAndStarts) {
  gate_.open();
  settings_.bandwidth = 100;
  settings_.parallelTransfers = 2;
  const auto loads = makeLoads(client(), url(), 4);
  ASSERT_TRUE(server_.waitForRequests(1));
  client().setBandwidth(100'000'000);
  expectBodies(loads, body_);
  EXPECT_EQ(server_.requests().size(), 4U) << "none was started again";
}

TEST_F(BandwidthOfARunningClient, ALimitThatIsSetBeforeTheFirstTaskHolds) {
  client().setBandwidth(1000);
  const auto loads = makeLoads(client(), url(), 2);
  expectThatOthersComeMeanwhile();
  for (const Load& load : loads)
    EXPECT_FALSE(load.hasEnded());
  client().setBandwidth(0);
  expectBodies(loads, body_);
}

TEST_F(BandwidthOfARunningClient, WithoutALimitTransfersRunOnTwoThreadsAgain) {
  settings_.bandwidth = 100'000'000;
  auto loads = loadsAtTheGate(2);
  EXPECT_EQ(transferThreads(), 1U);
  client().setBandwidth(0);
  loads.emplace_back(client(), url("/b"));
  ASSERT_TRUE(server_.waitForRequests("/b", 1));
  EXPECT_EQ(transferThreads(), 2U);
  gate_.open();
  expectBodies(loads, body_);
}

/// libcurl stops reading from a connection of HTTP/2 if one of its streams is too fast.
TEST_F(BandwidthOfARunningClient, ALimitContinuesStreamsOverHTTP1) {
  NginxServer server("limit_rate 100k;");
  server.addFile("file", body_.substr(0, 200'000));
  settings_.certificateAuthoritiesPath = server.certificatePath();
  client().setProgressHandler(
      [this](const KivRESTServiceProgress& progress) { come_ = progress.bytesReceived; });
  const auto loads = makeLoads(client(), server.secureURL("/file"), 4);
  ASSERT_TRUE(waitUntil([&] { return come_ > 0; }));
  client().setBandwidth(50'000'000);
  expectBodies(loads, body_.substr(0, 200'000));
  for (const Load& load : loads)
    EXPECT_TRUE(load.task()->metrics().failedTries.empty());
}

}  // namespace
