// The command watch. Its checks follow each other without a wait of the test: the shortest interval
// is a second.

#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KivPlatform/Foundation/values/JSON.h"
#include "Tests/Tools/kivresource/ToolFixture.h"

namespace {

using namespace kiv::test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class WatchTest : public ToolFixture {
 protected:
  [[nodiscard]] std::vector<std::string> watching(std::vector<std::string> more = {}) const {
    std::vector<std::string> arguments{"watch", server_.url("/c.json")};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return general(arguments);
  }

  /// The next lines of the tool.
  static std::vector<std::string> lines(ToolProcess& tool, std::size_t count) {
    std::vector<std::string> lines;
    while (lines.size() < count) {
      auto line = tool.readLine();
      if (!line) break;
      lines.push_back(*std::move(line));
    }
    return lines;
  }

  static void expectStop(ToolProcess& tool, int signal) {
    tool.sendSignal(signal);
    EXPECT_THAT(tool.readLines(), IsEmpty());
    EXPECT_EQ(tool.waitForExit(), 128 + signal) << tool.errors();
  }

  static Response configuration(const std::string& items, const std::string& tag) {
    return Response::ok(configOf(items)).header("ETag", tag);
  }
};

TEST_F(WatchTest, LoadsLooksAgainAndStops) {
  server_.serve("/a.png", Response::ok("a"));
  server_.serve("/b.png", Response::ok("b"));
  server_.serve("/c.json", {configuration(bannerItem("a", "a.png"), "\"1\""), Response::status(304),
                            configuration(bannerItem("b", "b.png"), "\"2\"")});
  ToolProcess tool(watching({"--interval", "1"}));
  EXPECT_THAT(lines(tool, 5),
              ElementsAre("loaded  a  Name of a", "updated: 1 resource loaded", "unchanged",
                          "loaded  b  Name of b", "updated: 1 resource loaded, 1 dropped"))
      << tool.errors();
  tool.sendSignal(SIGTERM);
  tool.readLines();
  EXPECT_EQ(tool.waitForExit(), 128 + SIGTERM);
  EXPECT_EQ(server_.requests("/c.json")[1].header("If-None-Match"), "\"1\"");
  EXPECT_THAT(run({"list"}).lines,
              ElementsAre("b  t  Name of b", "    " + stored("b.png"), "1 resource"));
}

TEST_F(WatchTest, FailuresAreShownAndRepeated) {
  server_.serve("/a.png", {Response::status(404), Response::ok("a")});
  server_.serve("/c.json",
                {configuration(bannerItem("a", "a.png") + ",{}", "\"1\""), Response::status(304)});
  ToolProcess tool(watching({"--interval", "1"}));
  const auto first = lines(tool, 3);
  ASSERT_EQ(first.size(), 3U) << tool.errors();
  EXPECT_THAT(first[0], StartsWith("failed  a  Name of a: " + server_.url("/a.png")));
  EXPECT_THAT(first[1], StartsWith("failed  item 2: "));
  EXPECT_EQ(first[2], "updated: 0 resources loaded, 2 failed");
  EXPECT_THAT(lines(tool, 3), ElementsAre("loaded  a  Name of a", StartsWith("failed  item 2: "),
                                          "repeated: 1 resource loaded, 1 failed"));
}

TEST_F(WatchTest, StartsWithoutANetworkFromTheSavedConfiguration) {
  server_.serve("/a.png", {Response::status(404), Response::ok("a")});
  server_.serve("/c.json",
                {configuration(bannerItem("a", "a.png"), "\"1\""), Response::status(404)});
  {
    ToolProcess tool(watching());
    EXPECT_EQ(lines(tool, 2).back(), "updated: 0 resources loaded, 1 failed");
    expectStop(tool, SIGINT);
  }
  ToolProcess tool(watching());
  EXPECT_THAT(lines(tool, 3),
              ElementsAre("loaded  a  Name of a",
                          "failed  " + server_.url("/c.json") +
                              ": The server of the configuration answered with status 404.",
                          "failed; with the saved configuration: 1 resource loaded"));
  expectStop(tool, SIGTERM);
}

TEST_F(WatchTest, AMirrorIsAsked) {
  LoopbackServer mirror;
  server_.serve("/c.json", Response::status(404));
  mirror.serve("/c.json", configuration("", "\"1\""));
  ToolProcess tool(
      watching({"--mirror", mirror.url("/none.json"), "--mirror", mirror.url("/c.json")}));
  EXPECT_THAT(lines(tool, 1), ElementsAre("updated: 0 resources loaded")) << tool.errors();
  expectStop(tool, SIGINT);
}

TEST_F(WatchTest, AnHTMLPageIsAFailureAndWhatIsLoadedStays) {
  server_.serve("/a.png", Response::ok("a"));
  server_.serve("/c.json",
                {configuration(bannerItem("a", "a.png"), "\"1\""), Response::ok("<html></html>")});
  ToolProcess tool(watching({"--interval", "1"}));
  EXPECT_EQ(lines(tool, 2).back(), "updated: 1 resource loaded");
  const auto bad = lines(tool, 2);
  ASSERT_EQ(bad.size(), 2U) << tool.errors();
  EXPECT_THAT(bad[0], StartsWith("failed  " + server_.url("/c.json") + ": "));
  EXPECT_EQ(bad[1], "failed");
  EXPECT_TRUE(std::filesystem::exists(stored("a.png")));
}

TEST_F(WatchTest, PrintsJSON) {
  server_.serve("/a.png", Response::ok("a"));
  server_.serve("/c.json",
                {configuration(bannerItem("a", "a.png"), "\"1\""), Response::status(500)});
  ToolProcess tool(watching({"--json", "--interval", "1"}));
  std::vector<kiv::Dictionary> printed;
  for (const auto& line : lines(tool, 5)) {
    const auto value = kiv::JSON::read(line);
    ASSERT_TRUE(value) << line;
    printed.push_back(value->dictionary());
  }
  ASSERT_EQ(printed.size(), 5U) << tool.errors();
  EXPECT_EQ(printed[0]["event"].string(), "didLoadResource");
  EXPECT_EQ(printed[1]["event"].string(), "didFinishLoading");
  EXPECT_EQ(printed[2]["event"].string(), "passReport");
  EXPECT_EQ(printed[3]["event"].string(), "didCheckConfiguration");
  EXPECT_EQ(printed[3]["outcome"].string(), "updated");
  EXPECT_EQ(printed[3]["status"].unsignedInteger(), 200U);
  EXPECT_TRUE(printed[3]["error"].isNull());
  EXPECT_GE(printed[3]["nextCheck_ms"].unsignedInteger(), 1000U);
  EXPECT_EQ(printed[4]["outcome"].string(), "failed");
  EXPECT_EQ(printed[4]["status"].unsignedInteger(), 500U);
  EXPECT_EQ(printed[4]["error"].dictionary()["domain"].string(), "kiv.KivConfiguration");
}

TEST_F(WatchTest, ASignalEndsARunningPass) {
  const Gate gate;
  server_.serve("/a.png", Response::ok("a").after(gate));
  server_.serve("/c.json", configuration(bannerItem("a", "a.png"), "\"1\""));
  ToolProcess tool(watching());
  ASSERT_TRUE(server_.waitForRequests("/a.png", 1));
  expectStop(tool, SIGINT);
}

TEST_F(WatchTest, ASignalEndsARunningRequest) {
  const Gate gate;
  server_.serve("/c.json", Response::ok("{}").after(gate));
  ToolProcess tool(watching());
  ASSERT_TRUE(server_.waitForRequests(1));
  expectStop(tool, SIGTERM);
}

TEST_F(WatchTest, WrongUsageIsToldAtOnce) {
  const std::vector<std::vector<std::string>> wrong{
      {"watch"},
      {"watch", "c.json"},
      {"watch", "file:///c.json"},
      {"watch", "http://"},
      {"watch", "http://127.0.0.1/a b"},
      {"watch", server_.url("/c.json"), "--mirror", "c.json"},
      {"watch", server_.url("/c.json"), "--interval", "0"},
      {"watch", server_.url("/c.json"), "--interval", "-1"},
      {"watch", server_.url("/c.json"), "--interval", "soon"},
      {"watch", server_.url("/c.json"), "--interval", "99999999999"}};
  for (const auto& arguments : wrong) {
    const auto refused = run(arguments);
    EXPECT_EQ(refused.status, 2) << arguments.back();
    EXPECT_THAT(refused.lines, IsEmpty());
    EXPECT_THAT(refused.errors, StartsWith("kivresource: ")) << arguments.back();
  }
  EXPECT_TRUE(server_.requests().empty());
  EXPECT_FALSE(std::filesystem::exists(root()));
}

TEST_F(WatchTest, AConfigurationThatCannotBeSavedIsComplainedOf) {
  server_.serve("/c.json", configuration("", "\"1\""));
  std::filesystem::create_directories(root() + "/KivResource/last_configuration");
  ToolProcess tool(watching());
  EXPECT_THAT(lines(tool, 1), ElementsAre("updated: 0 resources loaded"));
  expectStop(tool, SIGINT);
  EXPECT_THAT(tool.errors(), HasSubstr("kivresource: the configuration could not be saved: "));
}

}  // namespace
