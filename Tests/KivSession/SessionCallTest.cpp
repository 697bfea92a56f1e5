// The calls of a session that other programs make, driven through the tool's command.

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "Tests/Tools/kivresource/ToolFixture.h"

namespace {

using namespace kiv::test;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::SizeIs;
using testing::StartsWith;

class SessionCallTest : public ToolFixture {
 protected:
  std::vector<std::string> linesFor(const std::vector<std::string>& calls) {
    std::string input;
    for (const auto& call : calls)
      input += call + "\n";
    auto session = runTool(general({"session", "--resources", directory_.path()}), input);
    EXPECT_EQ(session.status, 0) << session.errors;
    return session.lines;
  }
  std::string lineFor(const std::string& call) {
    const auto lines = linesFor({call});
    EXPECT_THAT(lines, SizeIs(1)) << call;
    return lines.empty() ? "" : lines.front();
  }
};

std::string load(const std::string& item, const std::string& more = "") {
  return R"({"call":"loadResourcesForConfig","config":{"items":[)" + item + "]}" + more + "}";
}

// --- Tags ----------------------------------------------------------------------------------------

TEST_F(SessionCallTest, AResultRepeatsTheTag) {
  EXPECT_EQ(lineFor(R"({"call":"allLoadedResources","tag":"a\"b"})"),
            R"({"result":"allLoadedResources","resources":[],"tag":"a\"b"})");
  EXPECT_THAT(lineFor(R"({"call":"space","tag":-7})"), EndsWith(R"(,"tag":-7})"));
  EXPECT_THAT(lineFor(R"({"tag":18446744073709551615,"call":"state"})"),
              EndsWith(R"(,"tag":18446744073709551615})"));
}

TEST_F(SessionCallTest, ACallWithoutAResultIsAnsweredIfItHasATag) {
  EXPECT_THAT(linesFor({R"({"call":"setDomains","tag":1})", R"({"call":"setDomains"})",
                        R"({"call":"sleep","ms":1,"tag":2})", R"({"call":"sleep","ms":1})"}),
              ElementsAre(R"({"result":"setDomains","tag":1})", R"({"result":"sleep","tag":2})"));
}

TEST_F(SessionCallTest, AnErrorRepeatsTheTag) {
  EXPECT_EQ(lineFor(R"({"call":"none","tag":"t"})"),
            R"({"error":"there is no call \"none\"","tag":"t"})");
  EXPECT_EQ(lineFor(R"({"tag":"t"})"), R"({"error":"\"call\" is to be a string","tag":"t"})");
  EXPECT_EQ(lineFor(R"({"call":"sleep","tag":"t"})"),
            R"({"error":"\"ms\" is to be a number of milliseconds","tag":"t"})");
  EXPECT_EQ(lineFor(R"({"call":"waitForFinish","timeout_ms":1,"tag":"t"})"),
            R"({"error":"timeout","tag":"t"})");
}

TEST_F(SessionCallTest, ATagIsAStringOrANumber) {
  for (const std::string tag : {"null", "true", "[]", "{}"}) {
    EXPECT_EQ(lineFor(R"({"call":"state","tag":)" + tag + "}"),
              R"({"error":"\"tag\" is to be a string or a number"})");
  }
}

TEST_F(SessionCallTest, TheAnswerToAPassComesBeforeItsEvents) {
  server_.serve("/a.png", Response::ok("a"));
  const auto lines = linesFor(
      {load(bannerItem("b", "a.png"), R"(,"tag":1)"), R"({"call":"waitForFinish","tag":2})"});
  ASSERT_THAT(lines, SizeIs(4));
  EXPECT_EQ(lines[0], R"({"result":"loadResourcesForConfig","tag":1})");
  EXPECT_THAT(lines[1], StartsWith(R"({"event":"didLoadResource")"));
  EXPECT_EQ(lines[2], R"({"event":"didFinishLoading"})");
  EXPECT_EQ(lines[3], R"({"result":"waitForFinish","tag":2})");
}

TEST_F(SessionCallTest, AWaitForAFinishThatHasComeIsAnsweredAtOnce) {
  EXPECT_THAT(
      linesFor({load(""), R"({"call":"sleep","ms":1})", R"({"call":"waitForFinish","tag":2})"}),
      ElementsAre(R"({"event":"didFinishLoading"})", R"({"result":"waitForFinish","tag":2})"));
}

// --- Progress ------------------------------------------------------------------------------------

