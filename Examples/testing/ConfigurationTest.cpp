// A configuration that a server offers, with a clock that the test moves.

#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "FakeDisk.h"
#include "TestApp.h"

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* address = "https://config.test/ads.json";

class ConfigurationTest : public testing::Test {
 protected:
  ConfigurationTest() {
    start();
    app->network->serve("https://main.test/a.png", "a");
    app->network->serve("https://main.test/b.png", "b");
  }

  /// Also starts the application again, as a new process would.
  void start() {
    updater.reset();
    app.reset();
    app = std::make_unique<TestApp>(folder.path("root"));
    KivConfigurationUpdaterOptions options;
    options.interval = 1h;
    options.jitter = 0;
    options.timers = app->clock;
    options.restService = app->configNetwork;
    updater = std::make_unique<KivConfigurationUpdater>(app->manager,
                                                        *kiv::URL::fromString(address), options);
    updater->setCheckHandler([this](const KivConfigurationCheck& check) {
      checks.emplace_back(kiv::nameOf(check.outcome));
    });
  }
  /// The server offers it from now on.
  void offer(const std::string& text, const std::string& tag) {
    app->configNetwork->serve(address, text, tag);
  }
  void startWithA() {
    offer(configOf({banner("a", 1, "a.png")}), "\"1\"");
    updater->start();
    app->settle();
    EXPECT_THAT(takeChecks(), ElementsAre("updated"));
    EXPECT_THAT(app->takeDrawn(), ElementsAre("start: a"));
  }
  std::vector<std::string> takeChecks() { return std::exchange(checks, {}); }

  TemporaryFolder folder;
  FakeDisk disk;
  std::unique_ptr<TestApp> app;
  std::unique_ptr<KivConfigurationUpdater> updater;
  std::vector<std::string> checks;
};

TEST_F(ConfigurationTest, AnUnchangedConfigurationRunsNoPass) {
  startWithA();
  const std::size_t bytes = app->configNetwork->bodyBytes();
  EXPECT_EQ(app->takeCallbacks(), "1 loaded, 0 failed, 1 finished");
  app->pass(59min);
  EXPECT_THAT(takeChecks(), IsEmpty());
  app->pass(1min);
  EXPECT_THAT(takeChecks(), ElementsAre("unchanged"));
  EXPECT_EQ(app->takeCallbacks(), "0 loaded, 0 failed, 0 finished");
  EXPECT_EQ(app->configNetwork->bodyBytes(), bytes);  // 304
}

TEST_F(ConfigurationTest, AChangedConfigurationRunsAPass) {
  startWithA();
  offer(configOf({banner("b", 1, "b.png")}), "\"2\"");
  app->pass(1h);
  EXPECT_THAT(takeChecks(), ElementsAre("updated"));
  EXPECT_EQ(app->slots->shownIn("start"), "b");
  ASSERT_EQ(app->manager->allLoadedResources().size(), 1U);  // "a" is dropped
}

TEST_F(ConfigurationTest, BrokenJSONChangesNothingAndIsAskedForAgainInAMinute) {
  startWithA();
  offer("{\"items\": [", "\"2\"");
  app->pass(1h);
  EXPECT_THAT(takeChecks(), ElementsAre("failed"));
  EXPECT_EQ(app->slots->shownIn("start"), "a");
  offer(configOf({banner("b", 1, "b.png")}), "\"3\"");
  app->pass(59s);
  EXPECT_THAT(takeChecks(), IsEmpty());
  app->pass(1s);
  EXPECT_THAT(takeChecks(), ElementsAre("updated"));
  EXPECT_EQ(app->slots->shownIn("start"), "b");
}

TEST_F(ConfigurationTest, AStartWithoutNetworkTriesTheSavedConfiguration) {
  app->network->setAnswer("https://main.test/b.png", FakeNetwork::status(503));
  offer(configOf({banner("a", 1, "a.png"), banner("b", 1, "b.png", 9)}), "\"1\"");
  updater->start();
  app->settle();
  EXPECT_EQ(app->slots->shownIn("start"), "a");
  takeChecks();
  start();
  app->network->serve("https://main.test/b.png", "b");
  app->configNetwork->setAnswer(address,
                                FakeNetwork::failure(KivRESTServiceErrorCode::cannotResolveHost));
  updater->start();
  app->settle();
  EXPECT_THAT(takeChecks(), ElementsAre("failed"));
  EXPECT_EQ(app->slots->shownIn("start"), "b");  // it was missing, and has come now
}

TEST_F(ConfigurationTest, AStoppedUpdaterIsSilent) {
  app->configNetwork->setAnswer(address, {.body = configOf({}), .takes = 5s});
  updater->start();
  app->pass(4s);
  updater->stop();
  app->pass(24h);
  EXPECT_THAT(takeChecks(), IsEmpty());
  EXPECT_THAT(app->configNetwork->requests(), IsEmpty());
  EXPECT_EQ(app->clock->count(), 0U);
}

}  // namespace
