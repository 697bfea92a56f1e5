#include <csignal>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <tuple>

#include <gtest/gtest.h>

#include "Tests/KivPlatform/KivRESTService/ClientFixture.h"
#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/LoopbackServer.h"
#include "Tests/Support/NginxServer.h"
#include "Tests/Support/RangeServer.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace {

using namespace kiv::test;

class KivRESTServiceExit : public testing::TestWithParam<const char*> {};

TEST_P(KivRESTServiceExit, InTheMiddleOfDownloadsIsClean) {
  LoopbackServer server;
  const std::string bytes(1'000'000, 'x');
  server.serve("/stalls", Response::ok(bytes).stallAt(500'000));
  server.serve("/endless", Response::ok(bytes).chunked(100'000).endless());
  server.serve("/silent", Response::nothing().stallAt(0));
  std::vector<std::string> arguments{GetParam(), "", ""};
  for (int count = 0; count < 3; ++count) {
    for (const char* const path : {"/stalls", "/endless", "/silent"}) {
      arguments.push_back(server.url(path) + "?" + std::to_string(count));
    }
  }
  ChildProcess child(EXIT_DURING_DOWNLOAD, arguments);
  ASSERT_TRUE(child.hasStarted());
  ASSERT_TRUE(server.waitForRequests(6));
  child.closeInput();
  EXPECT_EQ(child.waitForExit(), 0);
  EXPECT_TRUE(server.waitForNoConnection());
}

TEST_P(KivRESTServiceExit, InTheMiddleOfASecureDownloadIsClean) {
  NginxServer server("limit_rate 50k;");
  server.addFile("file", std::string(5'000'000, 'x'));
  // The mirror, which receives a request after the secure server has responded with 404. By then
  // the TLS connections are established.
  LoopbackServer signal;
  signal.serve("/a", Response::nothing().stallAt(0));
  ChildProcess child(EXIT_DURING_DOWNLOAD,
                     {GetParam(), server.certificatePath(), "", server.secureURL("/file"),
                      server.secureURL("/missing") + "," + signal.url("/a")});
  ASSERT_TRUE(child.hasStarted());
  ASSERT_TRUE(signal.waitForRequests(1));
  child.closeInput();
  EXPECT_EQ(child.waitForExit(), 0);
}

/// The pipe that wakes a transfer thread may be missing or closed by the host.
class ExitWithoutDescriptors : public testing::TestWithParam<std::tuple<const char*, const char*>> {
};

TEST_P(ExitWithoutDescriptors, DoesNotWaitForTheTransferThreadToLook) {
  const auto [way, order] = GetParam();
  LoopbackServer server;
  server.serve("/a", Response::ok("12345"));
  server.serve("/silent", Response::nothing().stallAt(0));
  const bool isRunning = std::string_view(way) == "running";
  ChildProcess child(EXIT_WITHOUT_DESCRIPTORS,
                     {way, order, server.url(isRunning ? "/silent" : "/a")},
                     // The test deliberately closes descriptors that a thread uses.
                     {"TSAN_OPTIONS=report_bugs=0", "ASAN_OPTIONS=detect_leaks=0"});
  ASSERT_TRUE(child.hasStarted());
  ASSERT_TRUE(!isRunning || server.waitForRequests(1));
  child.closeInput();
  EXPECT_EQ(child.waitForExit(), 0);
}

// The undefined behaviour sanitizer needs descriptors for its own checks.
#ifdef __SANITIZE_ADDRESS__
const auto waysToLose = testing::Values("closed", "taken", "running");
#else
const auto waysToLose = testing::Values("few", "closed", "taken", "running");
#endif

INSTANTIATE_TEST_SUITE_P(All, ExitWithoutDescriptors,
                         testing::Combine(waysToLose, testing::Values("exit", "destroy")),
                         [](const auto& testCase) {
                           return std::string(std::get<0>(testCase.param)) + "_" +
                                  std::get<1>(testCase.param);
                         });

/// The next process resumes a body that an earlier one fetched partly.
class PartOfADeadProcess : public ClientFixture, public testing::WithParamInterface<const char*> {
 protected:
  PartOfADeadProcess() { spool(); }

  [[nodiscard]] std::uintmax_t partLength() const {
    std::error_code ignored;
    for (const auto& item :
         std::filesystem::directory_iterator(settings_.spoolDirectory, ignored)) {
      if (item.path().extension() == ".part") return item.file_size(ignored);
    }
    return 0;
  }

  const std::string body_ = patternedBytes(100'000);
};

TEST_P(PartOfADeadProcess, IsGoneOnWith) {
  server_.serve("/a", Response::ok(body_).header("ETag", "\"a\"").stallAt(60'000));
  {
    ChildProcess child(EXIT_DURING_DOWNLOAD, {"exit", "", settings_.spoolDirectory, url()});
    ASSERT_TRUE(waitUntil([&] { return partLength() == 60'000; }));
    if (std::string(GetParam()) == "killed") {
      child.sendSignal(SIGKILL);
      EXPECT_EQ(child.waitForExit(), std::nullopt);
    } else {
      child.closeInput();
      EXPECT_EQ(child.waitForExit(), 0);
    }
  }
  server_.serve("/a",
                [&](const Request& request) { return rangeResponse(request, body_, "\"a\""); });
  EXPECT_TRUE(loaded().body() == body_);
  EXPECT_EQ(server_.requests("/a").back().header("Range"), "bytes=60000-");
  endClient();
  EXPECT_TRUE(std::filesystem::is_empty(settings_.spoolDirectory));
}

INSTANTIATE_TEST_SUITE_P(All, PartOfADeadProcess, testing::Values("killed", "ended"),
                         [](const auto& testCase) { return std::string(testCase.param); });

INSTANTIATE_TEST_SUITE_P(All, KivRESTServiceExit,
                         testing::Values("return", "exit", "queue", "drain"),
                         [](const auto& testCase) { return std::string(testCase.param); });

}  // namespace
