// Slow servers: waiting tasks are still served, slow transfers complete or fail, and each task is
// completed exactly once.

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Tests/KivPlatform/KivRESTService/ClientFixture.h"
#include "Tests/Support/RangeServer.h"

namespace {

using namespace std::chrono_literals;
using namespace kiv::test;
using Code = KivRESTServiceErrorCode;

class KivRESTServiceSlowTest : public ClientFixture {
 protected:
  KivRESTServiceSlowTest() {
    settings_.stallTimeout = 1s;
    settings_.slowTurn = 1s;
    settings_.stallSpeedDoubling = 0s;
    settings_.spoolDirectory = directory_.path("spool");
    server_.serve("/quick", Response::ok("quick"));
  }

  /// Serves a file at 1,000 bytes a second, or at once in response to a range request. It can be
  /// resumed unless `tag` is empty.
  void serveSlowly(const std::string& path, std::size_t size, const std::string& tag = "\"1\"") {
    server_.serve(path, [body = patternedBytes(size), tag](const Request& request) {
      auto response = tag.empty() ? Response::ok(body) : rangeResponse(request, body, tag);
      return request.header("Range") ? response : response.drip(100, 100ms);
    });
  }

  /// Queues quick downloads behind those that occupy all slots, and waits for them.
  void expectQuickOnesArrive(std::size_t count) {
    expectBodies(makeLoads(client(), url("/quick"), count), "quick");
  }

  /// Sets a minimum speed that exceeds 1,000 bytes a second after one or two seconds.
  void requireMoreThanComes() {
    settings_.stallSpeedDoubling = 1s;
    settings_.stallSpeed = 600;
    settings_.largestStallSpeed = 100'000;
  }

