// The settings that affect how a client connects.

#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "KivPlatform/KivRESTService/KivRESTService.h"
#include "Tests/KivPlatform/KivRESTService/Load.h"
#include "Tests/Support/EnvironmentProxy.h"
#include "Tests/Support/LoopbackServer.h"

namespace {

using namespace kiv::test;

class KivRESTServiceSettingsTest : public testing::Test {
 protected:
  KivRESTServiceSettings settings_ = KivRESTService::defaultSettings();
  LoopbackServer server_;
};

TEST_F(KivRESTServiceSettingsTest, AClientKeepsThem) {
  settings_.userAgent = "Host/7";
  settings_.parallelTransfers = 3;
  const KivRESTService client(settings_);
  EXPECT_EQ(client.settings().userAgent, "Host/7");
  EXPECT_EQ(client.settings().parallelTransfers, 3U);
}

TEST_F(KivRESTServiceSettingsTest, ClientsWithoutAnyHaveTheDefaultOnes) {
  const auto former = KivRESTService::defaultSettings();
  settings_.userAgent = "Host/8";
  KivRESTService::setDefaultSettings(settings_);
  {
    server_.serve("/a", Response::ok("x"));
    KivRESTService client;
    const Load load(client, server_.url("/a"));
    ASSERT_TRUE(load.waitForEnd());
    EXPECT_EQ(server_.requests().front().header("User-Agent"), "Host/8");
  }
  KivRESTService::setDefaultSettings(former);
}

TEST_F(KivRESTServiceSettingsTest, RequestsGoThroughTheProxy) {
  server_.serve("http://ads.invalid/a", Response::ok("through the proxy"));
  settings_.proxy = server_.url();
  KivRESTService client(settings_);
  const Load load(client, "http://ads.invalid/a");
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(load.body(), "through the proxy") << load.message();
}

TEST_F(KivRESTServiceSettingsTest, AnEmptyProxyIsNoneWhateverTheEnvironmentSays) {
  LoopbackServer proxy;
  server_.serve("/a", Response::ok("from the server itself"));
  const EnvironmentProxy inUse(proxy.url());
  settings_.proxy = "";
  KivRESTService client(settings_);
  const Load load(client, server_.url("/a"));
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(load.body(), "from the server itself");
  EXPECT_TRUE(proxy.requests().empty());
}

TEST_F(KivRESTServiceSettingsTest, WithoutOneTheEnvironmentNamesTheProxy) {
  server_.serve("http://ads.invalid/a", Response::ok("through the proxy"));
  const EnvironmentProxy inUse(server_.url());
  KivRESTService client(settings_);
  const Load load(client, "http://ads.invalid/a");
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(load.body(), "through the proxy") << load.message();
}

TEST_F(KivRESTServiceSettingsTest, ALimitedClientIsOutrunByOneThatIsNot) {
  server_.serve("/a", Response::ok(std::string(3'000'000, 'x')));
  settings_.bandwidth = 10'000;
  KivRESTService limited(settings_);
  const Load slow(limited, server_.url("/a"));
  KivRESTService unlimited;
  for (int count = 0; count < 10; ++count) {
    const Load load(unlimited, server_.url("/a"));
    ASSERT_TRUE(load.waitForEnd());
    EXPECT_EQ(load.body().size(), 3'000'000U);
  }
  EXPECT_FALSE(slow.hasEnded()) << slow.status() << slow.message();
  limited.cancelAllTasks();
}

TEST_F(KivRESTServiceSettingsTest, ASettingThatCannotBeSetIsNoWantOfMemory) {
  server_.serve("/a", Response::ok("x"));
  settings_.userAgent.assign(9'000'000, 'x');  // the limit of libcurl is 8,000,000 bytes
  KivRESTService client(settings_);
  const Load load(client, server_.url("/a"));
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(load.errorCode(), codeOf(KivRESTServiceErrorCode::unknown));
  EXPECT_EQ(load.message(),
            "Could not load \"" + server_.url("/a") + "\": the request could not be prepared.");
}

TEST_F(KivRESTServiceSettingsTest, ASpoolDirectoryIsNamedBeforeTheFirstTask) {
  KivRESTService client(settings_);
  client.setSpoolDirectory("/some/where");
  EXPECT_EQ(client.settings().spoolDirectory, "/some/where");
}

TEST_F(KivRESTServiceSettingsTest, CanBeReadWhileAnotherThreadNamesTheSpoolDirectory) {
  KivRESTService client(settings_);
  const std::string shortPath = "/a";
  const std::string longPath = "/a/directory/with/a/long/path/that/no/string/holds/in/place";
  client.setSpoolDirectory(shortPath);
  std::thread writer([&] {
    for (int count = 0; count < 1000; ++count)
      client.setSpoolDirectory(count % 2 == 0 ? longPath : shortPath);
  });
  for (int count = 0; count < 1000; ++count) {
    const std::string path = client.settings().spoolDirectory;
    ASSERT_TRUE(path == shortPath || path == longPath) << path;
  }
  writer.join();
}

}  // namespace
