// Servers that send slowly: what waits still comes, what is slow comes or ends, and each task is
// completed once.

#include <algorithm>
#include <chrono>
#include <cstddef>
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

using namespace std::chrono_literals;
using namespace kiv::test;
using Code = KivRESTServiceErrorCode;

class KivRESTServiceSlowTest : public testing::Test {
 protected:
  KivRESTServiceSlowTest() {
    settings_.stallTimeout = 1s;
    settings_.slowTurn = 1s;
    settings_.stallSpeedDoubling = 0s;
    settings_.spoolDirectory = directory_.path("spool");
    server_.serve("/quick", Response::ok("quick"));
  }

  /// A file of that many bytes which comes with 1,000 bytes a second, or all at once where a
  /// request for its rest has come. With a tag it can be continued.
  void serveSlowly(const std::string& path, std::size_t size, const std::string& tag = "\"1\"") {
    server_.serve(path, [body = patternedBytes(size), tag](const Request& request) {
      auto response = tag.empty() ? Response::ok(body) : rangeResponse(request, body, tag);
      return request.header("Range") ? response : response.drip(100, 100ms);
    });
  }

  /// Queues quick ones behind those that hold all places, and waits for them.
  void expectQuickOnesArrive(KivRESTService& client, std::size_t count) {
    for (const Load& load : makeLoads(client, server_.url("/quick"), count)) {
      ASSERT_TRUE(load.waitForEnd());
      EXPECT_EQ(load.body(), "quick") << load.message();
      EXPECT_EQ(load.completions(), 1);
    }
  }

  /// After a second or two, more than 1,000 bytes a second.
  void requireMoreThanComes() {
    settings_.stallSpeedDoubling = 1s;
    settings_.stallSpeed = 600;
    settings_.largestStallSpeed = 100'000;
  }

  static int timesGivenWay(const std::vector<Load>& loads) {
    int times = 0;
    for (const Load& load : loads)
      times += load.task()->metrics().timesGivenWay;
    return times;
  }

  const TemporaryDirectory directory_;
  kiv::TransferSettings settings_ = kiv::defaultTransferSettings();
  LoopbackServer server_;
};

// --- Giving way ----------------------------------------------------------------------------------

