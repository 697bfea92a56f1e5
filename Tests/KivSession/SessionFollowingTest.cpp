// A session that follows a configuration, through the C interface, and through the tool where the
// end of the input matters. Checks come from follow and checkNow alone.

#include <csignal>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KivSession/SessionFollowing.h"
#include "Tests/KivSession/OpenedSession.h"
#include "Tests/Tools/kivresource/ToolFixture.h"

namespace {

using namespace kiv::test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

const std::string finish = R"({"event":"didFinishLoading"})";

Response configuration(const std::string& items, const std::string& tag) {
  return Response::ok(configOf(items)).header("ETag", tag);
}

kiv::Dictionary parsed(const std::string& line) {
  const auto value = kiv::JSON::read(line);
  EXPECT_TRUE(value) << line;
  return value ? value->dictionary() : kiv::Dictionary();
}

class SessionFollowingTest : public ToolFixture {
 protected:
  [[nodiscard]] std::string settings(const std::string& more = {}) const {
    return R"(,"main":")" + server_.url() + "\"" + more;
  }
  static std::string follow(const std::string& url, const std::string& more = {}) {
    return R"({"call":"follow","url":")" + url + "\"" + more + "}";
  }
  [[nodiscard]] std::string followHere(const std::string& more = {}) const {
    return follow(server_.url("/c.json"), more);
  }

  /// The members of the next check. The lines before it are added to `others_`.
  kiv::Dictionary nextCheck(const OpenedSession& session) {
    while (auto line = session.receive()) {
      if (line->starts_with(R"({"event":"check",)")) return parsed(*line);
      others_.push_back(*std::move(line));
    }
    ADD_FAILURE() << "no check came";
    return {};
  }
  std::string nextOutcome(const OpenedSession& session) {
    return nextCheck(session)["outcome"].string();
  }
  static void send(const OpenedSession& session, const std::string& call) {
    EXPECT_EQ(session.send(call), KIVSESSION_OK);
  }
  /// What state says that the session follows.
  static kiv::Value followed(const OpenedSession& session) {
    send(session, R"({"call":"state","tag":"followed"})");
    return parsed(session.receiveUpTo("followed").back())["follows"];
  }

  std::vector<std::string> others_;
  const std::string checkNow_ = R"({"call":"checkNow"})";
};

// --- Checks --------------------------------------------------------------------------------------

TEST_F(SessionFollowingTest, TheFirstCheckRunsAPassAndIsReported) {
  server_.serve("/a.png", Response::ok("a"));
  server_.serve("/c.json", configuration(bannerItem("a", "a.png"), "\"1\""));
  const OpenedSession session(root(), settings());
  send(session, followHere(R"(,"interval_s":1000,"jitter":0,"tag":"f")"));
  const auto check = nextCheck(session);
  ASSERT_EQ(others_.size(), 3U);
  EXPECT_EQ(others_[0], R"({"result":"follow","tag":"f"})");
  EXPECT_THAT(others_[1], StartsWith(R"({"event":"didLoadResource")"));
  EXPECT_EQ(others_[2], finish);
  EXPECT_EQ(check["followTag"].string(), "f");
  EXPECT_EQ(check["outcome"].string(), "updated");
  EXPECT_TRUE(check["error"].isNull());
  EXPECT_EQ(check["statusCode"].signedInteger(), 200);
  EXPECT_EQ(check["server"].string(), server_.url("/c.json"));
  EXPECT_TRUE(check["saveError"].isNull());
  EXPECT_EQ(check["nextCheck_ms"].signedInteger(), 1'000'000);
  const auto& report = check["report"].dictionary();
  EXPECT_EQ(report["outcome"].string(), "done");
  EXPECT_EQ(report["entries"].array()[0].dictionary()["outcome"].string(), "added");
  EXPECT_FALSE(report.contains("event"));
  EXPECT_FALSE(report.contains("passTag"));
}

