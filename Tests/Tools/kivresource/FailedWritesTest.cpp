// The tool fails if it cannot write the saved list or its own output.

#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Tests/Tools/kivresource/ToolFixture.h"

namespace {

namespace fs = std::filesystem;

using namespace kiv::test;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

constexpr const char* complaint = "kivresource: the list could not be saved: ";

std::string call(const std::string& name, const std::string& file) {
  return R"({"call":")" + name + R"(","config":)" + configOf(bannerItem(file, file)) + "}\n";
}

class FailedWritesTest : public ToolFixture {
 protected:
  FailedWritesTest() {
    for (const char* name : {"/a.png", "/b.png"})
      server_.serve(name, Response::ok("bytes"));
  }
  /// Creates a directory at the path of the saved list, so that writing it fails even for root.
  void takeTheName() const { fs::create_directories(list() + "/taken"); }
};

// --- The saved list ------------------------------------------------------------------------------

TEST_F(FailedWritesTest, ALoadWhoseListIsNotSavedIsStatus1) {
  takeTheName();
  const auto load = runWith({"load", "-"}, bannerItem("a.png", "a.png"));
  EXPECT_EQ(load.status, 1);
  EXPECT_THAT(load.lines, ElementsAre("loaded  a.png  Name of a.png", "1 resource loaded"));
  EXPECT_THAT(load.errors, HasSubstr(complaint));
}

TEST_F(FailedWritesTest, SoItIsInJSON) {
  takeTheName();
  const auto load = runWith({"load", "-", "--json"}, bannerItem("a.png", "a.png"));
  EXPECT_EQ(load.status, 1);
  EXPECT_THAT(load.lines, SizeIs(2));
  EXPECT_THAT(load.errors, HasSubstr(complaint));
}

TEST_F(FailedWritesTest, AnUpdateWhoseListIsNotSavedIsStatus1) {
  EXPECT_EQ(runWith({"load", "-"}, bannerItem("a.png", "a.png")).status, 0);
  fs::remove(list());
  takeTheName();
  const auto update = runWith({"update", "-"}, bannerItem("b.png", "b.png"));
  EXPECT_EQ(update.status, 1);
  EXPECT_THAT(update.errors, HasSubstr(complaint));
}

TEST_F(FailedWritesTest, CommandsThatSaveNothingDoNotMind) {
  takeTheName();
  EXPECT_EQ(run({"list"}).status, 0);
  EXPECT_EQ(runWith({"load", "-"}, "").status, 0);
}

TEST_F(FailedWritesTest, ASessionTellsOfAListThatIsNotSavedOnce) {
  takeTheName();
  const auto session =
      run({"session"}, call("loadResourcesForConfig", "a.png") + R"({"call":"waitForFinish"})" +
                           "\n" + call("loadResourcesForConfig", "b.png"));
  EXPECT_EQ(session.status, 1);
  EXPECT_THAT(session.lines,
              ElementsAre(HasSubstr("didLoadResource"), HasSubstr("didFinishLoading"),
                          StartsWith(R"({"error":"the list could not be saved: )"),
                          HasSubstr("didLoadResource"), HasSubstr("didFinishLoading")));
}

TEST_F(FailedWritesTest, ASessionWhoseListIsSavedAfterAllIsStatus0) {
  takeTheName();
  ToolProcess session(general({"session"}));
  session.write(call("loadResourcesForConfig", "a.png"));
  EXPECT_THAT(session.readLine().value_or(""), HasSubstr("didLoadResource"));
  EXPECT_THAT(session.readLine().value_or(""), HasSubstr("didFinishLoading"));
  EXPECT_THAT(session.readLine().value_or(""), HasSubstr("could not be saved"));
  fs::remove_all(list());
  session.write(call("loadResourcesForConfig", "b.png"));
  session.closeInput();
  EXPECT_THAT(session.readLines(), Not(Contains(HasSubstr("could not be saved"))));
  EXPECT_EQ(session.waitForExit(), 0);
  EXPECT_EQ(run({"list"}).lines.back(), "2 resources");
}

// --- Standard output -----------------------------------------------------------------------------

TEST_F(FailedWritesTest, OutputThatFindsNoRoomIsStatus1) {
  const std::string page = directory_.path("page.html");
  const std::vector<std::vector<std::string>> commands{{"load", "-"},       {"load", "-", "--json"},
                                                       {"update", "-"},     {"list"},
                                                       {"list", "--json"},  {"audit"},
                                                       {"audit", "--json"}, {"clean"},
                                                       {"clean", "--json"}, {"gallery", page},
                                                       {"session"},         {"--version"},
                                                       {"--help"},          {"load", "--help"},
                                                       {"serve", "."}};
  for (const auto& command : commands) {
    const std::string input = command[0] == "session" ? R"({"call":"allLoadedResources"})"
                                                      : configOf(bannerItem("a.png", "a.png"));
    const auto full = runTool(command[0] == "serve" ? command : general(command), input, {},
                              withRedirections(">/dev/full"));
    EXPECT_EQ(full.status, 1) << command[0];
    EXPECT_THAT(full.errors, EndsWith("kivresource: standard output could not be written\n"));
  }
}

TEST_F(FailedWritesTest, AnEarlierFailureKeepsItsStatus) {
  EXPECT_EQ(runTool({"bogus"}, {}, {}, withRedirections(">/dev/full")).status, 2);
}

TEST_F(FailedWritesTest, OutputThatCannotBeWrittenToIsStatus1) {
  const std::string file = directory_.write("readable");
  const auto list = runTool(general({"list"}), {}, {}, withRedirections(">&- 1<" + file));
  EXPECT_EQ(list.status, 1);
  EXPECT_THAT(list.errors, HasSubstr("kivresource: standard output could not be written"));
}

}  // namespace