TEST_F(KivRESTServiceSlowTest, SlowOnesGiveTheirPlacesToThoseThatWaitAndContinue) {
  serveSlowly("/slow", 5'000);
  KivRESTService client(settings_);
  const auto slow = makeLoads(client, server_.url("/slow"), 6);
  ASSERT_TRUE(server_.waitForRequests("/slow", 6));
  expectQuickOnesArrive(client, 20);
  std::size_t continued = 0;
  for (const Load& load : slow) {
    ASSERT_TRUE(load.waitForEnd());
    EXPECT_EQ(load.body(), patternedBytes(5'000)) << load.message();
    EXPECT_EQ(load.completions(), 1);
    const auto& metrics = load.task()->metrics();
    EXPECT_TRUE(metrics.failedTries.empty()) << "giving way is no failure";
    EXPECT_EQ(metrics.tries, metrics.timesGivenWay + 1);
    if (metrics.timesGivenWay == 0) continue;
    EXPECT_GT(metrics.resumedBytes, 0);
    ++continued;
  }
  EXPECT_GE(continued, 1U);
  EXPECT_LE(continued, 3U) << "the half that began first is left alone";
  EXPECT_TRUE(client.currentQueue().empty());
}

TEST_F(KivRESTServiceSlowTest, ABodyWithoutAVersionComesInALongerTurn) {
  settings_.parallelTransfers = 1;
  serveSlowly("/slow", 2'000, "");
  serveSlowly("/other", 2'000, "");
  KivRESTService client(settings_);
  const std::vector<Load> loads{{client, server_.url("/slow")}, {client, server_.url("/other")}};
  for (const Load& load : loads) {
    ASSERT_TRUE(load.waitForEnd());
    EXPECT_EQ(load.body(), patternedBytes(2'000)) << load.message();
    EXPECT_EQ(load.completions(), 1);
  }
  EXPECT_GE(timesGivenWay(loads), 1);
}

TEST_F(KivRESTServiceSlowTest, NothingGivesWayToNobody) {
  serveSlowly("/slow", 3'000);
  KivRESTService client(settings_);
  const auto slow = makeLoads(client, server_.url("/slow"), 6);
  for (const Load& load : slow) {
    ASSERT_TRUE(load.waitForEnd());
    EXPECT_EQ(load.body(), patternedBytes(3'000)) << load.message();
  }
  EXPECT_EQ(timesGivenWay(slow), 0);
}

TEST_F(KivRESTServiceSlowTest, APlaceAtABusyServerIsGivenToThoseThatWaitForIt) {
  settings_.parallelTransfersPerHost = 2;
  LoopbackServer other;
  other.serve("/quick", Response::ok("elsewhere"));
  serveSlowly("/slow", 1'000'000);
  KivRESTService client(settings_);
  const auto slow = makeLoads(client, server_.url("/slow"), 2);
  ASSERT_TRUE(server_.waitForRequests("/slow", 2));
  const Load elsewhere(client, other.url("/quick"));
  ASSERT_TRUE(elsewhere.waitForEnd());
  expectQuickOnesArrive(client, 3);
  EXPECT_FALSE(slow.front().hasEnded());
  client.cancelAllTasks();
}

TEST_F(KivRESTServiceSlowTest, WithoutASlowSpeedNothingGivesWay) {
  settings_.slowSpeed = 0;
  settings_.parallelTransfers = 1;
  serveSlowly("/slow", 4'000);
  KivRESTService client(settings_);
  const Load slow(client, server_.url("/slow"));
  const Load waiting(client, server_.url("/quick"));
  ASSERT_TRUE(waiting.waitForEnd());
  EXPECT_TRUE(slow.hasEnded());
  EXPECT_EQ(slow.task()->metrics().tries, 1);
}

// --- The least speed -----------------------------------------------------------------------------

TEST_F(KivRESTServiceSlowTest, AnOldDownloadThatIsTooSlowIsTriedAgainWhereItBrokeOff) {
  requireMoreThanComes();
  serveSlowly("/slow", 1'000'000);
  KivRESTService client(settings_);
  const Load load(client, server_.url("/slow"));
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(load.body(), patternedBytes(1'000'000)) << load.message();
  const auto& metrics = load.task()->metrics();
  EXPECT_GT(metrics.resumedBytes, 0);
  ASSERT_EQ(metrics.failedTries.size(), 1U);
  EXPECT_EQ(metrics.failedTries.front().error, Code::timedOut);
}

TEST_F(KivRESTServiceSlowTest, OneThatStaysTooSlowEndsWithAnErrorThatSaysSo) {
  requireMoreThanComes();
  server_.serve("/slow", Response::ok(std::string(1'000'000, 'x')).drip(100, 100ms));
  KivRESTService client(settings_);
  const auto slow = makeLoads(client, server_.url("/slow"), 6);
  for (const Load& load : slow) {
    ASSERT_TRUE(load.waitForEnd());
    EXPECT_EQ(load.errorCode(), codeOf(Code::timedOut));
    EXPECT_NE(load.message().find("the server sends too slowly"), std::string::npos)
        << load.message();
    EXPECT_EQ(load.completions(), 1);
    EXPECT_EQ(load.task()->metrics().tries, settings_.triesPerServer);
  }
}

TEST_F(KivRESTServiceSlowTest, OneThatIsFastEnoughForTheBoundComesAtAnyAge) {
  settings_.stallSpeedDoubling = 1s;
  settings_.stallSpeed = 256;
  serveSlowly("/slow", 4'000);
  KivRESTService client(settings_);
  const Load load(client, server_.url("/slow"));
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(load.body(), patternedBytes(4'000)) << load.message();
  EXPECT_EQ(load.task()->metrics().tries, 1);
}

TEST_F(KivRESTServiceSlowTest, AStatusWhoseBodyComesTooSlowlyIsTheAnswer) {
  requireMoreThanComes();
  server_.serve("/slow", Response::status(404, std::string(60'000, 'x')).drip(100, 100ms));
  KivRESTService client(settings_);
  const Load load(client, server_.url("/slow"));
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(load.status(), 404) << load.message();
  EXPECT_EQ(load.task()->metrics().tries, 1);
}

TEST_F(KivRESTServiceSlowTest, ARedirectWhoseBodyComesTooSlowlyIsFollowed) {
  requireMoreThanComes();
  server_.serve("/slow", Response::status(302, std::string(60'000, 'x'))
                             .header("Location", "/quick")
                             .drip(100, 100ms));
  KivRESTService client(settings_);
  const Load load(client, server_.url("/slow"));
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(load.body(), "quick") << load.message();
  EXPECT_EQ(load.task()->metrics().tries, 1);
}

// --- The deadline --------------------------------------------------------------------------------

class KivRESTServiceDeadlineTest : public KivRESTServiceSlowTest {
 protected:
  KivRESTServiceDeadlineTest() { settings_.deadline = 2s; }

  void expectDeadlineExceeded(const Load& load) {
    ASSERT_TRUE(load.waitForEnd());
    EXPECT_EQ(load.errorCode(), codeOf(Code::deadlineExceeded)) << load.status() << load.message();
    EXPECT_NE(load.message().find("within the time that is allowed"), std::string::npos);
    EXPECT_EQ(load.completions(), 1);
    EXPECT_FALSE(load.hasBody());
  }
};

TEST_F(KivRESTServiceDeadlineTest, EndsADownloadThatRunsAndKeepsItsPart) {
  serveSlowly("/slow", 1'000'000);
  KivRESTService client(settings_);
  const auto slow = makeLoads(client, server_.url("/slow"), 3);
  for (const Load& load : slow) {
    expectDeadlineExceeded(load);
    ASSERT_EQ(load.task()->metrics().failedTries.size(), 1U) << "the mirror is not asked either";
  }
  const Load next(client, server_.url("/slow?0"));
  ASSERT_TRUE(next.waitForEnd());
  EXPECT_EQ(next.body(), patternedBytes(1'000'000)) << next.message();
  EXPECT_GT(next.task()->metrics().resumedBytes, 0);
}

TEST_F(KivRESTServiceDeadlineTest, EndsADownloadBetweenItsTries) {
  server_.serve("/later", Response::status(503).header("Retry-After", "60"));
  KivRESTService client(settings_);
  const Load load(client, server_.url("/later"));
  expectDeadlineExceeded(load);
  EXPECT_EQ(load.task()->metrics().tries, 1);
}

TEST_F(KivRESTServiceDeadlineTest, EndsADownloadThatHasGivenWay) {
  settings_.parallelTransfers = 1;
  serveSlowly("/slow", 1'000'000, "");
  serveSlowly("/other", 1'000'000, "");
  KivRESTService client(settings_);
  const std::vector<Load> loads{{client, server_.url("/slow")}, {client, server_.url("/other")}};
  for (const Load& load : loads)
    expectDeadlineExceeded(load);
  EXPECT_GE(timesGivenWay(loads), 1);
  EXPECT_TRUE(client.currentQueue().empty());
}

TEST_F(KivRESTServiceDeadlineTest, DoesNotCountWhileADownloadWaitsForItsFirstTry) {
  settings_.parallelTransfers = 1;
  settings_.slowSpeed = 0;
  serveSlowly("/slow", 1'000'000);
  KivRESTService client(settings_);
  const auto slow = makeLoads(client, server_.url("/slow"), 2);
  const Load quick(client, server_.url("/quick"));
  ASSERT_TRUE(quick.waitForEnd());
  EXPECT_EQ(quick.body(), "quick") << quick.message();
  for (const Load& load : slow)
    expectDeadlineExceeded(load);
}

TEST_F(KivRESTServiceDeadlineTest, HoldsForTriesOfAllServers) {
  LoopbackServer mirror;
  mirror.serve("/a", Response::ok(std::string(1'000'000, 'x')).drip(100, 100ms));
  server_.serve("/a", Response::status(404));
  KivRESTService client(settings_);
  const Load load(client, {server_.url("/a"), mirror.url("/a")});
  expectDeadlineExceeded(load);
}

}  // namespace
