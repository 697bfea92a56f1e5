// The calls with which a program answers requests and holds transfers back, by the C interface.

#include <cstddef>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KivSession/kivsession.h"
#include "Tests/KivSession/OpenedSession.h"
#include "Tests/Support/LoopbackServer.h"
#include "Tests/Support/Secrets.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace {

using namespace kiv::test;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr const char* finish = R"({"event":"didFinishLoading"})";

std::string item(const std::string& id, const std::string& link) {
  return R"({"engine":"eco_standard","name":"n","type":"t","banner_id":")" + id +
         R"(","priority":1,"updated":1,"market_url":"m","image_728x90":")" + link + R"("})";
}

std::string announced(int number, const std::string& url) {
  return R"({"event":"request","request":)" + std::to_string(number) + R"(,"url":")" + url + "\"}";
}

/// The number of an announced request.
std::string numberOf(const std::string& line) {
  const auto start = line.find(R"("request":)") + std::string_view(R"("request":)").size();
  return line.substr(start, line.find(',', start) - start);
}

class SessionRequestsTest : public testing::Test {
 protected:
  /// The line that answers a call without a result of its own, or its error.
  std::string answerTo(const std::string& call) {
    static int number = 0;
    const std::string tag = "call" + std::to_string(++number);
    EXPECT_EQ(session_.send("{" + call + R"(,"tag":")" + tag + "\"}"), KIVSESSION_OK);
    auto lines = session_.receiveUpTo(tag);
    auto answer = lines.back();
    lines.pop_back();
    before_.insert(before_.end(), lines.begin(), lines.end());
    return answer.substr(0, answer.rfind(",\"tag\"")) + "}";
  }
  void expectDone(const std::string& name, const std::string& members = {}) {
    EXPECT_EQ(answerTo(R"("call":")" + name + "\"" + members), R"({"result":")" + name + "\"}");
  }
  void answerRequests(bool enabled = true) {
    expectDone("answerRequests", enabled ? R"(,"enabled":true)" : R"(,"enabled":false)");
  }
  void allowTransfers(bool enabled) {
    expectDone("allowTransfers", enabled ? R"(,"enabled":true)" : R"(,"enabled":false)");
  }
  void load(const std::string& items) {
    expectDone("loadResourcesForConfig", R"(,"config":{"items":[)" + items + "]}");
  }
  void send(int request, const std::string& headers = {}) {
    expectDone("sendRequest", R"(,"request":)" + std::to_string(request) +
                                  (headers.empty() ? "" : R"(,"headers":)" + headers));
  }
  std::string errorOf(const std::string& call, int request) {
    return answerTo(R"("call":")" + call + R"(","request":)" + std::to_string(request));
  }
  /// The next line that was not received yet.
  std::string next() {
    if (before_.empty()) return session_.receive().value_or("no line");
    auto line = before_.front();
    before_.erase(before_.begin());
    return line;
  }
  void expectLoaded(const std::string& id) {
    EXPECT_THAT(next(), HasSubstr(R"("resourceID":")" + id + "\""));
    EXPECT_EQ(next(), finish);
  }
  [[nodiscard]] static std::string error(const std::string& text) {
    return R"({"error":")" + text + "\"}";
  }
  [[nodiscard]] std::optional<std::string> headerAt(const LoopbackServer& server,
                                                    const std::string& path,
                                                    std::size_t index = 0) const {
    const auto requests = server.requests(path);
    return requests.size() > index ? requests[index].header("X-Token") : std::nullopt;
  }

  const TemporaryDirectory directory_;
  LoopbackServer server_;
  LoopbackServer mirror_;
  OpenedSession session_{directory_.path("root"), R"(,"main":")" + server_.url() +
                                                      R"(","reserve":")" + mirror_.url() +
                                                      R"(","settings":{"triesPerServer":2})"};
  std::vector<std::string> before_;  ///< Received before an answer, in their order.
};

// --- Announcements -------------------------------------------------------------------------------

TEST_F(SessionRequestsTest, WithoutTheCallNoRequestIsAnnounced) {
  server_.serve("/a.png", Response::ok("a"));
  load(item("a", "a.png"));
  expectLoaded("a");
}

