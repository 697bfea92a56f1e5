#include <string>

#include <gtest/gtest.h>

#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/LoopbackServer.h"
#include "Tests/Support/NginxServer.h"

namespace {

using namespace kiv::test;

class KivRESTServiceExit : public testing::TestWithParam<const char*> {};

TEST_P(KivRESTServiceExit, InTheMiddleOfDownloadsIsClean) {
  LoopbackServer server;
  const std::string bytes(1'000'000, 'x');
  server.serve("/stalls", Response::ok(bytes).stallAt(500'000));
  server.serve("/endless", Response::ok(bytes).chunked(100'000).endless());
  server.serve("/silent", Response::nothing().stallAt(0));
  std::vector<std::string> arguments{GetParam(), ""};
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
  ASSERT_TRUE(server.isRunning());
  server.addFile("file", std::string(5'000'000, 'x'));
  // Asked when the secure server has answered that it has no such file: the secure connections
  // stand by then.
  LoopbackServer signal;
  signal.serve("/a", Response::nothing().stallAt(0));
  ChildProcess child(EXIT_DURING_DOWNLOAD,
                     {GetParam(), server.certificatePath(), server.secureURL("/file"),
                      server.secureURL("/missing") + "," + signal.url("/a")});
  ASSERT_TRUE(child.hasStarted());
  ASSERT_TRUE(signal.waitForRequests(1));
  child.closeInput();
  EXPECT_EQ(child.waitForExit(), 0);
}

INSTANTIATE_TEST_SUITE_P(All, KivRESTServiceExit,
                         testing::Values("return", "exit", "queue", "drain"),
                         [](const auto& testCase) { return std::string(testCase.param); });

}  // namespace