TEST_F(SessionFollowingTest, TheReportHasTheMembersOfTheEventPassReport) {
  server_.serve("/c.json", configuration("", "\"1\""));
  const OpenedSession session(root(), settings());
  send(session, followHere());
  const auto report = nextCheck(session)["report"].dictionary();
  others_.clear();
  send(session, R"({"call":"reportPasses","enabled":true})");
  send(session, R"({"call":"updateResourcesForConfig","config":{"items":[]}})");
  EXPECT_EQ(session.receive(), finish);
  const auto event = parsed(session.receive().value_or(""));
  std::vector<std::string> expected{"event", "passTag"};
  for (const auto& entry : report)
    expected.emplace_back(entry.key());
  std::vector<std::string> members;
  for (const auto& entry : event)
    members.emplace_back(entry.key());
  EXPECT_EQ(members, expected);
  // A check's pass has no event of its own.
  send(session, R"({"call":"stopFollowing"})");
  send(session, followHere());
  EXPECT_EQ(nextOutcome(session), "repeated");
  EXPECT_THAT(others_, ElementsAre(finish));
}

TEST_F(SessionFollowingTest, AnUnchangedConfigurationRunsNoPass) {
  server_.serve("/c.json", {configuration("", "\"1\""), Response::status(304)});
  const OpenedSession session(root(), settings());
  send(session, followHere(R"(,"interval_s":0)"));
  const auto first = nextCheck(session);
  EXPECT_TRUE(first["followTag"].isNull());
  EXPECT_TRUE(first["nextCheck_ms"].isNull());
  others_.clear();
  send(session, R"({"call":"checkNow","tag":1})");
  const auto check = nextCheck(session);
  EXPECT_THAT(others_, ElementsAre(R"({"result":"checkNow","tag":1})"));
  EXPECT_EQ(check["outcome"].string(), "unchanged");
  EXPECT_EQ(check["statusCode"].signedInteger(), 304);
  EXPECT_TRUE(check["report"].isNull());
  EXPECT_EQ(server_.requests("/c.json")[1].header("If-None-Match"), "\"1\"");
}

TEST_F(SessionFollowingTest, AChangedConfigurationDropsTheRest) {
  server_.serve("/a.png", Response::ok("a"));
  server_.serve("/b.png", Response::ok("b"));
  server_.serve("/c.json", {configuration(bannerItem("a", "a.png"), "\"1\""),
                            configuration(bannerItem("b", "b.png"), "\"2\"")});
  const OpenedSession session(root(), settings());
  send(session, followHere());
  EXPECT_EQ(nextOutcome(session), "updated");
  send(session, checkNow_);
  const auto check = nextCheck(session);
  EXPECT_EQ(check["outcome"].string(), "updated");
  const auto& dropped = check["report"].dictionary()["dropped"].array();
  ASSERT_EQ(dropped.size(), 1U);
  EXPECT_EQ(dropped[0].dictionary()["resourceID"].string(), "a");
}

TEST_F(SessionFollowingTest, AFailedCheckTellsWhyAndChangesNothing) {
  server_.serve("/a.png", Response::ok("a"));
  server_.serve("/c.json", {configuration(bannerItem("a", "a.png"), "\"1\""),
                            Response::ok("<html></html>"), Response::status(404)});
  const OpenedSession session(root(), settings());
  send(session, followHere());
  EXPECT_EQ(nextOutcome(session), "updated");
  send(session, checkNow_);
  const auto broken = nextCheck(session);
  EXPECT_EQ(broken["outcome"].string(), "failed");
  EXPECT_EQ(broken["error"].dictionary()["domain"].string(), "kiv.JSON");
  EXPECT_EQ(broken["statusCode"].signedInteger(), 200);
  EXPECT_TRUE(broken["report"].isNull());
  send(session, checkNow_);
  const auto absent = nextCheck(session);
  EXPECT_EQ(absent["outcome"].string(), "failed");
  EXPECT_EQ(absent["error"].dictionary()["domain"].string(), "kiv.KivConfiguration");
  EXPECT_EQ(absent["error"].dictionary()["code"].signedInteger(), 1);
  EXPECT_EQ(absent["statusCode"].signedInteger(), 404);
  EXPECT_TRUE(std::filesystem::exists(stored("a.png")));
}

TEST_F(SessionFollowingTest, AMirrorIsAskedAndServersAreShownWithoutCredentials) {
  LoopbackServer mirror;
  server_.serve("/c.json", Response::status(404));
  mirror.serve("/c.json", configuration("", "\"1\""));
  const std::string host = mirror.url().substr(std::string("http://").size());
  const OpenedSession session(root(), settings());
  send(session, follow("http://me:pass@" + server_.url("/c.json?key=1").substr(7),
                       R"(,"mirrors":[")" + mirror.url("/none.json") + R"(","http://me:pass@)" +
                           host + R"(/c.json?key=1"])"));
  const auto check = nextCheck(session);
  EXPECT_EQ(check["outcome"].string(), "updated");
  EXPECT_EQ(check["server"].string(), mirror.url("/c.json"));
  EXPECT_EQ(followed(session).string(), server_.url("/c.json"));
}