TEST_F(SessionRequestsTest, EachTryMirrorAndRedirectIsAnnouncedAndGetsItsOwnHeaders) {
  server_.serve("/a.png", Response::status(503));
  mirror_.serve("/a.png", Response::redirect(302, "/b.png"));
  mirror_.serve("/b.png", Response::ok("a"));
  answerRequests();
  load(item("a", "a.png"));
  EXPECT_EQ(next(), announced(1, server_.url("/a.png")));
  EXPECT_TRUE(server_.requests().empty());
  send(1, R"({"X-Token":"1"})");
  // The mirror is asked before the server is tried again.
  EXPECT_EQ(next(), announced(2, mirror_.url("/a.png")));
  send(2, R"({"X-Token":"2","X-More":""})");
  EXPECT_EQ(next(), announced(3, mirror_.url("/b.png")));
  EXPECT_TRUE(mirror_.requests("/b.png").empty());
  send(3);
  expectLoaded("a");
  EXPECT_EQ(headerAt(server_, "/a.png"), "1");
  EXPECT_EQ(headerAt(mirror_, "/a.png"), "2");
  EXPECT_EQ(mirror_.requests("/b.png").size(), 1u);
  EXPECT_EQ(headerAt(mirror_, "/b.png"), std::nullopt);
}

TEST_F(SessionRequestsTest, ATryAfterAWaitIsAnnouncedToo) {
  server_.serve("/a.png", {Response::status(503), Response::ok("a")});
  answerTo(R"("call":"setDomains","reserve":null)");
  answerRequests();
  load(item("a", "a.png"));
  for (const int number : {1, 2}) {
    EXPECT_EQ(next(), announced(number, server_.url("/a.png")));
    send(number, R"({"X-Token":")" + std::to_string(number) + "\"}");
  }
  expectLoaded("a");
  EXPECT_EQ(headerAt(server_, "/a.png", 0), "1");
  EXPECT_EQ(headerAt(server_, "/a.png", 1), "2");
}

TEST_F(SessionRequestsTest, TwoRequestsAreAnsweredInReverseOrder) {
  server_.serve("/a.png", Response::ok("a"));
  server_.serve("/b.png", Response::ok("b"));
  answerRequests();
  load(item("a", "a.png") + "," + item("b", "b.png"));
  EXPECT_EQ(next(), announced(1, server_.url("/a.png")));
  EXPECT_EQ(next(), announced(2, server_.url("/b.png")));
  send(2, R"({"X-Token":"of b"})");
  EXPECT_THAT(next(), HasSubstr(R"("resourceID":"b")"));
  EXPECT_TRUE(server_.requests("/a.png").empty());
  send(1, R"({"X-Token":"of a"})");
  expectLoaded("a");
  EXPECT_EQ(headerAt(server_, "/a.png"), "of a");
  EXPECT_EQ(headerAt(server_, "/b.png"), "of b");
}

// --- Answers -------------------------------------------------------------------------------------

TEST_F(SessionRequestsTest, ARefusedRequestIsNotSentAndTheMirrorIsNext) {
  answerRequests();
  load(item("a", "a.png"));
  EXPECT_EQ(next(), announced(1, server_.url("/a.png")));
  expectDone("refuseRequest", R"(,"request":1)");
  EXPECT_EQ(next(), announced(2, mirror_.url("/a.png")));
  expectDone("refuseRequest", R"(,"request":2)");
  EXPECT_THAT(next(), StartsWith(R"({"event":"didFailToLoadResource")"));
  EXPECT_EQ(next(), finish);
  EXPECT_TRUE(server_.requests().empty());
  EXPECT_TRUE(mirror_.requests().empty());
}

TEST_F(SessionRequestsTest, ARequestThatIsUnknownOrAnsweredIsAnError) {
  EXPECT_EQ(errorOf("sendRequest", 1), error("there is no request 1"));
  server_.serve("/a.png", Response::ok("a"));
  answerRequests();
  load(item("a", "a.png"));
  EXPECT_EQ(next(), announced(1, server_.url("/a.png")));
  EXPECT_EQ(errorOf("refuseRequest", 0), error("there is no request 0"));
  EXPECT_EQ(errorOf("refuseRequest", 2), error("there is no request 2"));
  send(1);
  EXPECT_EQ(errorOf("sendRequest", 1), error("request 1 was answered already"));
  EXPECT_EQ(errorOf("refuseRequest", 1), error("request 1 was answered already"));
  expectLoaded("a");
}

