// Runs the listing of Docs/INTEGRATION.md that fetches its configuration from a server.

#include <gtest/gtest.h>

#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/LoopbackServer.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace {

using namespace kiv::test;

TEST(UpdatingHost, LoadsWhatTheServersConfigurationNames) {
  const TemporaryDirectory directory;
  LoopbackServer server;
  server.serve("/a.png", Response::ok("a"));
  server.serve("/c.json", {Response::ok(R"({"items":[{"engine":"eco_standard","name":"n","type":"t",
      "banner_id":"1","priority":1,"updated":1,"market_url":"m","image_728x90":"a.png"}]})"),
                           Response::status(404)});
  const auto run = [&] {
    ChildProcess host(UPDATING_HOST, {directory.path("root"), server.url(), server.url("/c.json")});
    return host.waitForExit();
  };
  EXPECT_EQ(run(), 0);
  EXPECT_EQ(server.requests("/a.png").size(), 1U);
  EXPECT_EQ(run(), 1);
}

}  // namespace
