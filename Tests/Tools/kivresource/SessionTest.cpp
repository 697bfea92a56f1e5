// The command session, driven as by another program.

#include <csignal>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "KivResource/KivResource.h"
#include "Tests/Tools/kivresource/ToolFixture.h"

namespace {

using namespace kiv::test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

constexpr const char* finish = R"({"event":"didFinishLoading"})";
constexpr const char* all = R"({"call":"allLoadedResources"})";
constexpr const char* wait = R"({"call":"waitForFinish"})";
constexpr const char* nothingLoaded = R"({"result":"allLoadedResources","resources":[]})";

std::string load(const std::string& item) {
  return R"({"call":"loadResourcesForConfig","config":{"items":[)" + item + "]}}";
}

class SessionTest : public ToolFixture {
 protected:
  std::vector<std::string> arguments() {
    return general({"session", "--resources", directory_.path()});
  }
  /// The lines that a session prints for these calls.
  std::vector<std::string> linesFor(const std::vector<std::string>& calls) {
    std::string input;
    for (const auto& call : calls)
      input += call + "\n";
    auto run = runTool(arguments(), input);
    EXPECT_EQ(run.status, 0) << run.errors;
    return run.lines;
  }
};

// --- The form of the lines -----------------------------------------------------------------------

TEST_F(SessionTest, PrintsABannerExactlyAsTheProtocolSays) {
  server_.serve("/b/wide.png", Response::ok("banner"));
  const std::string path = stored("wide.png");
  const std::string resource =
      R"({"class":"KivResourceStandard","resourceID":"b-1","name":"Name of b-1","type":"t",)"
      R"("engine":"eco_standard","uid":"undefined","priority":1,"updated":1,"filesExist":true,)"
      R"("missingFilesLinks":[],"useFilePaths":[")" +
      path +
      R"("],"resourceDictionary":{"engine":"eco_standard","name":"Name of b-1","type":"t",)"
      R"("banner_id":"b-1","priority":1,"updated":1,"market_url":"m","image_728x90":")" +
      path + R"("},"marketLink":"m","image":")" + path +
      R"(","fileIsLoaded":true,"requiredImageField":"image_728x90"})";
  EXPECT_THAT(linesFor({load(bannerItem("b-1", "b/wide.png")), wait, all}),
              ElementsAre(R"({"event":"didLoadResource","resource":)" + resource + "}", finish,
                          R"({"result":"allLoadedResources","resources":[)" + resource + "]}"));
}

TEST_F(SessionTest, PrintsAVideoThatFailedWithItsErrorAndNullForWhatIsNotThere) {
  server_.serve("/v.mp4", Response::ok("video"));
  const std::string path = stored("v.mp4");
  const auto lines = linesFor(
      {load(
           R"({"engine":"eco_video","name":"N","type":"t","banner_id":"v","priority":1,"updated":1,)"
           R"("title":"T","market_url":"m","image":"i.png","video_file_landscape":"v.mp4",)"
           R"("votes":18446744073709551615,"rating":4.7})"),
       wait});
  ASSERT_THAT(lines, SizeIs(2));
  EXPECT_THAT(lines[0], StartsWith(R"({"event":"didFailToLoadResource","resource":)"
                                   R"({"class":"KivResourceVideo","resourceID":"v")"));
  EXPECT_THAT(
      lines[0],
      testing::EndsWith(R"(,"requiredVideoField":"video_file_landscape"},"error":)"
                        R"({"domain":"kiv.KivResource.KivResourceRESTModule","code":102,"message":)"
                        R"("Error load file \"i.png\" with invalid response status code 404."}})"));
  EXPECT_THAT(lines[0], HasSubstr(R"("title":"T","marketLink":"m","icon":null,"video":)"));
  EXPECT_THAT(lines[0],
              HasSubstr(R"("votes":18446744073709551615,"rating":4.699999809265137,"fileLinks":)"));
  EXPECT_EQ(lines[1], finish);
}