TEST_F(SessionRequestsTest, AfterAnInvalidHeaderTheRequestWaitsOn) {
  server_.serve("/a.png", Response::ok("a"));
  answerRequests();
  load(item("a", "a.png"));
  EXPECT_EQ(next(), announced(1, server_.url("/a.png")));
  const std::vector<std::string> invalid{R"({"":"secret"})",
                                         R"({"a b":"secret"})",
                                         R"({"a:":"secret"})",
                                         R"({"a\r\nb":"secret"})",
                                         R"({"a":"secret\r\nb"})",
                                         R"({"a":"secret\u0000"})",
                                         R"({"a":" secret"})",
                                         R"({"a":"secret "})",
                                         R"({"Host":"secret"})",
                                         R"({"rAnGe":"secret"})",
                                         R"({"\u00e4":"secret"})",
                                         R"({"X-Token":"good","TE":"secret"})",
                                         R"({"a":")" + std::string(40'000, 's') + "\"}"};
  for (const std::string& headers : invalid) {
    const auto answer = answerTo(R"("call":"sendRequest","request":1,"headers":)" + headers);
    EXPECT_THAT(answer, StartsWith(R"({"error":")")) << headers;
    EXPECT_THAT(answer, Not(HasSubstr("secret")));
    EXPECT_THAT(answer, HasSubstr("host")) << headers;
  }
  EXPECT_TRUE(server_.requests().empty());
  send(1, R"({"X-Token":"valid"})");
  expectLoaded("a");
  EXPECT_EQ(headerAt(server_, "/a.png"), "valid");
}

TEST_F(SessionRequestsTest, ArgumentsOfAnotherTypeAreErrors) {
  answerRequests();
  load(item("a", "a.png"));
  EXPECT_EQ(next(), announced(1, server_.url("/a.png")));
  for (const std::string headers : {"null", "true", "7", "\"a: b\"", R"([["a","b"]])", R"({"a":7})",
                                    R"({"a":null})", R"({"b":"c","a":["b"]})"}) {
    EXPECT_EQ(answerTo(R"("call":"sendRequest","request":1,"headers":)" + headers),
              error(R"(\"headers\" is to be an object of strings)"));
  }
  for (const std::string request : {"null", "true", "-1", "\"1\"", "[1]", "{}"}) {
    for (const std::string call : {"sendRequest", "refuseRequest"}) {
      EXPECT_EQ(answerTo(R"("call":")" + call + R"(","request":)" + request),
                error(R"(\"request\" is to be a number of at least 0)"));
    }
  }
  EXPECT_EQ(answerTo(R"("call":"sendRequest")"),
            error(R"(\"request\" is to be a number of at least 0)"));
  for (const std::string request : {"18446744073709551615", "9223372036854775807", "1e300"}) {
    EXPECT_THAT(answerTo(R"("call":"sendRequest","request":)" + request),
                StartsWith(R"({"error":"there is no request )"));
  }
  for (const std::string call : {"answerRequests", "allowTransfers"}) {
    for (const std::string member : {"", R"(,"enabled":1)", R"(,"enabled":"true")"}) {
      EXPECT_EQ(answerTo(R"("call":")" + call + "\"" + member),
                error(R"(\"enabled\" is to be true or false)"));
    }
  }
  EXPECT_TRUE(server_.requests().empty());
}

// --- Requests that do not wait any more ----------------------------------------------------------

TEST_F(SessionRequestsTest, AfterStopLoadingTheRequestIsVoid) {
  answerRequests();
  load(item("a", "a.png"));
  EXPECT_EQ(next(), announced(1, server_.url("/a.png")));
  expectDone("stopLoading");
  EXPECT_EQ(errorOf("sendRequest", 1), error("request 1 does not wait any more"));
  EXPECT_EQ(errorOf("refuseRequest", 1), error("request 1 does not wait any more"));
  EXPECT_EQ(next(), finish);
  server_.serve("/a.png", Response::ok("a"));
  load(item("a", "a.png"));
  EXPECT_EQ(next(), announced(2, server_.url("/a.png")));
  send(2);
  expectLoaded("a");
  EXPECT_EQ(server_.requests().size(), 1u);
}

