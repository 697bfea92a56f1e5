// The output of the tool on a terminal.

#include <array>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/LoopbackServer.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace {

using kiv::test::LoopbackServer;
using kiv::test::Response;
using testing::HasSubstr;
using testing::Not;

/// Runs the tool with standard output and standard error on a new pseudoterminal, and returns its
/// output.
std::string onTerminal(const std::string& arguments, const std::string& variables) {
  const int terminal = posix_openpt(O_RDWR | O_NOCTTY);
  std::array<char, 128> name{};
  if (terminal < 0 || grantpt(terminal) != 0 || unlockpt(terminal) != 0 ||
      ptsname_r(terminal, name.data(), name.size()) != 0) {
    ADD_FAILURE() << "there is no terminal to be had";
    return {};
  }
  kiv::test::ChildProcess shell(
      "sh", {"-c", "exec env -u NO_COLOR TERM=xterm " + variables + " '" KIVRESOURCE_TOOL "' " +
                       arguments + " >" + name.data() + " 2>&1"});
  std::string seen;
  std::array<char, 4096> piece{};
  // Keep the slave side open: the output may be discarded when its last descriptor is closed.
  const int other = open(name.data(), O_RDWR | O_NOCTTY);
  EXPECT_EQ(shell.waitForExit().value_or(-1), 0);
  fcntl(terminal, F_SETFL, O_NONBLOCK);
  for (ssize_t length = 0; (length = read(terminal, piece.data(), piece.size())) > 0;)
    seen.append(piece.data(), static_cast<std::size_t>(length));
  close(other);
  close(terminal);
  return seen;
}

class TerminalTest : public testing::Test {
 protected:
  std::string load(const std::string& variables = {}) {
    server_.serve("/a.png", Response::ok("a"));
    const std::string config = directory_.write(
        "config.json",
        R"({"items":[{"engine":"eco_standard","name":"N","type":"t","banner_id":"a","priority":1,)"
        R"("updated":1,"market_url":"m","image_728x90":"a.png"}]})");
    return onTerminal(
        "load " + config + " --root " + directory_.path("root") + " --main " + server_.url(),
        variables);
  }

  const kiv::test::TemporaryDirectory directory_;
  LoopbackServer server_;
};

TEST_F(TerminalTest, HasColoursAndABarAndNoLog) {
  const std::string seen = load();
  EXPECT_THAT(seen, HasSubstr("\033[32mloaded\033[0m  a  N"));
  EXPECT_THAT(seen, HasSubstr("/1 file"));
  EXPECT_THAT(seen, HasSubstr("1 resource loaded"));
  EXPECT_THAT(seen, Not(HasSubstr("KivResourceManager (")));
}

TEST_F(TerminalTest, HasNoColoursWhereTheyAreNotWanted) {
  const std::string seen = load("NO_COLOR=1");
  EXPECT_THAT(seen, HasSubstr("loaded  a  N"));
  EXPECT_THAT(seen, HasSubstr("/1 file"));
  EXPECT_THAT(seen, Not(HasSubstr("\033[3")));
}

TEST_F(TerminalTest, HasNeitherColoursNorABarWhereTheTerminalCannotShowThem) {
  const std::string seen = load("TERM=dumb");
  EXPECT_THAT(seen, HasSubstr("loaded  a  N"));
  EXPECT_THAT(seen, Not(HasSubstr("\033")));
  EXPECT_THAT(seen, Not(HasSubstr("/1 file")));
}

}  // namespace
