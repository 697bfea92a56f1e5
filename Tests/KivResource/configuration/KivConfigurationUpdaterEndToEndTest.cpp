// The updater with its real client, against servers on the loopback interface.

#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KivResource/configuration/KivConfigurationUpdater.h"
#include "KivResource/maintenance/KivResourceMaintenance.h"
#include "Tests/KivResource/RealClientFixture.h"
#include "Tests/Support/ManualTimers.h"

namespace kiv::test {
namespace {

using namespace std::chrono_literals;

class KivConfigurationUpdaterEndToEnd : public RealClientFixture {
 protected:
  KivConfigurationUpdaterEndToEnd() {
    options.jitter = 0;
    options.timers = timers;
    // With the short waits of tests.
    options.restService = std::make_shared<KivRESTService>();
  }
  ~KivConfigurationUpdaterEndToEnd() override { updater.reset(); }

  void start() {
    updater.reset();
    updater = std::make_unique<KivConfigurationUpdater>(
        manager, *URL::fromString(server.url("/c.json")), options);
    updater->setCheckHandler([this](const auto& check) { checks.push_back(check); });
    updater->start();
  }

  /// Waits for the end of the next check.
  std::string next() {
    const bool hasCome = waitUntil([&] { return !checks.empty(); });
    if (!hasCome) return "nothing";
    last = checks.front();
    checks.erase(checks.begin());
    return std::string(kiv::nameOf(last.outcome));
  }

  static std::string text(std::initializer_list<Dictionary> items) {
    return JSON::toCompactString(config(items));
  }

  const std::shared_ptr<ManualTimers> timers = std::make_shared<ManualTimers>();
  KivConfigurationUpdaterOptions options;
  std::unique_ptr<KivConfigurationUpdater> updater;
  std::vector<KivConfigurationCheck> checks;
  KivConfigurationCheck last;
};

TEST_F(KivConfigurationUpdaterEndToEnd, LoadsAsksForChangesAndFetchesWhatWasMissing) {
  server.serve("/x/a.png", {Response::status(404), Response::ok("a")});
  server.serve("/c.json", [](const Request& request) {
    if (request.header("If-None-Match") == "\"1\"") return Response::status(304);
    return Response::ok(text({banner("a", 1, "x/a.png")})).header("ETag", "\"1\"");
  });
  start();
  EXPECT_EQ(next(), "updated");
  EXPECT_EQ(last.server->absoluteString(), server.url("/c.json"));
  EXPECT_EQ(last.report->count(KivResourcePassEntryOutcome::failed), 1U);
  timers->advance(1h);
  EXPECT_EQ(next(), "repeated");
  EXPECT_EQ(last.statusCode, 304);
  EXPECT_EQ(read(stored("a.png")), "a");
  timers->advance(1h);
  EXPECT_EQ(next(), "unchanged");
  EXPECT_EQ(server.requests("/c.json").size(), 3U);
  EXPECT_EQ(server.requests("/x/a.png").size(), 2U);
}

TEST_F(KivConfigurationUpdaterEndToEnd, AMirrorHelpsAndIsNotAskedAboutTheValidatorsOfTheServer) {
  LoopbackServer mirror;
  mirror.serve("/c.json", Response::ok(text({plain("a", 1)})).header("ETag", "\"1\""));
  server.serve("/c.json", {Response::ok(text({plain("a", 1)})).header("ETag", "\"1\""),
                           Response::status(503)});
  options.mirrors = {*URL::fromString(mirror.url("/c.json"))};
  start();
  EXPECT_EQ(next(), "updated");
  timers->advance(1h);
  EXPECT_EQ(next(), "unchanged");  // by its bytes
  EXPECT_EQ(last.statusCode, 200);
  EXPECT_EQ(last.server->absoluteString(), mirror.url("/c.json"));
  EXPECT_FALSE(mirror.requests().front().header("If-None-Match"));
}

TEST_F(KivConfigurationUpdaterEndToEnd, AnEndlessBodyIsCutOffAtTheLimit) {
  options.restService = nullptr;
  options.largestConfiguration = 100'000;
  server.serve("/c.json", Response::ok(std::string(10'000, ' ')).chunked().endless());
  start();
  EXPECT_EQ(next(), "failed");
  EXPECT_EQ(last.error->code, static_cast<int>(KivRESTServiceErrorCode::bodyTooLarge));
}

TEST_F(KivConfigurationUpdaterEndToEnd, StopLoadingDoesNotCancelACheck) {
  const Gate gate;
  server.serve("/c.json", Response::ok(text({plain("a", 1)})).after(gate));
  start();
  ASSERT_TRUE(server.waitForRequests(1));
  manager->stopLoading();
  gate.open();
  EXPECT_EQ(next(), "updated");
}

TEST_F(KivConfigurationUpdaterEndToEnd, APausedClientContinuesTheCheck) {
  server.serve("/c.json", Response::ok(text({plain("a", 1)})));
  options.restService->pause();
  start();
  EXPECT_TRUE(server.requests().empty());
  updater->restService()->resume();
  EXPECT_EQ(next(), "updated");
}

TEST_F(KivConfigurationUpdaterEndToEnd, TheEndDuringARequestIsClean) {
  const Gate gate;
  server.serve("/c.json", Response::ok(text({plain("a", 1)})).after(gate));
  options.restService = nullptr;
  start();
  ASSERT_TRUE(server.waitForRequests(1));
  updater.reset();
  gate.open();
  ASSERT_TRUE(server.waitForNoConnection());
  takeEvents();
  EXPECT_TRUE(checks.empty());
  EXPECT_TRUE(registry().empty());
}

TEST_F(KivConfigurationUpdaterEndToEnd, WorksOnAQueueOfItsOwn) {
  server.serve("/c.json", {Response::ok(text({plain("a", 1)})).header("ETag", "\"1\""),
                           Response::status(304)});
  const auto queue = DispatchQueue::serial("resources");
  std::shared_ptr<KivResourceManager> own;
  std::unique_ptr<KivConfigurationUpdater> onQueue;
  std::vector<std::string> outcomes;
  const auto url = *URL::fromString(server.url("/c.json"));
  Gate ended;
  ASSERT_TRUE(queue->sync([&] {
    own = KivResourceManager::newInstance();
    KivConfigurationUpdaterOptions quick;
    quick.interval = 1s;
    quick.jitter = 0;
    onQueue = std::make_unique<KivConfigurationUpdater>(own, url, quick);
    onQueue->setCheckHandler([&](const auto& check) {
      EXPECT_EQ(DispatchQueue::current(), queue);
      outcomes.emplace_back(kiv::nameOf(check.outcome));
      if (outcomes.size() < 2) return;
      onQueue->stop();  // before a third one
      ended.open();
    });
    onQueue->start();
  }));
  EXPECT_TRUE(ended.wait(std::stop_token()));  // the second one by the system's timer
  ASSERT_TRUE(queue->sync([&] {
    onQueue.reset();
    own.reset();
  }));
  EXPECT_EQ(outcomes, (std::vector<std::string>{"updated", "unchanged"}));
}

}  // namespace
}  // namespace kiv::test
