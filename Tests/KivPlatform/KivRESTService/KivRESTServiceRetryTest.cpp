// Transient errors are retried; the result of a task does not depend on the order of the attempts.

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Tests/KivPlatform/KivRESTService/ClientFixture.h"

namespace {

using namespace kiv::test;
using Code = KivRESTServiceErrorCode;

class KivRESTServiceRetry : public ClientFixture {
 protected:
  [[nodiscard]] std::size_t asked(const LoopbackServer& server) const {
    return server.requests("/a").size();
  }
};

class StatusesThatMayPass : public KivRESTServiceRetry, public testing::WithParamInterface<int> {};

TEST_P(StatusesThatMayPass, AreTriedAgain) {
  server_.serve(
      "/a", {Response::status(GetParam()), Response::status(GetParam()), Response::ok("at last")});
  EXPECT_EQ(loaded().body(), "at last");
  EXPECT_EQ(asked(server_), 3U);
}

TEST_P(StatusesThatMayPass, EndTheTaskWhenTheyStay) {
  server_.serve("/a", Response::status(GetParam()));
  EXPECT_EQ(loaded().status(), GetParam());
  EXPECT_EQ(asked(server_), 3U);
}

INSTANTIATE_TEST_SUITE_P(All, StatusesThatMayPass, testing::Values(408, 429, 500, 502, 503, 504));

class StatusesThatStay : public KivRESTServiceRetry, public testing::WithParamInterface<int> {};

TEST_P(StatusesThatStay, AreAskedForOnce) {
  server_.serve("/a", Response::status(GetParam()));
  EXPECT_EQ(loaded().status(), GetParam());
  EXPECT_EQ(asked(server_), 1U);
}

INSTANTIATE_TEST_SUITE_P(All, StatusesThatStay,
                         testing::Values(204, 206, 304, 400, 401, 403, 404, 410, 416, 451, 501,
                                         505));

TEST_F(KivRESTServiceRetry, TheMirrorIsAskedBeforeTheServerIsAgain) {
  server_.serve("/a", Response::status(503));
  mirror_.serve("/a", Response::ok("of the mirror"));
  settings_.firstRetryDelay = std::chrono::hours(1);
  settings_.longestRetryDelay = std::chrono::hours(1);
  EXPECT_EQ(loaded(urls()).body(), "of the mirror");
  EXPECT_EQ(asked(server_), 1U);
}

TEST_F(KivRESTServiceRetry, BothServersHaveTheirTries) {
  server_.serve("/a", Response::status(503));
  mirror_.serve("/a", Response::nothing());
  EXPECT_EQ(loaded(urls()).status(), 503);
  EXPECT_EQ(asked(server_), 3U);
  EXPECT_EQ(asked(mirror_), 3U);
}

TEST_F(KivRESTServiceRetry, TheLastStatusOfAServerCounts) {
  server_.serve("/a", {Response::status(503), Response::status(404)});
  EXPECT_EQ(loaded().status(), 404);
}

TEST_F(KivRESTServiceRetry, ServersAreAskedAsOftenAsTheSettingsSay) {
  server_.serve("/a", Response::nothing());
  settings_.triesPerServer = 5;
  settings_.triesInAll = 4;
  ASSERT_TRUE(loaded().hasEnded());
  EXPECT_EQ(asked(server_), 4U);
}

TEST_F(KivRESTServiceRetry, TriesAreNeverFewerThanOne) {
  server_.serve("/a", Response::ok("body"));
  settings_.triesPerServer = 0;
  settings_.triesInAll = -1;
  EXPECT_EQ(loaded().body(), "body");
}

TEST_F(KivRESTServiceRetry, ATaskThatWaitsTakesNoPlace) {
  server_.serve("/a", Response::status(503));
  server_.serve("/b", Response::ok("other"));
  settings_.parallelTransfers = 1;
  settings_.firstRetryDelay = settings_.longestRetryDelay = std::chrono::hours(1);
  const Load waiting(client(), url());
  EXPECT_EQ(loaded(url("/b")).body(), "other");
  EXPECT_FALSE(waiting.hasEnded());
  client().cancelAllTasks();
}

TEST_F(KivRESTServiceRetry, TheServersWishToBeLeftAloneIsObeyed) {
  server_.serve("/a", {Response::status(429).header("Retry-After", "3600"), Response::ok("soon")});
  settings_.longestRetryAfter = std::chrono::hours(2);
  const Load load(client(), url());
  server_.serve("/b", Response::ok("other"));
  ASSERT_TRUE(server_.waitForRequests("/a", 1));
  ASSERT_TRUE(loaded(url("/b")).hasEnded());
  EXPECT_FALSE(load.hasEnded());
  EXPECT_EQ(asked(server_), 1U);
}

TEST_F(KivRESTServiceRetry, ButNoLongerThanTheBound) {
  server_.serve("/a", {Response::status(503).header("Retry-After", "3600"), Response::ok("soon")});
  settings_.longestRetryAfter = std::chrono::milliseconds(1);
  EXPECT_EQ(loaded().body(), "soon");
}

// --- Servers that cannot be reached --------------------------------------------------------------

TEST_F(KivRESTServiceRetry, AServerThatRefusesIsTriedAgain) {
  const RefusingServer refusing;
  const Load load = loaded(refusing.url("/a"));
  EXPECT_EQ(load.errorCode(), codeOf(Code::cannotConnect));
  EXPECT_EQ(load.task()->metrics().tries, 3);
}

TEST_F(KivRESTServiceRetry, LaterTasksAskTheMirrorFirst) {
  const RefusingServer refusing;
  mirror_.serve("/a", Response::ok("of the mirror"));
  mirror_.serve("/b", Response::ok("again"));
  EXPECT_EQ(loaded({refusing.url("/a"), mirror_.url("/a")}).task()->metrics().tries, 2);
  const Load second = loaded({refusing.url("/b"), mirror_.url("/b")});
  EXPECT_EQ(second.body(), "again");
  EXPECT_EQ(second.task()->metrics().tries, 1);
}

TEST_F(KivRESTServiceRetry, AfterThePauseTheMainServerIsProbedAgain) {
  const RefusingServer refusing;
  mirror_.serve("/a", Response::ok("of the mirror"));
  mirror_.serve("/b", Response::ok("again"));
  settings_.unreachablePause = std::chrono::milliseconds(0);
  ASSERT_TRUE(loaded({refusing.url("/a"), mirror_.url("/a")}).hasEnded());
  EXPECT_EQ(loaded({refusing.url("/b"), mirror_.url("/b")}).task()->metrics().tries, 2);
}

TEST_F(KivRESTServiceRetry, TheOutcomeIsTheSameWhereTheMirrorComesFirst) {
  const RefusingServer refusing;
  mirror_.serve("/a", Response::status(404));
  EXPECT_EQ(loaded({refusing.url("/a"), mirror_.url("/a")}).status(), 404);
  EXPECT_EQ(loaded({refusing.url("/a"), mirror_.url("/a")}).status(), 404);

  const RefusingServer other;
  const Load third = loaded({refusing.url("/a"), other.url("/a")});
  EXPECT_NE(third.message().find(refusing.url("/a")), std::string::npos) << third.message();
}

TEST_F(KivRESTServiceRetry, AServerThatAnswersWithErrorsIsNotAvoided) {
  server_.serve("/a", Response::status(404));
  server_.serve("/b", Response::ok("of the main server"));
  mirror_.serve("/a", Response::ok("of the mirror"));
  mirror_.serve("/b", Response::ok("of the mirror"));
  EXPECT_EQ(loaded(urls()).body(), "of the mirror");
  EXPECT_EQ(loaded(urls("/b")).body(), "of the main server");
}

// --- Transfer slots ------------------------------------------------------------------------------

TEST_F(KivRESTServiceRetry, OneServerHasNoMorePlacesThanItsOwn) {
  const Gate gate;
  server_.serve("/a", Response::ok("x").after(gate));
  mirror_.serve("/a", Response::ok("x").after(gate));
  settings_.parallelTransfers = 4;
  settings_.parallelTransfersPerHost = 2;
  const auto loads = makeLoads(client(), url(), 4);
  const auto others = makeLoads(client(), mirror_.url("/a"), 4);
  ASSERT_TRUE(server_.waitForRequests(2) && mirror_.waitForRequests(2));
  EXPECT_EQ(server_.requests().size(), 2U);
  EXPECT_EQ(mirror_.requests().size(), 2U);
  gate.open();
  ASSERT_TRUE(waitForEnd(loads) && waitForEnd(others));
  EXPECT_EQ(server_.mostWaiting(), 2U);
  EXPECT_EQ(mirror_.mostWaiting(), 2U);
}

TEST_F(KivRESTServiceRetry, BodiesThatNobodyTakesHoldUpTheOthers) {
  server_.serve("/a", Response::ok(std::string(1000, 'x')));
  settings_.parallelTransfers = 1;
  settings_.largestPendingBytes = 2500;
  const auto loads = makeLoads(client(), url(), 6);
  // The main queue is not drained, so with the third body too many bytes are pending.
  ASSERT_TRUE(server_.waitForRequests(3));
  ASSERT_TRUE(waitForEnd(loads));
  EXPECT_EQ(server_.requests().size(), 6U);
}

}  // namespace