TEST_F(SessionFollowingTest, ACheckWaitsForTheEndOfTheHostsPass) {
  Gate gate;
  server_.serve("/a.png", Response::ok("a").after(gate));
  server_.serve("/c.json", configuration(bannerItem("a", "a.png"), "\"1\""));
  const OpenedSession session(root(), settings());
  send(session,
       R"({"call":"loadResourcesForConfig","config":)" + configOf(bannerItem("a", "a.png")) + "}");
  send(session, followHere(R"(,"tag":7)"));
  const auto postponed = nextCheck(session);
  EXPECT_EQ(postponed["outcome"].string(), "postponed");
  EXPECT_EQ(postponed["followTag"].signedInteger(), 7);
  EXPECT_TRUE(postponed["report"].isNull());
  gate.open();
  const auto check = nextCheck(session);
  EXPECT_EQ(check["outcome"].string(), "updated");
  EXPECT_EQ(check["report"].dictionary()["entries"].array()[0].dictionary()["outcome"].string(),
            "unchanged");
}

TEST_F(SessionFollowingTest, AHostsPassDuringThatOfACheckIsRefusedAndTheCheckGoesOn) {
  Gate gate;
  server_.serve("/a.png", Response::ok("a").after(gate));
  server_.serve("/c.json", configuration(bannerItem("a", "a.png"), "\"1\""));
  const OpenedSession session(root(), settings());
  send(session, followHere());
  ASSERT_TRUE(server_.waitForRequests("/a.png", 1));
  send(session,
       R"({"call":"loadResourcesForConfig","config":)" + configOf(bannerItem("b", "b.png")) + "}");
  EXPECT_THAT(session.receive().value_or(""), HasSubstr(R"("code":100,)"));
  EXPECT_EQ(session.receive(), finish);
  gate.open();
  const auto check = nextCheck(session);
  EXPECT_EQ(check["report"].dictionary()["entries"].array()[0].dictionary()["outcome"].string(),
            "added");
}

TEST_F(SessionFollowingTest, WithoutANetworkTheSavedConfigurationIsUsedUnlessTheHostForbidsIt) {
  server_.serve("/a.png", Response::status(404));
  server_.serve("/c.json",
                {configuration(bannerItem("a", "a.png"), "\"1\""), Response::status(404)});
  {
    const OpenedSession session(root(), settings());
    send(session, followHere());
    EXPECT_EQ(nextOutcome(session), "updated");
  }
  const OpenedSession session(root(), settings());
  send(session, followHere(R"(,"usesSavedConfiguration":false)"));
  EXPECT_TRUE(nextCheck(session)["report"].isNull());
  server_.serve("/a.png", Response::ok("a"));
  send(session, followHere());
  const auto check = nextCheck(session);
  EXPECT_EQ(check["outcome"].string(), "failed");
  EXPECT_EQ(check["statusCode"].signedInteger(), 404);
  EXPECT_EQ(check["report"].dictionary()["entries"].array()[0].dictionary()["outcome"].string(),
            "added");
}

TEST_F(SessionFollowingTest, AConfigurationThatCannotBeSavedIsToldOf) {
  server_.serve("/c.json", configuration("", "\"1\""));
  std::filesystem::create_directories(root() + "/KivResource/last_configuration");
  const OpenedSession session(root(), settings());
  send(session, followHere());
  const auto check = nextCheck(session);
  EXPECT_EQ(check["outcome"].string(), "updated");
  EXPECT_FALSE(check["saveError"].isNull());
}

// --- Calls ---------------------------------------------------------------------------------------

TEST_F(SessionFollowingTest, NothingIsFollowedAtFirstAndAfterAnEnd) {
  server_.serve("/c.json", configuration("", "\"1\""));
  const OpenedSession session(root(), settings());
  const std::string error = R"({"error":"no configuration is followed","tag":"c"})";
  send(session, R"({"call":"checkNow","tag":"c"})");
  EXPECT_EQ(session.receive(), error);
  send(session, R"({"call":"stopFollowing","tag":"s"})");
  EXPECT_EQ(session.receive(), R"({"result":"stopFollowing","tag":"s"})");
  EXPECT_TRUE(followed(session).isNull());
  send(session, followHere());
  EXPECT_EQ(nextOutcome(session), "updated");
  EXPECT_EQ(followed(session).string(), server_.url("/c.json"));
  send(session, R"({"call":"stopFollowing","tag":"s"})");
  EXPECT_EQ(session.receive(), R"({"result":"stopFollowing","tag":"s"})");
  EXPECT_TRUE(followed(session).isNull());
  send(session, R"({"call":"checkNow","tag":"c"})");
  EXPECT_EQ(session.receive(), error);
}