TEST_F(SessionTest, PrintsAPageAndAResourceWithoutFiles) {
  server_.serve("/p.html", Response::ok("page"));
  const auto lines = linesFor(
      {load(R"({"engine":"other","name":"ä\n\"","type":"t","banner_id":"x","banner_uid":"u",)"
            R"("priority":1,"updated":1},{"engine":"eco_fs","name":"N","type":"t","banner_id":"p",)"
            R"("priority":1,"updated":1,"html":"p.html"})"),
       wait});
  ASSERT_THAT(lines, SizeIs(3));
  EXPECT_EQ(lines[0],
            R"({"event":"didLoadResource","resource":{"class":"KivResource","resourceID":"x",)"
            R"("name":"ä\n\"","type":"t","engine":"other","uid":"u","priority":1,"updated":1,)"
            R"("filesExist":true,"missingFilesLinks":[],"useFilePaths":[],"resourceDictionary":)"
            R"({"engine":"other","name":"ä\n\"","type":"t","banner_id":"x","banner_uid":"u",)"
            R"("priority":1,"updated":1}}})");
  EXPECT_THAT(lines[1],
              testing::EndsWith(R"(,"html":")" + stored("p.html") + R"(","fileIsLoaded":true}})"));
}

TEST_F(SessionTest, KeepsIntegersExact) {
  const auto lines = linesFor({load(
      R"({"engine":"e","name":"N","type":"t","banner_id":"x","priority":18446744073709551615,)"
      R"("updated":9007199254740993,"low":-9223372036854775808,"list":[1,2.5,true,null,{}]})")});
  ASSERT_THAT(lines, SizeIs(2));
  EXPECT_THAT(lines[0],
              HasSubstr(R"("priority":18446744073709551615,"updated":9007199254740993,"filesEx)"));
  EXPECT_THAT(lines[0], HasSubstr(R"("priority":18446744073709551615,"updated":9007199254740993,)"
                                  R"("low":-9223372036854775808,"list":[1,2.5,true,null,{}]}})"));
}

TEST_F(SessionTest, LogsToStandardErrorAlone) {
  const auto run = runTool(arguments(), load(R"({"engine":7})"));
  EXPECT_THAT(run.lines, ElementsAre(finish));
  EXPECT_THAT(run.errors, HasSubstr("Cached resources were loaded."));
  EXPECT_THAT(run.errors, HasSubstr("Create resource error. Resource dictionary:"));
}

// --- Calls ---------------------------------------------------------------------------------------

TEST_F(SessionTest, SelectsByIdentifierAndType) {
  const std::string items =
      R"({"items":[{"engine":"e","name":"N","type":"s","banner_id":"1","priority":1,"updated":1},)"
      R"({"engine":"e","name":"N","type":"t","banner_id":"2","priority":1,"updated":1}]}})";
  EXPECT_THAT(
      linesFor({R"({"call":"loadResourceWithID","id":"2","config":)" + items,
                R"({"call":"loadedResourcesWithID","id":"1"})",
                R"({"call":"loadResourcesWithType","type":"s","config":)" + items,
                R"({"call":"loadedResourcesWithID","id":"2"})",
                R"({"call":"loadedResourcesWithType","type":"none"})",
                R"({"call":"loadedResourcesWithType","type":"s"})"}),
      ElementsAre(HasSubstr(R"("resourceID":"2")"), finish,
                  R"({"result":"loadedResourcesWithID","resources":[]})",
                  HasSubstr(R"("resourceID":"1")"), finish,
                  StartsWith(R"({"result":"loadedResourcesWithID","resources":[{"class")"),
                  R"({"result":"loadedResourcesWithType","resources":[]})",
                  StartsWith(R"({"result":"loadedResourcesWithType","resources":[{"class")")));
}

TEST_F(SessionTest, UpdatesFromAFileAndDropsTheRest) {
  const std::string path = directory_.write(
      "second.json",
      R"({"items":[{"engine":"e","name":"N","type":"t","banner_id":"2","priority":1,"updated":1}]})");
  const auto lines = linesFor(
      {load(R"({"engine":"e","name":"N","type":"t","banner_id":"1","priority":1,"updated":1})"),
       R"({"call":"updateResourcesForConfig","config":")" + path + R"("})", all});
  ASSERT_THAT(lines, SizeIs(5));
  EXPECT_THAT(lines[4], HasSubstr(R"("resources":[{"class":"KivResource","resourceID":"2")"));
  EXPECT_THAT(lines[4], testing::Not(HasSubstr(R"("resourceID":"1")")));
}

TEST_F(SessionTest, RefusesASecondPassWhileDownloadsAreInFlight) {
  Gate gate;
  server_.serve("/slow.png", Response::ok("slow").after(gate));
  ToolProcess session(arguments());
  session.writeLine(load(bannerItem("slow", "slow.png")));
  ASSERT_TRUE(server_.waitForRequests("/slow.png", 1));
  session.writeLine(load(bannerItem("other", "other.png")));
  EXPECT_THAT(session.readLine().value_or(""),
              testing::EndsWith(R"("error":{"domain":"kiv.KivResource","code":100,"message":)"
                                R"("Resource download was canceled because the download queue is )"
                                R"(busy."}})"));
  EXPECT_EQ(session.readLine(), finish);
  gate.open();
  EXPECT_THAT(session.readLine().value_or(""), StartsWith(R"({"event":"didLoadResource")"));
  EXPECT_EQ(session.readLine(), finish);
}

