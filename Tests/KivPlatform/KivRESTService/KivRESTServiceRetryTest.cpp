// What may pass is tried again; what a task ends with does not depend on the order of trying.

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "KivPlatform/KivRESTService/KivRESTService.h"
#include "KivPlatform/KivRESTService/policy/TransferSettings.h"
#include "Tests/KivPlatform/KivRESTService/Load.h"
#include "Tests/Support/LoopbackServer.h"
#include "Tests/Support/LoopbackServerSockets.h"

namespace {

using namespace kiv::test;
using Code = KivRESTServiceErrorCode;

class KivRESTServiceRetry : public testing::Test {
 protected:
  [[nodiscard]] std::size_t asked(const LoopbackServer& server) const {
    return server.requests("/a").size();
  }

  kiv::TransferSettings settings_ = kiv::defaultTransferSettings();
  LoopbackServer server_;
  LoopbackServer mirror_;
};

class StatusesThatMayPass : public KivRESTServiceRetry, public testing::WithParamInterface<int> {};

TEST_P(StatusesThatMayPass, AreTriedAgain) {
  server_.serve(
      "/a", {Response::status(GetParam()), Response::status(GetParam()), Response::ok("at last")});
  KivRESTService client(settings_);
  const Load load(client, server_.url("/a"));
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(load.body(), "at last");
  EXPECT_EQ(asked(server_), 3U);
}

TEST_P(StatusesThatMayPass, EndTheTaskWhenTheyStay) {
  server_.serve("/a", Response::status(GetParam()));
  KivRESTService client(settings_);
  const Load load(client, server_.url("/a"));
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(load.status(), GetParam());
  EXPECT_EQ(asked(server_), 3U);
}

INSTANTIATE_TEST_SUITE_P(All, StatusesThatMayPass, testing::Values(408, 429, 500, 502, 503, 504));

class StatusesThatStay : public KivRESTServiceRetry, public testing::WithParamInterface<int> {};

TEST_P(StatusesThatStay, AreAskedForOnce) {
  server_.serve("/a", Response::status(GetParam()));
  KivRESTService client(settings_);
  const Load load(client, server_.url("/a"));
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(load.status(), GetParam());
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
  KivRESTService client(settings_);
  const Load load(client, {server_.url("/a"), mirror_.url("/a")});
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(load.body(), "of the mirror");
  EXPECT_EQ(asked(server_), 1U);
}

TEST_F(KivRESTServiceRetry, BothServersHaveTheirTries) {
  server_.serve("/a", Response::status(503));
  mirror_.serve("/a", Response::nothing());
  KivRESTService client(settings_);
  const Load load(client, {server_.url("/a"), mirror_.url("/a")});
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(load.status(), 503);
  EXPECT_EQ(asked(server_), 3U);
  EXPECT_EQ(asked(mirror_), 3U);
}

TEST_F(KivRESTServiceRetry, TheLastStatusOfAServerCounts) {
  server_.serve("/a", {Response::status(503), Response::status(404)});
  KivRESTService client(settings_);
  const Load load(client, server_.url("/a"));
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(load.status(), 404);
}

TEST_F(KivRESTServiceRetry, ServersAreAskedAsOftenAsTheSettingsSay) {
  server_.serve("/a", Response::nothing());
  settings_.triesPerServer = 5;
  settings_.triesInAll = 4;
  KivRESTService client(settings_);
  const Load load(client, server_.url("/a"));
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(asked(server_), 4U);
}

TEST_F(KivRESTServiceRetry, TriesAreNeverFewerThanOne) {
  server_.serve("/a", Response::ok("body"));
  settings_.triesPerServer = 0;
  settings_.triesInAll = -1;
  KivRESTService client(settings_);
  const Load load(client, server_.url("/a"));
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(load.body(), "body");
}

TEST_F(KivRESTServiceRetry, ATaskThatWaitsTakesNoPlace) {
  server_.serve("/a", Response::status(503));
  server_.serve("/b", Response::ok("other"));
  settings_.parallelTransfers = 1;
  settings_.firstRetryDelay = settings_.longestRetryDelay = std::chrono::hours(1);
  KivRESTService client(settings_);
  const Load waiting(client, server_.url("/a"));
  const Load other(client, server_.url("/b"));
  ASSERT_TRUE(other.waitForEnd());
  EXPECT_EQ(other.body(), "other");
  EXPECT_FALSE(waiting.hasEnded());
  client.cancelAllTasks();
}

TEST_F(KivRESTServiceRetry, TheServersWishToBeLeftAloneIsObeyed) {
  server_.serve("/a", {Response::status(429).header("Retry-After", "3600"), Response::ok("soon")});
  settings_.longestRetryAfter = std::chrono::hours(2);
  KivRESTService client(settings_);
  const Load load(client, server_.url("/a"));
  server_.serve("/b", Response::ok("other"));
  ASSERT_TRUE(server_.waitForRequests("/a", 1));
  const Load other(client, server_.url("/b"));
  ASSERT_TRUE(other.waitForEnd());
  EXPECT_FALSE(load.hasEnded());
  EXPECT_EQ(asked(server_), 1U);
}

TEST_F(KivRESTServiceRetry, ButNoLongerThanTheBound) {
  server_.serve("/a", {Response::status(503).header("Retry-After", "3600"), Response::ok("soon")});
  settings_.longestRetryAfter = std::chrono::milliseconds(1);
  KivRESTService client(settings_);
  const Load load(client, server_.url("/a"));
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(load.body(), "soon");
}

// --- Servers that cannot be reached --------------------------------------------------------------

TEST_F(KivRESTServiceRetry, AServerThatRefusesIsTriedAgain) {
  const RefusingServer refusing;
  KivRESTService client(settings_);
  const Load load(client, refusing.url("/a"));
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(load.errorCode(), codeOf(Code::cannotConnect));
  EXPECT_EQ(load.task()->metrics().tries, 3);
}

TEST_F(KivRESTServiceRetry, LaterTasksAskTheMirrorFirst) {
  const RefusingServer refusing;
  mirror_.serve("/a", Response::ok("of the mirror"));
  mirror_.serve("/b", Response::ok("again"));
  KivRESTService client(settings_);
  const Load first(client, {refusing.url("/a"), mirror_.url("/a")});
  ASSERT_TRUE(first.waitForEnd());
  EXPECT_EQ(first.task()->metrics().tries, 2);
  const Load second(client, {refusing.url("/b"), mirror_.url("/b")});
  ASSERT_TRUE(second.waitForEnd());
  EXPECT_EQ(second.body(), "again");
  EXPECT_EQ(second.task()->metrics().tries, 1);
}

TEST_F(KivRESTServiceRetry, AfterThePauseTheMainServerIsProbedAgain) {
  const RefusingServer refusing;
  mirror_.serve("/a", Response::ok("of the mirror"));
  mirror_.serve("/b", Response::ok("again"));
  settings_.unreachablePause = std::chrono::milliseconds(0);
  KivRESTService client(settings_);
  const Load first(client, {refusing.url("/a"), mirror_.url("/a")});
  ASSERT_TRUE(first.waitForEnd());
  const Load second(client, {refusing.url("/b"), mirror_.url("/b")});
  ASSERT_TRUE(second.waitForEnd());
  EXPECT_EQ(second.task()->metrics().tries, 2);
}

TEST_F(KivRESTServiceRetry, TheOutcomeIsTheSameWhereTheMirrorComesFirst) {
  const RefusingServer refusing;
  mirror_.serve("/a", Response::status(404));
  KivRESTService client(settings_);
  const Load first(client, {refusing.url("/a"), mirror_.url("/a")});
  ASSERT_TRUE(first.waitForEnd());
  const Load second(client, {refusing.url("/a"), mirror_.url("/a")});
  ASSERT_TRUE(second.waitForEnd());
  EXPECT_EQ(first.status(), 404);
  EXPECT_EQ(second.status(), 404);

  const RefusingServer other;
  const Load third(client, {refusing.url("/a"), other.url("/a")});
  ASSERT_TRUE(third.waitForEnd());
  EXPECT_NE(third.message().find(refusing.url("/a")), std::string::npos) << third.message();
}

TEST_F(KivRESTServiceRetry, AServerThatAnswersWithErrorsIsNotAvoided) {
  server_.serve("/a", Response::status(404));
  server_.serve("/b", Response::ok("of the main server"));
  mirror_.serve("/a", Response::ok("of the mirror"));
  mirror_.serve("/b", Response::ok("of the mirror"));
  KivRESTService client(settings_);
  const Load first(client, {server_.url("/a"), mirror_.url("/a")});
  ASSERT_TRUE(first.waitForEnd());
  EXPECT_EQ(first.body(), "of the mirror");
  const Load second(client, {server_.url("/b"), mirror_.url("/b")});
  ASSERT_TRUE(second.waitForEnd());
  EXPECT_EQ(second.body(), "of the main server");
}

// --- Places --------------------------------------------------------------------------------------

TEST_F(KivRESTServiceRetry, OneServerHasNoMorePlacesThanItsOwn) {
  const Gate gate;
  for (const std::string path : {"/a", "/b", "/c", "/d"}) {
    server_.serve(path, Response::ok("x").after(gate));
    mirror_.serve(path, Response::ok("x").after(gate));
  }
  settings_.parallelTransfers = 4;
  settings_.parallelTransfersPerHost = 2;
  KivRESTService client(settings_);
  std::vector<Load> loads;
  for (const std::string path : {"/a", "/b", "/c", "/d"})
    loads.emplace_back(client, server_.url(path));
  for (const std::string path : {"/a", "/b", "/c", "/d"})
    loads.emplace_back(client, mirror_.url(path));
  ASSERT_TRUE(server_.waitForRequests(2) && mirror_.waitForRequests(2));
  EXPECT_EQ(server_.requests().size(), 2U);
  EXPECT_EQ(mirror_.requests().size(), 2U);
  gate.open();
  for (const auto& load : loads)
    ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(server_.mostWaiting(), 2U);
  EXPECT_EQ(mirror_.mostWaiting(), 2U);
}

TEST_F(KivRESTServiceRetry, BodiesThatNobodyTakesHoldUpTheOthers) {
  for (const std::string path : {"/a", "/b", "/c", "/d", "/e", "/f"})
    server_.serve(path, Response::ok(std::string(1000, 'x')));
  settings_.parallelTransfers = 1;
  settings_.largestPendingBytes = 2500;
  KivRESTService client(settings_);
  std::vector<Load> loads;
  for (const std::string path : {"/a", "/b", "/c", "/d", "/e", "/f"})
    loads.emplace_back(client, server_.url(path));
  // Nobody drains the main queue: with the third body too many bytes are pending.
  ASSERT_TRUE(server_.waitForRequests(3));
  for (const auto& load : loads)
    ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(server_.requests().size(), 6U);
}

}  // namespace