TEST_F(SessionFollowingTest, AWrongFollowIsAnErrorAndTheFormerOneStays) {
  server_.serve("/c.json", configuration("", "\"1\""));
  const OpenedSession session(root(), settings());
  send(session, followHere(R"(,"tag":1)"));
  EXPECT_EQ(nextOutcome(session), "updated");
  send(session, follow("file:///etc/passwd", R"(,"tag":2)"));
  EXPECT_EQ(session.receive(), R"({"error":"\"url\" is to be an http or https URL","tag":2})");
  send(session, checkNow_);
  EXPECT_EQ(nextCheck(session)["followTag"].signedInteger(), 1);
}

TEST_F(SessionFollowingTest, AnotherFollowTakesThePlaceOfTheFormerAndItsRunningCheck) {
  const Gate gate;
  server_.serve("/slow.json", Response::ok("{}").after(gate));
  server_.serve("/c.json", configuration("", "\"1\""));
  const OpenedSession session(root(), settings());
  send(session, follow(server_.url("/slow.json"), R"(,"tag":1)"));
  ASSERT_TRUE(server_.waitForRequests("/slow.json", 1));
  send(session, followHere(R"(,"tag":2)"));
  EXPECT_EQ(nextCheck(session)["followTag"].signedInteger(), 2);
  EXPECT_THAT(others_, ElementsAre(R"({"result":"follow","tag":1})",
                                   R"({"result":"follow","tag":2})", finish));
  EXPECT_EQ(followed(session).string(), server_.url("/c.json"));
}

TEST_F(SessionFollowingTest, StopFollowingEndsARunningRequest) {
  Gate gate;
  server_.serve("/c.json", {Response::ok(configOf("")).after(gate), configuration("", "\"1\"")});
  const OpenedSession session(root(), settings());
  send(session, followHere(R"(,"tag":1)"));
  ASSERT_TRUE(server_.waitForRequests("/c.json", 1));
  send(session, R"({"call":"stopFollowing"})");
  EXPECT_TRUE(followed(session).isNull());
  gate.open();
  send(session, followHere(R"(,"tag":2)"));
  EXPECT_EQ(nextCheck(session)["followTag"].signedInteger(), 2);
}

TEST_F(SessionFollowingTest, APassThatRunsOutlivesStopFollowing) {
  Gate gate;
  server_.serve("/a.png", Response::ok("a").after(gate));
  server_.serve("/c.json", configuration(bannerItem("a", "a.png"), "\"1\""));
  const OpenedSession session(root(), settings());
  send(session, followHere());
  ASSERT_TRUE(server_.waitForRequests("/a.png", 1));
  send(session, R"({"call":"stopFollowing"})");
  EXPECT_TRUE(followed(session).isNull());
  gate.open();
  EXPECT_THAT(session.receive().value_or(""), StartsWith(R"({"event":"didLoadResource")"));
  EXPECT_EQ(session.receive(), finish);
  send(session, R"({"call":"state","tag":"over"})");
  EXPECT_EQ(session.receiveUpTo("over").size(), 1U) << "the check was reported";
}

TEST_F(SessionFollowingTest, CheckNowDuringACheckIsThatOne) {
  Gate gate;
  server_.serve("/c.json", configuration("", "\"1\"").after(gate));
  const OpenedSession session(root(), settings());
  send(session, followHere());
  send(session, checkNow_);
  send(session, checkNow_);
  ASSERT_TRUE(server_.waitForRequests("/c.json", 1));
  EXPECT_TRUE(session.answers());
  gate.open();
  EXPECT_EQ(nextOutcome(session), "updated");
  EXPECT_TRUE(session.answers());
  EXPECT_EQ(server_.requests("/c.json").size(), 1U);
}