TEST_F(SessionCallTest, ReportsProgressWhenItIsTold) {
  server_.serve("/a.png", Response::ok("1234567"));
  const std::vector<std::string> pass{load(bannerItem("b", "a.png")),
                                      R"({"call":"waitForFinish"})"};
  EXPECT_THAT(linesFor(pass), Not(Contains(HasSubstr("progress"))));
  server_.serve("/b.png", Response::ok("1234567"));
  const auto lines =
      linesFor({R"({"call":"reportProgress","enabled":true})", load(bannerItem("c", "b.png")),
                R"({"call":"waitForFinish"})", R"({"call":"sleep","ms":300})"});
  EXPECT_THAT(lines, Contains(StartsWith(
                         R"({"event":"progress","completedFiles":1,"files":1,"receivedBytes":7,)"
                         R"("expectedBytes":7,"runningTransfers":0,"bytesPerSecond":)")));
}

TEST_F(SessionCallTest, ReportsProgressAlsoWithOtherSettings) {
  server_.serve("/b.png", Response::ok("1234567"));
  const std::vector<std::string> pass{load(bannerItem("c", "b.png")), R"({"call":"waitForFinish"})",
                                      R"({"call":"sleep","ms":300})"};
  std::vector<std::string> calls{R"({"call":"reportProgress","enabled":true})",
                                 R"({"call":"setSettings","settings":{"threads":1}})"};
  calls.insert(calls.end(), pass.begin(), pass.end());
  EXPECT_THAT(linesFor(calls), Contains(HasSubstr(R"("progress","completedFiles":1)")));
}

TEST_F(SessionCallTest, SwitchesTakeABoolean) {
  for (const std::string call : {"reportProgress", "reportPasses"}) {
    for (const std::string member : {"", R"(,"enabled":1)", R"(,"enabled":null)"}) {
      EXPECT_EQ(lineFor(R"({"call":")" + call + "\"" + member + "}"),
                R"({"error":"\"enabled\" is to be true or false"})");
    }
  }
}

// --- Reports of passes ---------------------------------------------------------------------------