TEST_F(SessionTest, StopsLoading) {
  server_.serve("/slow.png", Response::ok("slow").stallAt(1));
  ToolProcess session(arguments());
  session.writeLine(load(bannerItem("slow", "slow.png")));
  ASSERT_TRUE(server_.waitForRequests("/slow.png", 1));
  session.writeLine(R"({"call":"stopLoading"})");
  session.closeInput();
  EXPECT_THAT(session.readLines(), ElementsAre(finish));
  EXPECT_EQ(session.waitForExit(), 0);
}

TEST_F(SessionTest, ChangesTheServers) {
  LoopbackServer reserve;
  reserve.serve("/a.png", Response::ok("a"));
  const auto lines =
      linesFor({R"({"call":"setDomains","main":null})", load(bannerItem("a", "a.png")), wait,
                R"({"call":"setDomains","main":")" + server_.url() + R"(","reserve":")" +
                    reserve.url() + R"("})",
                load(bannerItem("a", "a.png")), wait});
  // Two finish events: one of the download that failed at once, one of the pass.
  ASSERT_THAT(lines, SizeIs(5));
  EXPECT_THAT(lines[0], HasSubstr(R"("code":101,"message":"Create request error."}})"));
  EXPECT_THAT(lines[3], StartsWith(R"({"event":"didLoadResource")"));
  EXPECT_THAT(server_.requests("/a.png"), SizeIs(1));
  EXPECT_THAT(reserve.requests("/a.png"), SizeIs(1));
}

TEST_F(SessionTest, LeavesTheServerThatIsNotNamed) {
  server_.serve("/a.png", Response::ok("a"));
  EXPECT_THAT(linesFor({R"({"call":"setDomains","reserve":null})", load(bannerItem("a", "a.png"))}),
              ElementsAre(StartsWith(R"({"event":"didLoadResource")"), finish));
}

// --- Invalid lines -------------------------------------------------------------------------------

class BadLineTest : public SessionTest, public testing::WithParamInterface<const char*> {};

TEST_P(BadLineTest, IsAnErrorAndTheSessionGoesOn) {
  const auto lines = linesFor({GetParam(), all});
  ASSERT_THAT(lines, SizeIs(2)) << GetParam();
  EXPECT_THAT(lines[0], testing::AllOf(StartsWith(R"({"error":")"), testing::EndsWith("\"}")));
  EXPECT_TRUE(kiv::JSON::read(kiv::Data(lines[0]))) << lines[0];
  EXPECT_EQ(lines[1], nothingLoaded);
}

INSTANTIATE_TEST_SUITE_P(
    Lines, BadLineTest,
    testing::Values(
        "", " ", "nonsense", "{", "[]", "7", "null", "{}", R"({"call":7})", R"({"call":null})",
        R"({"call":""})", R"({"call":"format"})", R"({"call":"AllLoadedResources"})",
        R"({"call":"loadResourcesForConfig"})", R"({"call":"loadResourcesForConfig","config":7})",
        R"({"call":"loadResourcesForConfig","config":[]})",
        R"({"call":"loadResourcesForConfig","config":"no/such/file"})",
        R"({"call":"loadResourcesForConfig","config":"."})",
        R"({"call":"loadResourcesForConfig","config":"/dev/null"})",
        R"({"call":"updateResourcesForConfig"})", R"({"call":"loadResourceWithID","config":{}})",
        R"({"call":"loadResourceWithID","id":7,"config":{}})",
        R"({"call":"loadResourceWithID","id":"7"})",
        R"({"call":"loadResourcesWithType","config":{}})", R"({"call":"loadedResourcesWithID"})",
        R"({"call":"loadedResourcesWithType"})", R"({"call":"waitForFinish","timeout_ms":"1"})",
        R"({"call":"waitForFinish","timeout_ms":-1})", R"({"call":"sleep"})",
        R"({"call":"sleep","ms":true})", R"({"call":"setDomains","main":7})",
        "{\"call\":\"allLoaded\xff\"}", "\xff\xfe", R"({"call":"stopLoading"} {})"));