TEST_F(SessionRequestsTest, AfterAPauseTheRequestIsAnnouncedAgain) {
  server_.serve("/a.png", Response::ok("a"));
  answerRequests();
  load(item("a", "a.png"));
  EXPECT_EQ(next(), announced(1, server_.url("/a.png")));
  expectDone("pause");
  EXPECT_EQ(errorOf("sendRequest", 1), error("request 1 does not wait any more"));
  expectDone("resume");
  EXPECT_EQ(next(), announced(2, server_.url("/a.png")));
  send(2, R"({"X-Token":"2"})");
  expectLoaded("a");
  EXPECT_EQ(headerAt(server_, "/a.png"), "2");
  EXPECT_EQ(server_.requests().size(), 1u);
}

/// Whether or not the client sees the pause before it ends.
TEST_F(SessionRequestsTest, ShortPausesNeitherLoseNorRefuseARequest) {
  server_.serve("/a.png", Response::ok("a"));
  answerRequests();
  load(item("a", "a.png"));
  for (int pause = 0; pause < 200; ++pause) {
    ASSERT_EQ(session_.send(R"({"call":"pause"})"), KIVSESSION_OK);
    ASSERT_EQ(session_.send(R"({"call":"resume"})"), KIVSESSION_OK);
  }
  std::string line = next();
  int answers = 0;
  while (line.starts_with(R"({"event":"request")")) {
    EXPECT_EQ(session_.send(R"({"call":"sendRequest","request":)" + numberOf(line) + "}"),
              KIVSESSION_OK);
    ++answers;
    do
      line = next();
    while (line.starts_with(R"({"error":"request )"));
  }
  EXPECT_GT(answers, 0);
  EXPECT_THAT(line, HasSubstr(R"("event":"didLoadResource")"));
  EXPECT_EQ(server_.requests().size(), 1u);
}

TEST_F(SessionRequestsTest, SwitchedOffTheWaitingRequestsAreSentAsTheyAre) {
  server_.serve("/a.png", Response::ok("a"));
  server_.serve("/b.png", Response::ok("b"));
  answerRequests();
  load(item("a", "a.png"));
  EXPECT_EQ(next(), announced(1, server_.url("/a.png")));
  answerRequests(false);
  expectLoaded("a");
  EXPECT_EQ(errorOf("sendRequest", 1), error("request 1 does not wait any more"));
  load(item("b", "b.png"));
  expectLoaded("b");
  EXPECT_EQ(server_.requests().size(), 2u);
}

TEST_F(SessionRequestsTest, RequestsWaitWithOtherSettingsToo) {
  server_.serve("/a.png", Response::ok("a"));
  answerRequests();
  expectDone("setSettings", R"(,"settings":{"threads":1})");
  load(item("a", "a.png"));
  EXPECT_EQ(next(), announced(1, server_.url("/a.png")));
  EXPECT_EQ(answerTo(R"("call":"setSettings","settings":{"threads":2})"),
            error("settings cannot change while files are loading"));
  send(1, R"({"X-Token":"1"})");
  expectLoaded("a");
  EXPECT_EQ(headerAt(server_, "/a.png"), "1");
}

TEST_F(SessionRequestsTest, OtherSettingsEndTheRequestsOfARevalidation) {
  server_.serve("/a.png", Response::ok("a"));
  load(item("a", "a.png"));
  expectLoaded("a");
  answerRequests();
  expectDone("revalidate");
  EXPECT_EQ(next(), announced(1, server_.url("/a.png")));
  expectDone("setSettings", R"(,"settings":{"threads":1})");
  EXPECT_EQ(errorOf("sendRequest", 1), error("request 1 does not wait any more"));
  EXPECT_THAT(next(), HasSubstr(R"("event":"revalidationReport")"));
  expectDone("revalidate");
  EXPECT_EQ(next(), announced(2, server_.url("/a.png")));
  send(2);
  EXPECT_THAT(next(), HasSubstr(R"("event":"revalidationReport")"));
}

TEST_F(SessionRequestsTest, ASessionIsClosedByAnotherThreadWhileRequestsWait) {
  answerRequests();
  load(item("a", "a.png") + "," + item("b", "b.png"));
  EXPECT_EQ(next(), announced(1, server_.url("/a.png")));
  EXPECT_EQ(next(), announced(2, server_.url("/b.png")));
  std::thread([&] { EXPECT_EQ(session_.close(), KIVSESSION_OK); }).join();
  EXPECT_TRUE(server_.requests().empty());
}

// --- Secrets -------------------------------------------------------------------------------------

TEST_F(SessionRequestsTest, HeadersAreInNoLineNoLogAndNoFile) {
  static std::mutex mutex;
  static std::string log;
  kivsession_set_log(
      [](void*, const char* line) {
        const std::lock_guard lock(mutex);
        log.append(line).append("\n");
      },
      nullptr);
  const std::vector<std::string> secrets{"X-Pr1vate", "t0ken"};
  const std::string headers = R"({"X-Pr1vate":"t0ken"})";
  server_.serve("/a.png", Response::status(500));
  mirror_.serve("/a.png",
                Response::ok(std::string(100'000, 'a')).header("ETag", "\"1\"").closeAt(50'000));
  answerTo(R"("call":"reportPasses","enabled":true)");
  answerRequests();
  load(item("a", "a.png"));
  std::string all;
  std::string line;
  while (!line.starts_with(R"({"event":"passReport")")) {
    line = next();
    ASSERT_NE(line, "no line");
    all += line + "\n";
    if (!line.starts_with(R"({"event":"request")")) continue;
    const std::string call = R"("call":"sendRequest","request":)" + numberOf(line);
    all += answerTo(call + R"(,"headers":{"X-Pr1vate":"t0ken\n"})") + "\n";
    all += answerTo(call + R"(,"headers":{"X-Pr1vate":["t0ken"]})") + "\n";
    all += answerTo(call + R"(,"headers":)" + headers) + "\n";
    all += answerTo(call + R"(,"headers":)" + headers) + "\n";
  }
  EXPECT_EQ(session_.send(R"({"call":"sendRequest","headers":{"X-Pr1vate":"t0ken)"), 0);
  all += session_.receive().value_or("");
  EXPECT_EQ(server_.requests("/a.png")[0].header("X-Pr1vate"), "t0ken");
  EXPECT_EQ(mirror_.requests("/a.png")[0].header("X-Pr1vate"), "t0ken");
  expectNoSecret(secrets, all, "the lines");
  EXPECT_EQ(session_.close(), KIVSESSION_OK);
  kivsession_set_log(nullptr, nullptr);
  EXPECT_FALSE(log.empty());
  expectNoSecret(secrets, log, "the log");
  expectNoSecretOnDisk(secrets, directory_.path());
}

// --- Transfers -----------------------------------------------------------------------------------

TEST_F(SessionRequestsTest, TransfersWaitUntilTheyAreAllowed) {
  server_.serve("/a.png", Response::ok("a"));
  const auto state = [&] { return answerTo(R"("call":"state")"); };
  EXPECT_THAT(state(), HasSubstr(R"("isPaused":false,"allowsTransfers":true,)"));
  allowTransfers(false);
  expectDone("setSettings", R"(,"settings":{"threads":1})");
  load(item("a", "a.png"));
  EXPECT_THAT(state(), HasSubstr(R"("downloads":1,)"));
  EXPECT_THAT(state(), HasSubstr(R"("isPaused":false,"allowsTransfers":false,)"));
  // The other settings came with a new client, in which the first transfer would have begun.
  EXPECT_TRUE(before_.empty());
  EXPECT_TRUE(server_.requests().empty());
  allowTransfers(true);
  expectLoaded("a");
  EXPECT_THAT(state(), HasSubstr(R"("allowsTransfers":true,)"));
}

TEST_F(SessionRequestsTest, TransfersThatRunGoOn) {
  Gate gate;
  server_.serve("/a.png", Response::ok("a").after(gate));
  server_.serve("/b.png", Response::ok("b"));
  expectDone("setSettings", R"(,"settings":{"parallelTransfers":1})");
  load(item("a", "a.png") + "," + item("b", "b.png"));
  ASSERT_TRUE(server_.waitForRequests("/a.png", 1));
  allowTransfers(false);
  gate.open();
  EXPECT_THAT(next(), HasSubstr(R"("resourceID":"a")"));
  EXPECT_THAT(answerTo(R"("call":"state")"), HasSubstr(R"("downloads":1,)"));
  EXPECT_TRUE(server_.requests("/b.png").empty());
  allowTransfers(true);
  expectLoaded("b");
}

TEST_F(SessionRequestsTest, HeldTransfersAreNotAnnouncedAndCanBeStopped) {
  answerRequests();
  allowTransfers(false);
  load(item("a", "a.png"));
  expectDone("stopLoading");
  EXPECT_EQ(next(), finish);
  EXPECT_THAT(answerTo(R"("call":"state")"), HasSubstr(R"("downloads":0,)"));
  EXPECT_TRUE(before_.empty());
}

// --- The client of a configuration that is followed
// -----------------------------------------------

TEST_F(SessionRequestsTest, RequestsForAFollowedConfigurationAreAnnouncedToo) {
  server_.serve("/config.json", Response::ok("{\"items\":[" + item("a", "a.png") + "]}"));
  server_.serve("/a.png", Response::ok("a"));
  answerRequests();
  expectDone("follow", R"(,"url":")" + server_.url("/config.json") + "\"");
  EXPECT_EQ(next(), announced(1, server_.url("/config.json")));
  EXPECT_TRUE(server_.requests().empty());
  send(1, R"({"X-Token":"1"})");
  EXPECT_EQ(next(), announced(2, server_.url("/a.png")));
  send(2, R"({"X-Token":"2"})");
  expectLoaded("a");
  EXPECT_THAT(next(), StartsWith(R"({"event":"check",)"));
  EXPECT_EQ(headerAt(server_, "/config.json"), "1");
  EXPECT_EQ(headerAt(server_, "/a.png"), "2");
}

TEST_F(SessionRequestsTest, WhatIsNoLongerFollowedIsNoLongerAsked) {
  answerRequests();
  expectDone("follow", R"(,"url":")" + server_.url("/config.json") + "\"");
  EXPECT_EQ(next(), announced(1, server_.url("/config.json")));
  expectDone("follow", R"(,"url":")" + server_.url("/other.json") + "\"");
  EXPECT_EQ(errorOf("sendRequest", 1), error("request 1 does not wait any more"));
  EXPECT_EQ(next(), announced(2, server_.url("/other.json")));
  expectDone("stopFollowing");
  EXPECT_EQ(errorOf("sendRequest", 2), error("request 2 does not wait any more"));
  EXPECT_TRUE(server_.requests().empty());
}