TEST_F(SessionCallTest, ReportsAPassAfterItsOtherEvents) {
  server_.serve("/a.png", Response::ok("1234567"));
  const std::vector<std::string> pass{load(bannerItem("a", "a.png"), R"(,"tag":"p")"),
                                      R"({"call":"waitForFinish"})", R"({"call":"state"})"};
  EXPECT_THAT(linesFor(pass), Not(Contains(HasSubstr("passReport"))));
  std::vector<std::string> calls{R"({"call":"reportPasses","enabled":true})"};
  calls.insert(calls.end(), pass.begin(), pass.end());
  calls.emplace_back(R"({"call":"reportPasses","enabled":false})");
  calls.push_back(load(""));
  server_.serve("/b.png", Response::ok("1234567"));
  calls[1] = load(bannerItem("b", "b.png") + ",7", R"(,"tag":"p")");
  const auto lines = linesFor(calls);
  ASSERT_THAT(lines, SizeIs(6));
  EXPECT_EQ(lines[2], R"({"event":"didFinishLoading"})");
  const std::string report = std::regex_replace(
      lines[3], std::regex(R"re("(server|duration_ms)":("[^"]*"|\d+))re"), R"("$1":N)");
  EXPECT_THAT(report,
              StartsWith(R"({"event":"passReport","passTag":"p","outcome":"done","entries":[)"
                         R"({"item":0,"resourceID":"b",)"));
  EXPECT_THAT(report, HasSubstr(R"("outcome":"added","otherVersion":null,"reason":"","error":null,)"
                                R"("files":[{"link":"b.png","outcome":"downloaded","error":null,)"
                                R"("statusCode":200,"server":N,"bytes":7,"resumedBytes":0,)"
                                R"("duration_ms":N,"tries":1,"failedTries":[]}]})"));
  EXPECT_THAT(report, HasSubstr(R"({"item":1,"resourceID":"",)"));
  EXPECT_THAT(report, EndsWith(R"("dropped":[],"bytes":7,"duration_ms":N,"saveError":null,)"
                               R"("isIncomplete":false})"));
  EXPECT_THAT(lines[4], StartsWith(R"({"result":"state")"));
  EXPECT_EQ(lines[5], R"({"event":"didFinishLoading"})") << "the last pass is not reported";
}

TEST_F(SessionCallTest, ReportsFailedTriesAndWhatAnUpdateDropped) {
  server_.serve("/a.png", Response::ok("1"));
  linesFor({load(bannerItem("a", "a.png"))});
  const auto lines = linesFor({R"({"call":"reportPasses","enabled":true})",
                               R"({"call":"updateResourcesForConfig","config":{"items":[)" +
                                   bannerItem("b", "missing.png") + "]}}"});
  ASSERT_THAT(lines, SizeIs(3));
  EXPECT_THAT(lines[2], HasSubstr(R"("passTag":null,"outcome":"done")"));
  EXPECT_THAT(lines[2], HasSubstr(R"("outcome":"failed")"));
  EXPECT_THAT(lines[2], HasSubstr(R"("failedTries":[{"server":"http://127.0.0.1:)"));
  EXPECT_THAT(lines[2], HasSubstr(R"(/missing.png","statusCode":404,"errorCode":null}])"));
  EXPECT_THAT(lines[2], HasSubstr(R"("dropped":[{"resourceID":"a",)"));
}

TEST_F(SessionCallTest, ReportsARefusedAndAStoppedPassOnceEach) {
  const auto lines =
      linesFor({R"({"call":"reportPasses","enabled":true})", R"({"call":"pause"})",
                load(bannerItem("a", "a.png"), R"(,"tag":1)"),
                load(bannerItem("b", "b.png"), R"(,"tag":2)"), R"({"call":"stopLoading"})"});
  ASSERT_THAT(lines, SizeIs(7));
  EXPECT_EQ(lines[0], R"({"result":"loadResourcesForConfig","tag":1})");
  EXPECT_EQ(lines[1], R"({"result":"loadResourcesForConfig","tag":2})");
  EXPECT_THAT(lines[2], StartsWith(R"({"event":"didFailToLoadResource")"));
  EXPECT_EQ(lines[3], R"({"event":"didFinishLoading"})");
  EXPECT_THAT(lines[4], StartsWith(R"({"event":"passReport","passTag":2,"outcome":"refused")"));
  EXPECT_EQ(lines[5], R"({"event":"didFinishLoading"})");
  EXPECT_THAT(lines[6], StartsWith(R"({"event":"passReport","passTag":1,"outcome":"stopped")"));
}

// --- Pause and bandwidth -------------------------------------------------------------------------

TEST_F(SessionCallTest, APauseHoldsThePassAndOutlivesOtherSettings) {
  server_.serve("/a.png", Response::ok("1"));
  const std::string settings = R"({"call":"setSettings","settings":{"threads":1}})";
  const auto lines =
      linesFor({R"({"call":"pause","tag":1})", settings, load(bannerItem("a", "a.png")),
                R"({"call":"state"})", R"({"call":"resume","tag":2})",
                R"({"call":"waitForFinish"})", R"({"call":"state"})"});
  ASSERT_THAT(lines, SizeIs(6));
  EXPECT_EQ(lines[0], R"({"result":"pause","tag":1})");
  EXPECT_THAT(lines[1], StartsWith(R"({"result":"state","downloads":1,)"));
  EXPECT_THAT(lines[1], EndsWith(R"("isPaused":true,"allowsTransfers":true,"follows":null})"));
  EXPECT_EQ(lines[2], R"({"result":"resume","tag":2})");
  EXPECT_THAT(lines[3], StartsWith(R"({"event":"didLoadResource")"));
  EXPECT_THAT(lines[5], EndsWith(R"("isPaused":false,"allowsTransfers":true,"follows":null})"));
}

TEST_F(SessionCallTest, ABandwidthIsASetting) {
  const auto lines =
      linesFor({R"({"call":"setBandwidth","bytesPerSecond":5000,"tag":1})",
                R"({"call":"setSettings","settings":{"threads":1}})", R"({"call":"settings"})"});
  ASSERT_THAT(lines, SizeIs(2));
  EXPECT_EQ(lines[0], R"({"result":"setBandwidth","tag":1})");
  EXPECT_THAT(lines[1], HasSubstr(R"("bandwidth":5000,)"));
  for (const std::string member : {"", R"(,"bytesPerSecond":-1)", R"(,"bytesPerSecond":"1")",
                                   R"(,"bytesPerSecond":true)", R"(,"bytesPerSecond":null)"}) {
    EXPECT_EQ(lineFor(R"({"call":"setBandwidth")" + member + "}"),
              R"({"error":"\"bytesPerSecond\" is to be a number of at least 0"})");
  }
}

// --- Maintenance ---------------------------------------------------------------------------------

TEST_F(SessionCallTest, AuditsAndCleansUp) {
  server_.serve("/a.png", Response::ok("a"));
  linesFor({load(bannerItem("b", "a.png"))});
  directory_.write("ro ot'/KivResource/Resources/orphan.png", "123");
  auto lines =
      linesFor({R"({"call":"audit"})", R"({"call":"cleanUpOrphans","dryRun":true})",
                R"({"call":"cleanUpOrphans"})", R"({"call":"cleanUpOrphans","dryRun":false})"});
  // How many bytes a file takes on the disk depends on the file system.
  for (auto& line : lines)
    line = std::regex_replace(line, std::regex(R"("size":[1-9]\d*)"), R"("size":N)");
  const std::string orphan =
      R"([{"path":")" + stored("orphan.png") + R"(","size":N,"resourceID":null}])";
  EXPECT_THAT(
      lines,
      ElementsAre(R"({"result":"audit","missing":[],"unreadable":[],"orphaned":)" + orphan +
                      R"(,"partial":[],"temporary":[],"leased":[],"downloadsAreInFlight":false,)"
                      R"("listDoubt":null})",
                  R"({"result":"cleanUpOrphans","removed":)" + orphan + R"(,"refused":[]})",
                  R"({"result":"cleanUpOrphans","removed":)" + orphan + R"(,"refused":[]})",
                  R"({"result":"cleanUpOrphans","removed":[],"refused":[]})"));
}

TEST_F(SessionCallTest, TrimsAndNotesWhatIsShown) {
  server_.serve("/a.png", Response::ok("a"));
  server_.serve("/b.png", Response::ok("b"));
  linesFor({load(bannerItem("a", "a.png")), R"({"call":"waitForFinish"})",
            load(bannerItem("b", "b.png"))});
  const auto old = std::filesystem::file_time_type::clock::now() - std::chrono::hours(48);
  for (const char* const name : {"a.png", "b.png"})
    std::filesystem::last_write_time(stored(name), old);
  linesFor({R"({"call":"noteShown","id":"a"})"});
  EXPECT_GT(std::filesystem::last_write_time(stored("a.png")), old);
  EXPECT_EQ(std::filesystem::last_write_time(stored("b.png")), old);

  auto lines = linesFor({R"({"call":"trim","bytes":0,"dryRun":true})",
                         R"({"call":"trim","bytes":1000000,"resources":"leastShown"})",
                         R"({"call":"trim","bytes":0,"resources":"leastShown","tag":1})",
                         R"({"call":"allLoadedResources"})"});
  ASSERT_THAT(lines, SizeIs(4));
  for (auto& line : lines)
    line = std::regex_replace(line, std::regex(R"re(("size|"used\w+)":\d+)re"), R"($1":N)");
  const std::string none = R"("removed":[],"resources":[],"refused":[],"listError":null,)"
                           R"("usedBefore":N,"usedAfter":N,"isBoundKept":)";
  EXPECT_EQ(lines[0], R"({"result":"trim",)" + none + "false}");
  EXPECT_EQ(lines[1], R"({"result":"trim",)" + none + "true}");
  EXPECT_THAT(lines[2], StartsWith(R"({"result":"trim","removed":[{"path":")" + stored("b.png") +
                                   R"(","size":N,"resourceID":"b"},{"path":")" + stored("a.png")));
  EXPECT_THAT(lines[2],
              HasSubstr(R"("resources":[{"resourceID":"b","updated":1},{"resourceID":"a")"));
  EXPECT_THAT(lines[2], EndsWith(R"(,"tag":1})"));
  EXPECT_EQ(lines[3], R"({"result":"allLoadedResources","resources":[]})");
}

TEST_F(SessionCallTest, ATrimWantsABoundAndAnOrderThatItKnows) {
  EXPECT_EQ(lineFor(R"({"call":"trim"})"),
            R"({"error":"\"bytes\" is to be a number of at least 0"})");
  EXPECT_EQ(lineFor(R"({"call":"trim","bytes":-1})"),
            R"({"error":"\"bytes\" is to be a number of at least 0"})");
  for (const std::string order : {R"("newest")", "1", "{}", R"("")"}) {
    EXPECT_EQ(lineFor(R"({"call":"trim","bytes":0,"resources":)" + order + "}"),
              R"({"error":"\"resources\" is to be \"oldest\" or \"leastShown\""})");
  }
  EXPECT_EQ(lineFor(R"({"call":"noteShown"})"), R"({"error":"\"id\" is to be a string"})");
}