TEST_F(SessionTest, ABadServerChangesNeither) {
  server_.serve("/a.png", Response::ok("a"));
  EXPECT_THAT(
      linesFor({R"({"call":"setDomains","main":"http://127.0.0.1:9","reserve":7})",
                load(bannerItem("a", "a.png"))}),
      ElementsAre(StartsWith(R"({"error":)"), StartsWith(R"({"event":"didLoadResource")"), finish));
}

TEST_F(SessionTest, TakesALastLineWithoutItsEndAndCarriageReturns) {
  const auto run = runTool(arguments(), std::string(all) + "\r\n" + all);
  EXPECT_THAT(run.lines, ElementsAre(nothingLoaded, nothingLoaded));
}

TEST_F(SessionTest, EndsAtOnceWithoutInput) {
  EXPECT_THAT(linesFor({}), IsEmpty());
}

// --- Waiting -------------------------------------------------------------------------------------

TEST_F(SessionTest, WaitForFinishReadsNoFurtherCallUntilTheFinish) {
  Gate gate;
  server_.serve("/a.png", Response::ok("a").after(gate));
  ToolProcess session(arguments());
  session.writeLine(load(bannerItem("a", "a.png")));
  session.writeLine(wait);
  session.writeLine(all);
  ASSERT_TRUE(server_.waitForRequests("/a.png", 1));
  gate.open();
  EXPECT_THAT(session.readLine().value_or(""), StartsWith(R"({"event":"didLoadResource")"));
  EXPECT_EQ(session.readLine(), finish);
  EXPECT_THAT(session.readLine().value_or(""),
              StartsWith(R"({"result":"allLoadedResources","resources":[{)"));
}

TEST_F(SessionTest, EachWaitUsesOneFinish) {
  const std::string stop = R"({"call":"stopLoading"})";
  const std::string shortWait = R"({"call":"waitForFinish","timeout_ms":1})";
  EXPECT_THAT(linesFor({stop, stop, wait, wait, all, shortWait, all}),
              ElementsAre(finish, finish, nothingLoaded, R"({"error":"timeout"})", nothingLoaded));
}

TEST_F(SessionTest, AWaitThatTimedOutHasUsedNoFinish) {
  EXPECT_THAT(linesFor({R"({"call":"waitForFinish","timeout_ms":0})", R"({"call":"stopLoading"})",
                        wait, all}),
              ElementsAre(R"({"error":"timeout"})", finish, nothingLoaded));
}

