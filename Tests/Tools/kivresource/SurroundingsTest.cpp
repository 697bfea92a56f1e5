// Unusual conditions at start: closed standard descriptors, and a limit on threads.

#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Tests/Tools/kivresource/ToolFixture.h"

namespace {

using namespace kiv::test;
using testing::HasSubstr;
using testing::IsEmpty;

class SurroundingsTest : public ToolFixture {
 protected:
  SurroundingsTest() {
    server_.serve("/a.png", Response::ok("a"));
    config_ = directory_.write("config.json", configOf(bannerItem("a", "a.png")));
  }

  std::string config_;
};

// --- Descriptors ---------------------------------------------------------------------------------

class ClosedDescriptorsTest : public SurroundingsTest,
                              public testing::WithParamInterface<const char*> {};

TEST_P(ClosedDescriptorsTest, LoadCompletesAsIfTheyWereOpen) {
  const auto load = runTool(general({"load", config_}), {}, {}, withRedirections(GetParam()));
  EXPECT_EQ(load.status, 0) << load.errors;
  EXPECT_EQ(run({"list"}).lines.back(), "1 resource");
}

TEST_P(ClosedDescriptorsTest, SessionEndsWithItsInput) {
  const auto session =
      runTool(general({"session"}), R"({"call":"stopLoading"})", {}, withRedirections(GetParam()));
  EXPECT_EQ(session.status, 0) << session.errors;
}

/// Output for a closed descriptor must not go to a file that was opened with the same number.
TEST_P(ClosedDescriptorsTest, NothingIsWrittenIntoAFile) {
  const std::string page = directory_.path("gallery.html");
  EXPECT_EQ(runTool(general({"gallery", page}), {}, {}, withRedirections(GetParam())).status, 0);
  const std::string usual = directory_.path("usual.html");
  EXPECT_EQ(run({"gallery", usual}).status, 0);
  EXPECT_EQ(std::filesystem::file_size(page), std::filesystem::file_size(usual));
}

INSTANTIATE_TEST_SUITE_P(Descriptors, ClosedDescriptorsTest,
                         testing::Values("<&-", ">&-", "2>&-", "<&- >&-", "<&- 2>&-", ">&- 2>&-",
                                         "<&- >&- 2>&-"));

// --- Threads -------------------------------------------------------------------------------------

class FewThreadsTest : public SurroundingsTest {
 protected:
  /// The environment in which a program can create at most that many threads.
  static std::vector<std::string> only(int threads) {
    // AddressSanitizer must be the first library, which LD_PRELOAD prevents.
    return {"FEW_THREADS=" + std::to_string(threads), "LD_PRELOAD=" FEW_THREADS,
            "ASAN_OPTIONS=verify_asan_link_order=0"};
  }
};

TEST_F(FewThreadsTest, LoadEndsWithAMessage) {
  const auto load = runTool(general({"load", config_}), {}, only(0));
  EXPECT_EQ(load.status, 1);
  EXPECT_THAT(load.lines, IsEmpty());
  EXPECT_THAT(load.errors, HasSubstr(": Resource temporarily unavailable\n"));
}

TEST_F(FewThreadsTest, LoadFailsWhereOnlyItsDownloadsHaveNone) {
  const auto load = runTool(general({"load", config_}), {}, only(1));
  EXPECT_EQ(load.status, 1);
  EXPECT_EQ(load.lines.back(), "0 resources loaded, 1 failed");
}

TEST_F(FewThreadsTest, LoadNeedsTwo) {
  EXPECT_EQ(runTool(general({"load", config_}), {}, only(2)).status, 0);
}

TEST_F(FewThreadsTest, SessionEndsWithAMessage) {
  for (const int threads : {0, 1}) {
    const auto session = runTool(general({"session"}), {}, only(threads));
    EXPECT_EQ(session.status, 1) << threads;
    EXPECT_THAT(session.errors, HasSubstr(": Resource temporarily unavailable\n"));
  }
}

TEST_F(FewThreadsTest, ServeEndsWithAMessage) {
  for (const int threads : {0, 1, 2, 5, 9}) {
    const auto serve = runTool({"serve", directory_.path()}, {}, only(threads));
    EXPECT_EQ(serve.status, 1) << threads;
    EXPECT_THAT(serve.lines, IsEmpty());
    EXPECT_THAT(serve.errors, HasSubstr(": Resource temporarily unavailable\n"));
  }
}

TEST_F(FewThreadsTest, CommandsThatNeedNoneDoWithoutAny) {
  for (const char* command : {"list", "audit", "clean"}) {
    EXPECT_EQ(runTool(general({command}), {}, only(0)).status, 0) << command;
  }
}

}  // namespace