TEST_F(SessionCallTest, ALeaseKeepsTheFileOfAReplacedVersionUntilItsEnd) {
  server_.serve("/a.png", Response::ok("a"));
  server_.serve("/b.png", Response::ok("b"));
  std::string newer = bannerItem("a", "b.png");
  newer.insert(1, R"("updated":99,)");
  const auto lines = linesFor(
      {R"({"call":"takeLease","id":"a","tag":1})", load(bannerItem("a", "a.png")),
       R"({"call":"waitForFinish"})", R"({"call":"takeLease","id":"a"})",
       R"({"call":"takeLease","id":"a"})", R"({"call":"endLease","lease":2,"tag":2})",
       R"({"call":"endLease","lease":2,"tag":3})", load(newer), R"({"call":"waitForFinish"})",
       R"({"call":"audit"})", R"({"call":"endLease","lease":1})", R"({"call":"audit"})",
       R"({"call":"takeLease","id":null})", R"({"call":"takeLease"})",
       R"({"call":"endLease","lease":-1})"});
  ASSERT_THAT(lines, SizeIs(14));
  constexpr std::string_view none = R"("no resource with that identifier is loaded")";
  EXPECT_EQ(lines[0], R"({"error":)" + std::string(none) + R"(,"tag":1})");
  EXPECT_THAT(lines[3], StartsWith(R"({"result":"takeLease","lease":1,"resource":{)"));
  EXPECT_THAT(lines[3], HasSubstr(R"(.lease/a.png")"));
  EXPECT_THAT(lines[4], StartsWith(R"({"result":"takeLease","lease":2,"resource":{)"));
  EXPECT_EQ(lines[5], R"({"result":"endLease","tag":2})");
  EXPECT_EQ(lines[6], R"({"error":"there is no lease 2","tag":3})");
  EXPECT_THAT(lines[9], HasSubstr(R"(.lease/a.png","size":)"));
  EXPECT_THAT(lines[10], HasSubstr(R"("leased":[])"));
  EXPECT_EQ(lines[11], R"({"error":)" + std::string(none) + "}");
  EXPECT_EQ(lines[12], R"({"error":"\"id\" is to be a string"})");
  EXPECT_THAT(lines[13], StartsWith(R"({"error":"\"lease\" is to be)"));
}

/// The pause keeps the first revalidation running until the second one was refused.
TEST_F(SessionCallTest, ARevalidationIsReportedAndOutlastsTheInput) {
  server_.serve("/a.png", {Response::ok("a"), Response::ok("new")});
  const auto lines = linesFor({load(bannerItem("a", "a.png")), R"({"call":"waitForFinish"})",
                               R"({"call":"pause"})", R"({"call":"revalidate","id":"a","tag":1})",
                               R"({"call":"revalidate","tag":2})",
                               R"({"call":"revalidate","id":7})", R"({"call":"resume"})"});
  ASSERT_THAT(lines, SizeIs(7));
  EXPECT_EQ(lines[2], R"({"result":"revalidate","tag":1})");
  EXPECT_EQ(lines[3], R"({"result":"revalidate","tag":2})");
  EXPECT_THAT(lines[4], StartsWith(R"({"event":"revalidationReport","revalidationTag":2,)"
                                   R"("outcome":"refused","files":[],"bytes":0,)"));
  EXPECT_THAT(lines[5], StartsWith(R"({"error":"\"id\" is to be)"));
  EXPECT_THAT(lines[6], StartsWith(R"({"event":"revalidationReport","revalidationTag":1,)"
                                   R"("outcome":"done","files":[{"path":)"));
  EXPECT_THAT(lines[6], HasSubstr(R"("link":"a.png","resourceIDs":["a"],"outcome":"replaced",)"
                                  R"("error":null,"statusCode":200,)"));
}

TEST_F(SessionCallTest, ACleanUpDuringAPassIsRefused) {
  server_.serve("/a.png", Response::ok("a").stallAt(0));
  const auto lines =
      linesFor({load(bannerItem("b", "a.png")), R"({"call":"cleanUpOrphans","tag":1})",
                R"({"call":"state"})", R"({"call":"stopLoading"})"});
  ASSERT_THAT(lines, SizeIs(3));
  EXPECT_THAT(lines[0], StartsWith(R"({"error":)"));
  EXPECT_THAT(lines[0], EndsWith(R"(,"tag":1})"));
  EXPECT_EQ(lines[1], R"({"result":"state","downloads":1,"saveError":null,"savedListError":null,)"
                      R"("isPaused":false,"allowsTransfers":true,"follows":null})");
}

TEST_F(SessionCallTest, NoEventOfAPassComesAfterAStateWithoutDownloads) {
  std::string items;
  for (int item = 0; item < 20; ++item) {
    const std::string name = std::to_string(item);
    server_.serve("/" + name + ".png", Response::ok(name));
    items += (item > 0 ? "," : "") + bannerItem(name, name + ".png");
  }
  std::vector<std::string> calls(400, R"({"call":"state"})");
  calls.insert(calls.begin(), load(items));
  calls.insert(calls.end(), {R"({"call":"waitForFinish"})", R"({"call":"state"})"});
  const auto lines = linesFor(calls);
  const auto isOver = [](const std::string& line) {
    return line.find(R"("downloads":0)") != line.npos;
  };
  const auto over = std::find_if(lines.begin(), lines.end(), isOver);
  ASSERT_NE(over, lines.end());
  EXPECT_THAT(std::vector<std::string>(over, lines.end()), Not(Contains(HasSubstr("event"))));
}

TEST_F(SessionCallTest, TheStateSaysWhyTheListCouldNotBeRead) {
  directory_.write("ro ot'/KivResource/resources_config.json", "{");
  EXPECT_THAT(lineFor(R"({"call":"state"})"), HasSubstr(R"("savedListError":{"domain":)"));
}

// --- Settings ------------------------------------------------------------------------------------

TEST_F(SessionCallTest, ChangesTheSettingsThatItNames) {
  const auto lines = linesFor({R"({"call":"setSettings","settings":{"threads":1,"proxy":"p"}})",
                               R"({"call":"setSettings","settings":{"triesPerServer":2}})",
                               R"({"call":"settings"})"});
  ASSERT_THAT(lines, SizeIs(1));
  EXPECT_THAT(lines[0], HasSubstr(R"("threads":1,)"));
  EXPECT_THAT(lines[0], HasSubstr(R"("proxy":"p",)"));
  EXPECT_THAT(lines[0], HasSubstr(R"("triesPerServer":2,)"));
  EXPECT_THAT(lines[0], HasSubstr(R"("parallelTransfers":6,)"));
}

TEST_F(SessionCallTest, SettingsThatAreNotValidChangeNothing) {
  const auto lines = linesFor({R"({"call":"setSettings","settings":{"threads":1,"http2":"no"}})",
                               R"({"call":"setSettings"})", R"({"call":"settings"})"});
  ASSERT_THAT(lines, SizeIs(3));
  EXPECT_EQ(lines[0], R"({"error":"the setting \"http2\" is to be true or false"})");
  EXPECT_EQ(lines[1], R"({"error":"\"settings\" is to be an object"})");
  EXPECT_THAT(lines[2], HasSubstr(R"("threads":2,)"));
}