TEST_F(SessionRequestsTest, OtherSettingsAskAboutAFollowedConfigurationAgain) {
  server_.serve("/config.json", Response::ok(R"({"items":[]})"));
  answerRequests();
  expectDone("follow", R"(,"url":")" + server_.url("/config.json") + "\"");
  EXPECT_EQ(next(), announced(1, server_.url("/config.json")));
  expectDone("setSettings", R"(,"settings":{"threads":1})");
  EXPECT_EQ(errorOf("sendRequest", 1), error("request 1 does not wait any more"));
  EXPECT_EQ(next(), announced(2, server_.url("/config.json")));
  send(2);
  EXPECT_EQ(next(), finish);
  EXPECT_THAT(next(), StartsWith(R"({"event":"check",)"));
}

TEST_F(SessionRequestsTest, AFollowedConfigurationWaitsUntilTransfersAreAllowed) {
  server_.serve("/config.json", Response::ok(R"({"items":[]})"));
  allowTransfers(false);
  expectDone("follow", R"(,"url":")" + server_.url("/config.json") + "\"");
  EXPECT_THAT(answerTo(R"("call":"state")"), HasSubstr(R"("follows":")"));
  EXPECT_TRUE(before_.empty());
  EXPECT_TRUE(server_.requests().empty());
  allowTransfers(true);
  EXPECT_EQ(next(), finish);
  EXPECT_THAT(next(), StartsWith(R"({"event":"check",)"));
}

}  // namespace
