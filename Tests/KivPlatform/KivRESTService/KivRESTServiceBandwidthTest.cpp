// The bandwidth limit applies to a client as a whole, however many transfers it runs.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

#include <gtest/gtest.h>

#include "Tests/KivPlatform/KivRESTService/ClientFixture.h"

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

}  // namespace