TEST_F(SessionTest, PrintsWhatCallsBroughtBeforeTheNextCallsAnswer) {
  const std::string item =
      R"({"engine":"e","name":"N","type":"t","banner_id":"1","priority":1,"updated":1})";
  EXPECT_THAT(linesFor({load(item), all, load(item), all}),
              ElementsAre(StartsWith(R"({"event":"didLoad)"), finish, StartsWith(R"({"result")"),
                          StartsWith(R"({"event":"didLoad)"), finish, StartsWith(R"({"result")")));
}

TEST_F(SessionTest, SleepsBetweenCallsWhileDownloadsGoOn) {
  Gate gate;
  server_.serve("/a.png", Response::ok("a").after(gate));
  ToolProcess session(arguments());
  session.writeLine(load(bannerItem("a", "a.png")));
  session.writeLine(R"({"call":"sleep","ms":3600000})");
  session.writeLine(all);
  ASSERT_TRUE(server_.waitForRequests("/a.png", 1));
  gate.open();
  EXPECT_THAT(session.readLine().value_or(""), StartsWith(R"({"event":"didLoadResource")"));
  EXPECT_EQ(session.readLine(), finish);
  session.sendSignal(SIGTERM);
  EXPECT_THAT(session.readLines(), ElementsAre(finish));  // from stopping; no call was read
  EXPECT_EQ(session.waitForExit(), 143);
}

TEST_F(SessionTest, GoesOnAfterItsSleep) {
  EXPECT_THAT(linesFor({R"({"call":"sleep","ms":1})", all}), ElementsAre(nothingLoaded));
}

// --- End of a session ----------------------------------------------------------------------------

TEST_F(SessionTest, WaitsAtTheEndOfInputForDownloadsInFlight) {
  Gate gate;
  server_.serve("/a.png", Response::ok("a").after(gate));
  ToolProcess session(arguments());
  session.writeLine(load(bannerItem("a", "a.png")));
  session.closeInput();
  ASSERT_TRUE(server_.waitForRequests("/a.png", 1));
  gate.open();
  EXPECT_THAT(session.readLines(),
              ElementsAre(StartsWith(R"({"event":"didLoadResource")"), finish));
  EXPECT_EQ(session.waitForExit(), 0);
}

TEST_F(SessionTest, RefusesAtTheEndOfInputTheRequestsThatNobodyCanAnswer) {
  server_.serve("/a.png", Response::ok("a"));
  const std::string answer = R"({"call":"answerRequests","enabled":true})";
  for (const auto& more : {std::vector<std::string>{}, {wait}}) {
    std::vector<std::string> calls{answer, load(bannerItem("a", "a.png"))};
    calls.insert(calls.end(), more.begin(), more.end());
    const auto lines = linesFor(calls);
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines.back(), finish);
    EXPECT_THAT(lines[lines.size() - 2], StartsWith(R"({"event":"didFailToLoadResource")"));
  }
  EXPECT_THAT(server_.requests(), IsEmpty());
}

TEST_F(SessionTest, AnswersTheRequestsOfItsInputBeforeItsEnd) {
  server_.serve("/a.png", Response::ok("a"));
  ToolProcess session(arguments());
  session.writeLine(R"({"call":"answerRequests","enabled":true})");
  session.writeLine(load(bannerItem("a", "a.png")));
  EXPECT_THAT(session.readLine().value_or(""), StartsWith(R"({"event":"request","request":1,)"));
  session.writeLine(R"({"call":"sendRequest","request":1,"headers":{"X-Token":"1"}})");
  session.closeInput();
  EXPECT_THAT(session.readLines(),
              ElementsAre(StartsWith(R"({"event":"didLoadResource")"), finish));
  EXPECT_EQ(session.waitForExit(), 0);
  EXPECT_EQ(server_.requests("/a.png").at(0).header("X-Token"), "1");
}

TEST_F(SessionTest, StopsAtTheEndOfInputWhatNobodyCanLetGoOn) {
  const std::string item = bannerItem("a", "a.png");
  for (const std::string hold :
       {R"({"call":"allowTransfers","enabled":false})", R"({"call":"pause"})"}) {
    EXPECT_THAT(linesFor({hold, load(item)}), ElementsAre(finish)) << hold;
    EXPECT_THAT(linesFor({hold, load(item), R"({"call":"sleep","ms":1})"}), ElementsAre(finish));
    EXPECT_THAT(linesFor({hold}), IsEmpty());
  }
  EXPECT_THAT(server_.requests(), IsEmpty());
}

TEST_F(SessionTest, CtrlCStopsThePassAndKeepsWhatIsComplete) {
  server_.serve("/whole.png", Response::ok("whole"));
  server_.serve("/slow.png", Response::ok("slow").stallAt(1));
  ToolProcess session(arguments());
  session.writeLine(load(bannerItem("whole", "whole.png") + "," + bannerItem("slow", "slow.png")));
  EXPECT_THAT(session.readLine().value_or(""), HasSubstr(R"("resourceID":"whole")"));
  ASSERT_TRUE(server_.waitForRequests("/slow.png", 1));
  session.sendSignal(SIGINT);
  EXPECT_THAT(session.readLines(), ElementsAre(finish));
  EXPECT_EQ(session.waitForExit(), 130);
  EXPECT_THAT(linesFor({all}), ElementsAre(HasSubstr(R"("resourceID":"whole")")));
}

TEST_F(SessionTest, ReadsOnWhileNobodyReadsItsAnswers) {
  constexpr std::size_t calls = 20'000;
  std::string input;
  for (std::size_t call = 0; call < calls; ++call)
    input.append(all).append("\n");
  EXPECT_THAT(runTool(arguments(), input).lines, SizeIs(calls));
}

}  // namespace