TEST_F(SessionFollowingTest, TheSettingsOfTheSessionHoldAlsoAfterAChange) {
  server_.serve("/c.json", {configuration("", "\"1\""), Response::status(304)});
  const OpenedSession session(root(), settings(R"(,"settings":{"userAgent":"first"})"));
  send(session, followHere(R"(,"tag":1)"));
  EXPECT_EQ(nextOutcome(session), "updated");
  send(session, R"({"call":"setSettings","settings":{"userAgent":"second"},"tag":2})");
  EXPECT_EQ(session.receive(), R"({"result":"setSettings","tag":2})");
  const auto check = nextCheck(session);
  EXPECT_EQ(check["outcome"].string(), "repeated");
  EXPECT_EQ(check["followTag"].signedInteger(), 1);
  send(session, R"({"call":"setSettings","settings":{"userAgent":7},"tag":3})");
  EXPECT_THAT(session.receive().value_or(""), StartsWith(R"({"error":)"));
  const auto requests = server_.requests("/c.json");
  ASSERT_EQ(requests.size(), 2U);
  EXPECT_EQ(requests[0].header("User-Agent"), "first");
  EXPECT_EQ(requests[1].header("User-Agent"), "second");
}

TEST_F(SessionFollowingTest, TheLimitOnAFileIsNoneOnTheConfiguration) {
  server_.serve("/c.json", configuration("", "\"1\""));
  const OpenedSession session(root(), settings(R"(,"settings":{"largestBody":3})"));
  send(session, followHere());
  EXPECT_EQ(nextOutcome(session), "updated");
}

TEST_F(SessionFollowingTest, OtherSettingsWithoutAFollowedConfigurationBeginNone) {
  const OpenedSession session(root(), settings());
  send(session, R"({"call":"setSettings","settings":{"threads":1}})");
  EXPECT_TRUE(followed(session).isNull());
}

TEST_F(SessionFollowingTest, APauseHoldsUpFilesOnly) {
  server_.serve("/a.png", Response::ok("a"));
  server_.serve("/c.json", configuration(bannerItem("a", "a.png"), "\"1\""));
  const OpenedSession session(root(), settings());
  send(session, R"({"call":"pause"})");
  send(session, followHere());
  ASSERT_TRUE(server_.waitForRequests("/c.json", 1));
  send(session, R"({"call":"resume"})");
  EXPECT_EQ(nextOutcome(session), "updated");
}

TEST_F(SessionFollowingTest, StopLoadingStopsThePassOfACheckAndTheNextCheckRepeatsIt) {
  Gate gate;
  server_.serve("/a.png", {Response::ok("a").after(gate), Response::ok("a")});
  server_.serve("/c.json",
                {configuration(bannerItem("a", "a.png"), "\"1\""), Response::status(304)});
  const OpenedSession session(root(), settings());
  send(session, followHere());
  ASSERT_TRUE(server_.waitForRequests("/a.png", 1));
  send(session, R"({"call":"stopLoading"})");
  EXPECT_EQ(nextCheck(session)["report"].dictionary()["outcome"].string(), "stopped");
  gate.open();
  send(session, checkNow_);
  EXPECT_EQ(nextOutcome(session), "repeated");
  EXPECT_TRUE(std::filesystem::exists(stored("a.png")));
}

TEST_F(SessionFollowingTest, AWaitTakesTheFinishOfACheckOnce) {
  server_.serve("/c.json", configuration("", "\"1\""));
  const OpenedSession session(root(), settings());
  send(session, followHere());
  send(session, R"({"call":"waitForFinish","tag":"first"})");
  EXPECT_EQ(session.receiveUpTo("first").front(), finish);
  send(session, R"({"call":"waitForFinish","timeout_ms":0,"tag":"second"})");
  EXPECT_EQ(session.receiveUpTo("second").back(), R"({"error":"timeout","tag":"second"})");
}

// --- The end of the session ----------------------------------------------------------------------

class SessionFollowingEndTest : public SessionFollowingTest {
 protected:
  [[nodiscard]] std::vector<std::string> arguments() const {
    return general({"session", "--resources", directory_.path()});
  }
  /// Follows, and sends the signal when the server has the request for that path.
  void expectSignalToEndFollowing(int signal, const std::string& path) {
    ToolProcess session(arguments());
    session.writeLine(followHere());
    ASSERT_TRUE(server_.waitForRequests(path, 1));
    session.sendSignal(signal);
    EXPECT_THAT(session.readLines(), ElementsAre(finish));
    EXPECT_EQ(session.waitForExit(), 128 + signal);
  }
};

