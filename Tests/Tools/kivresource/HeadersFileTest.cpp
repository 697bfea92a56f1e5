// The option --headers: who gets the headers, and that nobody else sees them.

#include <csignal>
#include <string>
#include <sys/stat.h>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Tests/Support/Secrets.h"
#include "Tests/Tools/kivresource/ToolFixture.h"

namespace {

using namespace kiv::test;
using testing::IsEmpty;
using testing::StartsWith;

const std::string usual = "X-Pr1vate: t0ken\n";
const std::vector<std::string> secrets{"X-Pr1vate", "t0ken"};

class HeadersFileTest : public ToolFixture {
 protected:
  [[nodiscard]] std::string file(const std::string& text = usual) const {
    return directory_.write("headers", text);
  }
  [[nodiscard]] ToolRun load(const std::string& headers) const {
    return runWith({"load", "-", "--headers", headers}, bannerItem("a", "a.png"));
  }
  void expectWrong(const std::string& text, const std::string& complaint) const {
    const auto path = file(text);
    const auto wrong = load(path);
    EXPECT_EQ(wrong.status, 2) << text;
    EXPECT_THAT(wrong.lines, IsEmpty());
    EXPECT_EQ(wrong.errors, "kivresource: " + path + ": " + complaint + "\n");
    expectNoSecret(secrets, wrong.errors, "the error");
    EXPECT_THAT(server_.requests(), IsEmpty());
  }
  static void expectToken(const LoopbackServer& server, const std::string& path) {
    const auto requests = server.requests(path);
    ASSERT_FALSE(requests.empty()) << path;
    for (const Request& request : requests)
      EXPECT_EQ(request.header("X-Pr1vate"), "t0ken") << path;
  }
};

TEST_F(HeadersFileTest, MainAndReserveServerGetThemAndTheTargetOfARedirectDoesNot) {
  LoopbackServer reserve;
  LoopbackServer other;
  server_.serve("/a.png", Response::redirect(302, "/here.png"));
  server_.serve("/here.png", Response::status(404));
  reserve.serve("/a.png", Response::redirect(307, other.url("/there.png")));
  other.serve("/there.png", Response::ok("a"));
  for (const std::string command : {"load", "update"}) {
    const auto run = runWith({command, "-", "--headers", file(), "--reserve", reserve.url()},
                             bannerItem("a", "a.png"));
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(run.errors.find("t0ken"), std::string::npos);
  }
  expectToken(server_, "/a.png");
  expectToken(server_, "/here.png");
  expectToken(reserve, "/a.png");
  ASSERT_EQ(other.requests().size(), 1U);
  EXPECT_EQ(other.requests()[0].header("X-Pr1vate"), std::nullopt);
}

TEST_F(HeadersFileTest, TheOriginIsThatOfTheServerAndNotOfItsPathOrUser) {
  server_.serve("/files/a.png", Response::ok("a"));
  const auto run =
      runTool({"load", "-", "--headers", file(), "--root", root(), "--main", server_.url("/files")},
              configOf(bannerItem("a", "a.png")));
  EXPECT_EQ(run.status, 0) << run.errors;
  expectToken(server_, "/files/a.png");
}

TEST_F(HeadersFileTest, NoOutputAndNoFileHoldsThem) {
  LoopbackServer reserve;
  server_.serve("/a.png", Response::status(500));
  server_.serve("/b.png", Response::ok("b"));
  reserve.serve("/a.png", Response::status(401));
  for (const std::string form : {"--verbose", "--json"}) {
    const auto run =
        runWith({"load", "-", "--headers", file(), "--reserve", reserve.url(), "--verbose", form},
                bannerItem("a", "a.png") + "," + bannerItem("b", "b.png"));
    EXPECT_EQ(run.status, 1);
    for (const auto& line : run.lines)
      expectNoSecret(secrets, line, "the output");
    expectNoSecret(secrets, run.errors, "the errors");
  }
  expectToken(server_, "/a.png");
  expectToken(reserve, "/a.png");
  expectToken(server_, "/b.png");
  expectNoSecretOnDisk(secrets, root());
}

TEST_F(HeadersFileTest, ARevalidationHasThem) {
  server_.serve("/a.png", Response::ok("a").header("ETag", "\"1\""));
  ASSERT_EQ(runWith({"load", "-"}, bannerItem("a", "a.png")).status, 0);
  const auto run = ToolFixture::run({"revalidate", "--headers", file()});
  EXPECT_EQ(run.status, 0) << run.errors;
  const auto requests = server_.requests("/a.png");
  ASSERT_EQ(requests.size(), 2U);
  EXPECT_EQ(requests[0].header("X-Pr1vate"), std::nullopt);
  EXPECT_EQ(requests[1].header("X-Pr1vate"), "t0ken");
}

TEST_F(HeadersFileTest, AWatchHasThemForTheConfigurationToo) {
  LoopbackServer configurations;
  LoopbackServer mirror;
  configurations.serve("/c.json", Response::status(404));
  mirror.serve("/c.json", Response::ok(configOf(bannerItem("a", "a.png"))));
  server_.serve("/a.png", Response::ok("a"));
  ToolProcess tool(general({"watch", configurations.url("/c.json"), "--mirror",
                            mirror.url("/c.json"), "--headers", file()}));
  EXPECT_EQ(tool.readLine().value_or(tool.errors()), "loaded  a  Name of a");
  EXPECT_THAT(tool.readLine().value_or(""), StartsWith("updated: 1 resource loaded"));
  tool.sendSignal(SIGTERM);
  EXPECT_EQ(tool.waitForExit(), 128 + SIGTERM);
  expectToken(configurations, "/c.json");
  expectToken(server_, "/a.png");
  ASSERT_EQ(mirror.requests().size(), 1U);
  EXPECT_EQ(mirror.requests()[0].header("X-Pr1vate"), std::nullopt);
}

TEST_F(HeadersFileTest, BlankLinesAndRemarksAreIgnoredAndBlanksTrimmed) {
  server_.serve("/a.png", Response::ok("a"));
  const auto run =
      load(file("\n# X-Remark: r\n  \t\r\n  # more\nX-Pr1vate:t0ken \r\n"
                "X-Url:  http://a b:1 \nX-Empty:\nX-Last: l"));
  EXPECT_EQ(run.status, 0) << run.errors;
  ASSERT_EQ(server_.requests().size(), 1U);
  const Request request = server_.requests()[0];
  EXPECT_EQ(request.header("X-Pr1vate"), "t0ken");
  EXPECT_EQ(request.header("X-Url"), "http://a b:1");
  EXPECT_EQ(request.header("X-Empty:"), "") << "the server of the tests expects a space there";
  EXPECT_EQ(request.header("X-Last"), "l");
  EXPECT_EQ(request.header("X-Remark"), std::nullopt);
}

TEST_F(HeadersFileTest, AFileWithoutHeadersAddsNone) {
  server_.serve("/a.png", Response::ok("a"));
  EXPECT_EQ(load(file("")).status, 0);
  EXPECT_EQ(server_.requests().size(), 1U);
}

TEST_F(HeadersFileTest, TheFileMayBeAPipe) {
  server_.serve("/a.png", Response::ok("a"));
  const auto path = directory_.path("pipe");
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  const std::string config = directory_.write("c.json", configOf(bannerItem("a", "a.png")));
  ToolProcess tool(general({"load", config, "--headers", path}));
  directory_.write("pipe", usual);
  tool.readLines();
  EXPECT_EQ(tool.waitForExit(), 0) << tool.errors();
  expectToken(server_, "/a.png");
}

TEST_F(HeadersFileTest, AFileThatCannotBeReadIsWrongUsage) {
  for (const auto& [path, why] : std::vector<std::pair<std::string, std::string>>{
           {directory_.path("absent"), "No such file or directory"},
           {directory_.path(), "Is a directory"},
           {"", "No such file or directory"},
           {"/dev/zero", "too large for a file of headers"}}) {
    const auto wrong = load(path);
    EXPECT_EQ(wrong.status, 2);
    EXPECT_EQ(wrong.errors, "kivresource: " + path + ": " + why + "\n");
  }
  EXPECT_EQ(run({"watch", server_.url("/c.json"), "--headers", "absent"}).status, 2);
  EXPECT_EQ(run({"revalidate", "--headers", "absent"}).status, 2);
  EXPECT_EQ(run({"list", "--headers", file()}).status, 2) << "it is no option of list";
  EXPECT_THAT(server_.requests(), IsEmpty());
}

TEST_F(HeadersFileTest, AWrongLineIsToldByItsNumber) {
  const std::string wrong = " is not \"Name: value\", or no header that may be added";
  for (const std::string line :
       {"t0ken", ": t0ken", "X-Pr1vate : t0ken", "Host: t0ken", "range:t0ken",
        "X-Pr1vate: t0\x01ken", "X Pr1vate: t0ken", "\xef\xbb\xbfX-Pr1vate: t0ken"}) {
    expectWrong("# first\nX-Good: g\n\n" + line + "\nX-Good: g\n", "line 4" + wrong);
  }
  expectWrong("X-Pr1vate: t0ken" + std::string(1, '\0') + "\n", "line 1" + wrong);
  expectWrong("X-Pr1vate: " + std::string(40'000, 't') + "\n", "line 1" + wrong);
}

TEST_F(HeadersFileTest, TooManyHeadersAreWrong) {
  std::string text;
  for (int header = 0; header < 33; ++header)
    text += "X-Pr1vate: t0ken\n";
  expectWrong(text, "more than 32 headers, or more than 32 KiB");
}

}  // namespace
