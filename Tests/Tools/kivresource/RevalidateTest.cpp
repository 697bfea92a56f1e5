// The command revalidate.

#include <atomic>
#include <csignal>
#include <random>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KivPlatform/Foundation/values/JSON.h"
#include "Tests/Support/ReadFile.h"
#include "Tests/Support/ZipBuilder.h"
#include "Tests/Tools/kivresource/ToolFixture.h"

namespace {

using namespace kiv::test;
using testing::ElementsAre;
using testing::StartsWith;

class RevalidateTest : public ToolFixture {};

TEST_F(RevalidateTest, PrintsWhatWasReplacedAndWhatFailed) {
  server_.serve("/a.png", {Response::ok("a"), Response::ok("new"), Response::status(404)});
  server_.serve("/b.png", Response::ok("b"));
  ASSERT_EQ(
      runWith({"load", "-"}, bannerItem("a", "a.png") + "," + bannerItem("b", "b.png")).status, 0);
  auto result = run({"revalidate"});
  EXPECT_THAT(result.lines,
              ElementsAre("replaced  " + stored("a.png"), "2 files, 1 unchanged, 1 replaced"));
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(readFile(stored("a.png")), "new");
  result = run({"revalidate"});
  EXPECT_THAT(result.lines, ElementsAre(StartsWith("failed  " + stored("a.png") + ": "),
                                        "2 files, 1 unchanged, 1 failed"));
  EXPECT_EQ(result.status, 1);
}

TEST_F(RevalidateTest, SelectsAndPrintsJSON) {
  server_.serve("/a.png", Response::ok("a"));
  server_.serve("/b.png", Response::ok("b"));
  ASSERT_EQ(
      runWith({"load", "-"}, bannerItem("a", "a.png") + "," + bannerItem("b", "b.png")).status, 0);
  const auto result = run({"revalidate", "--json", "--id", "b"});
  ASSERT_EQ(result.lines.size(), 1U);
  const auto line = kiv::JSON::read(result.lines[0]);
  ASSERT_TRUE(line);
  EXPECT_EQ(line->dictionary()["event"].string(), "revalidationReport");
  ASSERT_EQ(line->dictionary()["files"].array().size(), 1U);
  EXPECT_EQ(server_.requests("/a.png").size(), 1U);
  EXPECT_EQ(run({"revalidate", "--id", "b", "--type", "t"}).status, 2);
}

TEST_F(RevalidateTest, NothingLoadedIsNoFailure) {
  const auto result = run({"revalidate"});
  EXPECT_THAT(result.lines, ElementsAre("0 files"));
  EXPECT_EQ(result.status, 0);
}

TEST_F(RevalidateTest, ASignalStopsIt) {
  const Gate gate;
  server_.serve("/a.png", {Response::ok("a"), Response::ok("new").after(gate)});
  ASSERT_EQ(runWith({"load", "-"}, bannerItem("a", "a.png")).status, 0);
  ToolProcess tool(general({"revalidate"}));
  ASSERT_TRUE(server_.waitForRequests("/a.png", 2));
  tool.sendSignal(SIGINT);
  EXPECT_THAT(tool.readLines(), ElementsAre("stopped; 1 file, 1 not ended"));
  EXPECT_EQ(tool.waitForExit(), 128 + SIGINT);
  EXPECT_EQ(readFile(stored("a.png")), "a");
  gate.open();
}

/// Each archive is served in a newer version after each round; the tool is killed at some request.
TEST_F(RevalidateTest, AKillLeavesEachArchiveWhole) {
  constexpr int archives = 12;
  constexpr int rounds = 8;
  std::atomic<int> version = 0;
  std::string items;
  for (int number = 0; number < archives; ++number) {
    const std::string name = "p" + std::to_string(number) + ".zip";
    server_.serve("/" + name, [&version](const Request&) {
      ZipBuilder zip;
      zip.addFile("index.html", std::to_string(version));
      for (int part = 0; part < 10; ++part)
        zip.addFile("part" + std::to_string(part), std::to_string(version));
      return Response::ok(zip.build());
    });
    items += (number > 0 ? "," : "") + std::string(R"({"engine":"eco_fs","name":"n","type":"t",)") +
             R"("banner_id":")" + name + R"(","priority":1,"updated":1,"html":")" + name + "\"}";
  }
  ASSERT_EQ(runWith({"load", "-"}, items).status, 0);
  std::mt19937 chance(7);
  int kills = 0;
  for (int round = 1; round <= rounds; ++round) {
    version = round;
    const std::size_t before = server_.requests().size();
    ToolProcess tool(general({"revalidate"}));
    ASSERT_TRUE(server_.waitForRequests(before + 1 + chance() % archives));
    tool.sendSignal(SIGKILL);
    kills += tool.waitForExit() == -SIGKILL ? 1 : 0;
    for (int number = 0; number < archives; ++number) {
      const std::string page = stored("p" + std::to_string(number));
      const std::string is = readFile(page + "/index.html");
      EXPECT_THAT(is, testing::MatchesRegex("[0-9]+"));
      for (int part = 0; part < 10; ++part)
        EXPECT_EQ(readFile(page + "/part" + std::to_string(part)), is) << page;
    }
  }
  EXPECT_GT(kills, 0);
  version = rounds + 1;
  EXPECT_THAT(run({"revalidate"}).lines.back(), "12 files, 12 replaced");
  EXPECT_EQ(run({"audit"}).lines.front(), "nothing is missing, orphaned or temporary");
}

}  // namespace