  static int timesYielded(const std::vector<Load>& loads) {
    int times = 0;
    for (const Load& load : loads)
      times += load.task()->metrics().timesYielded;
    return times;
  }
};

// --- Giving way ----------------------------------------------------------------------------------

TEST_F(KivRESTServiceSlowTest, SlowOnesGiveTheirPlacesToThoseThatWaitAndContinue) {
  serveSlowly("/slow", 5'000);
  const auto slow = makeLoads(client(), url("/slow"), 6);
  ASSERT_TRUE(server_.waitForRequests("/slow", 6));
  expectQuickOnesArrive(20);
  std::size_t continued = 0;
  for (const Load& load : slow) {
    ASSERT_TRUE(load.waitForEnd());
    EXPECT_EQ(load.body(), patternedBytes(5'000)) << load.message();
    EXPECT_EQ(load.completions(), 1);
    const auto& metrics = load.task()->metrics();
    EXPECT_TRUE(metrics.failedTries.empty()) << "giving way is no failure";
    EXPECT_EQ(metrics.tries, metrics.timesYielded + 1);
    if (metrics.timesYielded == 0) continue;
    EXPECT_GT(metrics.resumedBytes, 0);
    ++continued;
  }
  EXPECT_GE(continued, 1U);
  EXPECT_LE(continued, 3U) << "the half that began first is left alone";
  EXPECT_TRUE(client().currentQueue().empty());
}

TEST_F(KivRESTServiceSlowTest, ABodyWithoutAVersionComesInALongerTurn) {
  settings_.parallelTransfers = 1;
  serveSlowly("/slow", 2'000, "");
  serveSlowly("/other", 2'000, "");
  const std::vector<Load> loads{Load(client(), url("/slow")), Load(client(), url("/other"))};
  expectBodies(loads, patternedBytes(2'000));
  EXPECT_GE(timesYielded(loads), 1);
}

TEST_F(KivRESTServiceSlowTest, NothingGivesWayToNobody) {
  serveSlowly("/slow", 3'000);
  const auto slow = makeLoads(client(), url("/slow"), 6);
  expectBodies(slow, patternedBytes(3'000));
  EXPECT_EQ(timesYielded(slow), 0);
}

TEST_F(KivRESTServiceSlowTest, APlaceAtABusyServerIsGivenToThoseThatWaitForIt) {
  settings_.parallelTransfersPerHost = 2;
  LoopbackServer other;
  other.serve("/quick", Response::ok("elsewhere"));
  serveSlowly("/slow", 1'000'000);
  const auto slow = makeLoads(client(), url("/slow"), 2);
  ASSERT_TRUE(server_.waitForRequests("/slow", 2));
  const Load elsewhere = loaded(other.url("/quick"));
  expectQuickOnesArrive(3);
  EXPECT_FALSE(slow.front().hasEnded());
  client().cancelAllTasks();
}

TEST_F(KivRESTServiceSlowTest, WithoutASlowSpeedNothingGivesWay) {
  settings_.slowSpeed = 0;
  settings_.parallelTransfers = 1;
  serveSlowly("/slow", 4'000);
  const Load slow(client(), url("/slow"));
  const Load waiting = loaded(url("/quick"));
  EXPECT_TRUE(slow.hasEnded());
  EXPECT_EQ(slow.task()->metrics().tries, 1);
}

// --- The minimum speed ---------------------------------------------------------------------------

TEST_F(KivRESTServiceSlowTest, AnOldDownloadThatIsTooSlowIsTriedAgainWhereItBrokeOff) {
  requireMoreThanComes();
  serveSlowly("/slow", 1'000'000);
  const Load load = loaded(url("/slow"));
  EXPECT_EQ(load.body(), patternedBytes(1'000'000)) << load.message();
  const auto& metrics = load.task()->metrics();
  EXPECT_GT(metrics.resumedBytes, 0);
  ASSERT_EQ(metrics.failedTries.size(), 1U);
  EXPECT_EQ(metrics.failedTries.front().error, Code::timedOut);
}

TEST_F(KivRESTServiceSlowTest, OneThatStaysTooSlowEndsWithAnErrorThatSaysSo) {
  requireMoreThanComes();
  server_.serve("/slow", Response::ok(std::string(1'000'000, 'x')).drip(100, 100ms));
  const auto slow = makeLoads(client(), url("/slow"), 6);
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
  const Load load = loaded(url("/slow"));
  EXPECT_EQ(load.body(), patternedBytes(4'000)) << load.message();
  EXPECT_EQ(load.task()->metrics().tries, 1);
}

TEST_F(KivRESTServiceSlowTest, AStatusWhoseBodyComesTooSlowlyIsTheAnswer) {
  requireMoreThanComes();
  server_.serve("/slow", Response::status(404, std::string(60'000, 'x')).drip(100, 100ms));
  const Load load = loaded(url("/slow"));
  EXPECT_EQ(load.status(), 404) << load.message();
  EXPECT_EQ(load.task()->metrics().tries, 1);
}

TEST_F(KivRESTServiceSlowTest, ARedirectWhoseBodyComesTooSlowlyIsFollowed) {
  requireMoreThanComes();
  server_.serve("/slow", Response::status(302, std::string(60'000, 'x'))
                             .header("Location", "/quick")
                             .drip(100, 100ms));
  const Load load = loaded(url("/slow"));
  EXPECT_EQ(load.body(), "quick") << load.message();
  EXPECT_EQ(load.task()->metrics().tries, 1);
}

// --- The deadline --------------------------------------------------------------------------------

class KivRESTServiceDeadlineTest : public KivRESTServiceSlowTest {
 protected:
  KivRESTServiceDeadlineTest() { settings_.deadline = 2s; }

  /// On a busy machine, the server may get no processor for a second.
  void stallAfterTheDeadline() { settings_.stallTimeout = 30s; }

  void expectDeadlineExceeded(const Load& load) {
    ASSERT_TRUE(load.waitForEnd());
    EXPECT_EQ(load.errorCode(), codeOf(Code::deadlineExceeded)) << load.status() << load.message();
    EXPECT_NE(load.message().find("within the time that is allowed"), std::string::npos);
    EXPECT_EQ(load.completions(), 1);
    EXPECT_FALSE(load.hasBody());
  }
};

TEST_F(KivRESTServiceDeadlineTest, EndsADownloadThatRunsAndKeepsItsPart) {
  stallAfterTheDeadline();
  serveSlowly("/slow", 1'000'000);
  const auto slow = makeLoads(client(), url("/slow"), 3);
  for (const Load& load : slow) {
    expectDeadlineExceeded(load);
    ASSERT_EQ(load.task()->metrics().failedTries.size(), 1U) << "the mirror is not asked either";
  }
  const Load next = loaded(url("/slow?0"));
  EXPECT_EQ(next.body(), patternedBytes(1'000'000)) << next.message();
  EXPECT_GT(next.task()->metrics().resumedBytes, 0);
}

TEST_F(KivRESTServiceDeadlineTest, EndsADownloadBetweenItsTries) {
  server_.serve("/later", Response::status(503).header("Retry-After", "60"));
  const Load load(client(), url("/later"));
  expectDeadlineExceeded(load);
  EXPECT_EQ(load.task()->metrics().tries, 1);
}

TEST_F(KivRESTServiceDeadlineTest, EndsADownloadThatHasGivenWay) {
  settings_.parallelTransfers = 1;
  serveSlowly("/slow", 1'000'000, "");
  serveSlowly("/other", 1'000'000, "");
  const std::vector<Load> loads{Load(client(), url("/slow")), Load(client(), url("/other"))};
  for (const Load& load : loads)
    expectDeadlineExceeded(load);
  EXPECT_GE(timesYielded(loads), 1);
  EXPECT_TRUE(client().currentQueue().empty());
}

TEST_F(KivRESTServiceDeadlineTest, DoesNotCountWhileADownloadWaitsForItsFirstTry) {
  settings_.parallelTransfers = 1;
  settings_.slowSpeed = 0;
  serveSlowly("/slow", 1'000'000);
  const auto slow = makeLoads(client(), url("/slow"), 2);
  const Load quick = loaded(url("/quick"));
  EXPECT_EQ(quick.body(), "quick") << quick.message();
  for (const Load& load : slow)
    expectDeadlineExceeded(load);
}

TEST_F(KivRESTServiceDeadlineTest, HoldsForTriesOfAllServers) {
  stallAfterTheDeadline();
  mirror_.serve("/a", Response::ok(std::string(1'000'000, 'x')).drip(100, 100ms));
  server_.serve("/a", Response::status(404));
  const Load load(client(), urls());
  expectDeadlineExceeded(load);
}

}  // namespace