TEST_F(SessionFollowingEndTest, TheEndOfInputWaitsForTheRunningCheckAndForNoOther) {
  Gate gate;
  server_.serve("/a.png", Response::ok("a"));
  server_.serve("/c.json", configuration(bannerItem("a", "a.png"), "\"1\"").after(gate));
  ToolProcess session(arguments());
  session.writeLine(followHere(R"(,"interval_s":31536000)"));
  session.closeInput();
  ASSERT_TRUE(server_.waitForRequests("/c.json", 1));
  gate.open();
  EXPECT_THAT(session.readLines(),
              ElementsAre(StartsWith(R"({"event":"didLoadResource")"), finish,
                          StartsWith(R"({"event":"check","followTag":null,"outcome":"updated")")));
  EXPECT_EQ(session.waitForExit(), 0) << session.errors();
}

TEST_F(SessionFollowingEndTest, TheEndOfInputWaitsForAPassWithoutDownloads) {
  server_.serve("/c.json", configuration("", "\"1\""));
  const auto run = runTool(arguments(), followHere() + "\n");
  EXPECT_THAT(run.lines, ElementsAre(finish, HasSubstr(R"("outcome":"updated")")));
  EXPECT_EQ(run.status, 0);
}

TEST_F(SessionFollowingEndTest, TheEndOfInputWaitsForAPostponedCheck) {
  Gate gate;
  server_.serve("/a.png", Response::ok("a").after(gate));
  server_.serve("/b.png", Response::ok("b"));
  server_.serve("/c.json", configuration(bannerItem("b", "b.png"), "\"1\""));
  ToolProcess session(arguments());
  session.writeLine(R"({"call":"loadResourcesForConfig","config":)" +
                    configOf(bannerItem("a", "a.png")) + "}");
  session.writeLine(followHere(R"(,"interval_s":0)"));
  session.closeInput();
  EXPECT_THAT(session.readLine().value_or(""), HasSubstr(R"("outcome":"postponed")"));
  gate.open();
  EXPECT_THAT(session.readLines(), ElementsAre(StartsWith(R"({"event":"didLoadResource")"), finish,
                                               StartsWith(R"({"event":"didLoadResource")"), finish,
                                               HasSubstr(R"("outcome":"updated")")));
  EXPECT_EQ(session.waitForExit(), 0) << session.errors();
}

TEST_F(SessionFollowingEndTest, ASignalEndsTheCheck) {
  const Gate gate;
  server_.serve("/c.json", Response::ok("{}").after(gate));
  expectSignalToEndFollowing(SIGTERM, "/c.json");
}

TEST_F(SessionFollowingEndTest, ASignalEndsThePassOfACheckWhichIsNotReported) {
  const Gate gate;
  server_.serve("/a.png", Response::ok("a").after(gate));
  server_.serve("/c.json", configuration(bannerItem("a", "a.png"), "\"1\""));
  expectSignalToEndFollowing(SIGINT, "/a.png");
}

TEST_F(SessionFollowingEndTest, AnotherThreadClosesTheSessionDuringARequest) {
  const Gate gate;
  server_.serve("/c.json", Response::ok("{}").after(gate));
  OpenedSession session(root(), settings());
  send(session, followHere());
  ASSERT_TRUE(server_.waitForRequests("/c.json", 1));
  std::thread([&] { EXPECT_EQ(session.close(), KIVSESSION_OK); }).join();
  EXPECT_TRUE(OpenedSession(root()).answers());
}

TEST_F(SessionFollowingEndTest, AnotherThreadClosesTheSessionDuringThePassOfACheck) {
  const Gate gate;
  server_.serve("/a.png", Response::ok("a").after(gate));
  server_.serve("/c.json", configuration(bannerItem("a", "a.png"), "\"1\""));
  OpenedSession session(root(), settings());
  send(session, followHere());
  ASSERT_TRUE(server_.waitForRequests("/a.png", 1));
  kivsession* const handle = session.handle();
  std::vector<std::string> lines;
  std::thread receiver([&] {
    char* line = nullptr;
    while (kivsession_receive(handle, -1, &line) == KIVSESSION_OK) {
      lines.emplace_back(line);
      kivsession_free(line);
    }
  });
  EXPECT_EQ(session.close(), KIVSESSION_OK);
  receiver.join();
  for (const auto& line : lines)
    EXPECT_EQ(line, finish);
}

}  // namespace
