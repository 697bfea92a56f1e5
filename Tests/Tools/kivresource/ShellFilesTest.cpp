// Compares the manual page and the shell completions with the tool's help.

#include <regex>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Tests/Support/ReadFile.h"
#include "Tests/Tools/kivresource/ToolProcess.h"

namespace {

using namespace kiv::test;

/// The file of that name in the directory share of the tool.
std::string shared(const std::string& name) {
  return readFile(KIVRESOURCE_TOOL_SHARE "/" + name);
}

std::vector<std::string> commands() {
  std::vector<std::string> names;
  bool isInList = false;
  for (const auto& line : runTool({"--help"}).lines) {
    if (line.empty()) isInList = false;
    if (isInList) names.push_back(line.substr(2, line.find(' ', 2) - 2));
    if (line == "Commands:") isInList = true;
  }
  return names;
}

/// The long options, without "--", in the help of the tool and of all commands.
std::set<std::string> options() {
  std::set<std::string> names;
  std::vector<std::vector<std::string>> helps{{"--help"}};
  for (const auto& command : commands())
    helps.push_back({command, "--help"});
  static const std::regex option("^  (-h,)?--([a-z-]+)");
  for (const auto& help : helps) {
    for (const auto& line : runTool(help).lines) {
      std::smatch match;
      if (std::regex_search(line, match, option)) names.insert(match[2]);
    }
  }
  return names;
}

TEST(ShellFilesTest, TheHelpIsRead) {
  EXPECT_EQ(commands().size(), 11U);
  EXPECT_EQ(options().size(), 18U);
}

TEST(ShellFilesTest, EveryCommandStandsInAllOfThem) {
  for (const auto& command : commands()) {
    EXPECT_NE(shared("kivresource.1").find("\n\\fB" + command + "\\fR"), std::string::npos)
        << command;
    for (const char* name : {"kivresource.bash", "kivresource.fish", "_kivresource"})
      EXPECT_NE(shared(name).find(command), std::string::npos) << command << " in " << name;
  }
}

TEST(ShellFilesTest, EveryOptionStandsInAllOfThem) {
  for (const auto& option : options()) {
    const std::string inManual = std::regex_replace("--" + option, std::regex("-"), "\\-");
    EXPECT_NE(shared("kivresource.1").find(inManual), std::string::npos) << option;
    EXPECT_NE(shared("kivresource.bash").find("--" + option), std::string::npos) << option;
    EXPECT_NE(shared("_kivresource").find("--" + option), std::string::npos) << option;
    EXPECT_NE(shared("kivresource.fish").find("-l " + option), std::string::npos) << option;
  }
}

}  // namespace