TEST_F(SessionCallTest, SettingsDoNotChangeDuringAPass) {
  server_.serve("/a.png", Response::ok("a").stallAt(0));
  EXPECT_THAT(
      linesFor({load(bannerItem("b", "a.png")),
                R"({"call":"setSettings","settings":{"threads":1}})", R"({"call":"stopLoading"})"}),
      ElementsAre(R"({"error":"settings cannot change while files are loading"})",
                  R"({"event":"didFinishLoading"})"));
}

TEST_F(SessionCallTest, APassUsesTheSettings) {
  server_.serve("/a.png", Response::ok("123456"));
  EXPECT_THAT(linesFor({R"({"call":"setSettings","settings":{"largestBody":5}})",
                        load(bannerItem("b", "a.png")), R"({"call":"waitForFinish"})"}),
              Contains(HasSubstr(R"("event":"didFailToLoadResource")")));
}

// --- Configurations in files ---------------------------------------------------------------------

TEST_F(SessionCallTest, ADashIsAFileAndNotStandardInput) {
  EXPECT_EQ(lineFor(R"({"call":"loadResourcesForConfig","config":"-"})"),
            R"({"error":"-: No such file or directory"})");
}

TEST_F(SessionCallTest, APathWithAZeroByteIsNoFile) {
  EXPECT_THAT(lineFor(R"({"call":"loadResourcesForConfig","config":"/dev/null\u0000x"})"),
              HasSubstr("Invalid argument"));
}

}  // namespace
