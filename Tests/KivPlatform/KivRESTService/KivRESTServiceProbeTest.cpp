// Unreachable servers: a single probe at a time checks for all transfers whether a server is back.

#include <numeric>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Tests/KivPlatform/KivRESTService/ClientFixture.h"
#include "Tests/Support/FakeHostName.h"

namespace {

using namespace kiv::test;
using Answer = FakeHostName::Answer;
using Code = KivRESTServiceErrorCode;

int triesOf(const std::vector<Load>& loads) {
  return std::accumulate(loads.begin(), loads.end(), 0, [](int sum, const Load& load) {
    return sum + load.task()->metrics().tries;
  });
}

// --- Servers that accept no connections ----------------------------------------------------------

class KivRESTServiceSwallowed : public ClientFixture {
 protected:
  KivRESTServiceSwallowed() {
    settings_.threads = 1;
    settings_.connectTimeout = std::chrono::milliseconds(300);
  }

  /// Expects that each ended with a time-out of the server that accepts no connections.
  void expectTimeOuts(const std::vector<Load>& loads) const {
    expectErrors(loads, Code::timedOut);
    for (const auto& load : loads)
      EXPECT_NE(load.message().find(swallowed()), std::string::npos) << load.message();
  }
  [[nodiscard]] std::string swallowed() const { return unreachable_.url("/a"); }

  const UnreachableServer unreachable_;
};

TEST_F(KivRESTServiceSwallowed, OneProbeDecidesForManyFiles) {
  const auto loads = makeLoads(client(), swallowed(), 18);
  expectTimeOuts(loads);
  EXPECT_EQ(triesOf(loads), 6 + 1) << "six that did not know, and the probe";
}

TEST_F(KivRESTServiceSwallowed, OneFileAloneIsTriedTwice) {
  const Load load = loaded(swallowed());
  EXPECT_EQ(load.errorCode(), codeOf(Code::timedOut)) << load.message();
  EXPECT_EQ(load.task()->metrics().tries, 2);
}

TEST_F(KivRESTServiceSwallowed, TheMirrorIsAskedForTheOthersAtOnce) {
  mirror_.serve("/a", Response::ok("of the mirror"));
  const auto loads = makeLoads(client(), {swallowed(), mirror_.url("/a")}, 18);
  expectBodies(loads, "of the mirror");
  EXPECT_EQ(triesOf(loads), 6 + 18);
}

TEST_F(KivRESTServiceSwallowed, WhereTheMirrorDoesSoTooEachIsProbedOnce) {
  const UnreachableServer mirror;
  const auto loads = makeLoads(client(), {swallowed(), mirror.url("/a")}, 18);
  expectTimeOuts(loads);
  EXPECT_EQ(triesOf(loads), 6 + 6 + 1 + 1);
}

TEST_F(KivRESTServiceSwallowed, FilesThatComeLaterWaitForOneProbe) {
  ASSERT_TRUE(loaded(swallowed()).hasEnded());
  const auto loads = makeLoads(client(), swallowed(), 18);
  expectTimeOuts(loads);
  EXPECT_EQ(triesOf(loads), 1);
}

TEST_F(KivRESTServiceSwallowed, AnotherServersFilesComeMeanwhile) {
  LoopbackServer other;
  other.serve("/a", Response::ok("other"));
  settings_.connectTimeout = std::chrono::hours(1);
  settings_.parallelTransfersPerHost = 3;
  const auto waiting = makeLoads(client(), swallowed(), 18);
  const auto loads = makeLoads(client(), other.url("/a"), 18);
  expectBodies(loads, "other");
  client().cancelAllTasks();
}

// --- Probes --------------------------------------------------------------------------------------

/// A server whose name could not be resolved, so that the next attempt is a probe.
class KivRESTServiceProbe : public ClientFixture {
 protected:
  KivRESTServiceProbe() {
    settings_.threads = 1;
    settings_.connectTimeout = std::chrono::hours(1);
    server_.serve("/a", Response::ok("body"));
    mirror_.serve("/a", Response::ok("of the mirror"));
  }

  /// Makes the client mark the server as unreachable. `next` is the result of later lookups.
  void findUnreachable(Answer next) {
    ASSERT_EQ(loaded(named("/a")).errorCode(), codeOf(Code::cannotResolveHost));
    ASSERT_EQ(name_.lookUps(), 1U);
    name_.setAnswer(next);
  }

  [[nodiscard]] std::string named(const std::string& path) const {
    return name_.in(server_.url(path));
  }
  [[nodiscard]] bool waitForLookUps(std::size_t count) const {
    return waitUntil([&] { return name_.lookUps() >= count; });
  }

  FakeHostName name_{Answer::serverFails};
};

TEST_F(KivRESTServiceProbe, WhenItSucceedsAllGoOn) {
  findUnreachable(Answer::silence);
  const auto loads = makeLoads(client(), named("/a"), 18);
  ASSERT_TRUE(waitForLookUps(2));
  name_.setAnswer(Answer::loopback);
  for (const auto& load : loads) {
    ASSERT_TRUE(load.waitForEnd());
    EXPECT_EQ(load.body(), "body") << load.message();
    EXPECT_EQ(load.task()->metrics().tries, 1);
  }
  EXPECT_EQ(name_.lookUps(), 2U) << "nobody else looked the name up meanwhile";
}

TEST_F(KivRESTServiceProbe, WhenItFailsAllFailWithTheirOwnURLs) {
  findUnreachable(Answer::silence);
  std::vector<Load> loads;
  for (const std::string path : {"/a", "/b", "/c", "/d", "/e", "/f", "/g", "/h"})
    loads.emplace_back(client(), named(path));
  ASSERT_TRUE(waitForLookUps(2));
  name_.setAnswer(Answer::noSuchName);
  char letter = 'a';
  for (const auto& load : loads) {
    ASSERT_TRUE(load.waitForEnd());
    EXPECT_EQ(load.message(),
              "Could not load \"" + named("/") + letter++ + "\": the host was not found.");
    EXPECT_EQ(load.completions(), 1);
  }
  EXPECT_EQ(triesOf(loads), 1);
  EXPECT_EQ(name_.lookUps(), 2U);
}

TEST_F(KivRESTServiceProbe, FilesThatHaveAMirrorDoNotWait) {
  mirror_.serve("/missing", Response::status(404));
  findUnreachable(Answer::silence);
  // After the response of the mirror, neither of them has another server left.
  const Load probe(client(), {named("/missing?1"), mirror_.url("/missing?1")});
  const Load waiting(client(), {named("/missing?2"), mirror_.url("/missing?2")});
  ASSERT_TRUE(waitForLookUps(2) && mirror_.waitForRequests("/missing", 2));
  for (int number = 0; number < 18; ++number) {
    const std::string query = "?" + std::to_string(number);
    const Load load = loaded({named("/a") + query, mirror_.url("/a") + query});
    EXPECT_EQ(load.body(), "of the mirror") << load.message();
  }
  EXPECT_FALSE(probe.hasEnded() || waiting.hasEnded());
  name_.setAnswer(Answer::noSuchName);
  ASSERT_TRUE(probe.waitForEnd() && waiting.waitForEnd());
  EXPECT_EQ(probe.status(), 404);
  EXPECT_EQ(waiting.status(), 404);
  EXPECT_EQ(name_.lookUps(), 2U);
}

TEST_F(KivRESTServiceProbe, OthersDoNotWaitForTheEndOfItsFile) {
  const Gate gate;
  server_.serve("/large", Response::ok(std::string(100'000, 'x')).gateAt(10, gate));
  findUnreachable(Answer::loopback);
  const Load large(client(), named("/large"));
  const auto loads = makeLoads(client(), named("/a"), 18);
  expectBodies(loads, "body");
  EXPECT_FALSE(large.hasEnded());
  gate.open();
  ASSERT_TRUE(large.waitForEnd());
  EXPECT_EQ(large.body().size(), 100'000U);
}

TEST_F(KivRESTServiceProbe, NorForTheServerToWhichItIsRedirected) {
  const Gate gate;
  mirror_.serve("/slow", Response::ok("elsewhere").after(gate));
  server_.serve("/moved", Response::redirect(302, mirror_.url("/slow")));
  findUnreachable(Answer::loopback);
  const Load moved(client(), named("/moved"));
  const auto loads = makeLoads(client(), named("/a"), 18);
  expectBodies(loads, "body");
  EXPECT_FALSE(moved.hasEnded());
  gate.open();
  ASSERT_TRUE(moved.waitForEnd());
  EXPECT_EQ(moved.body(), "elsewhere");
}

TEST_F(KivRESTServiceProbe, AnErrorPageTellsThatTheServerIsBack) {
  findUnreachable(Answer::loopback);
  const Load missing(client(), named("/missing"));
  const auto loads = makeLoads(client(), named("/a"), 18);
  expectBodies(loads, "body");
  ASSERT_TRUE(missing.waitForEnd());
  EXPECT_EQ(missing.status(), 404);
}

TEST_F(KivRESTServiceProbe, WhenItIsCancelledTheNextOneProbes) {
  findUnreachable(Answer::silence);
  const auto cancelled = makeLoads(client(), named("/a"), 8);
  ASSERT_TRUE(waitForLookUps(2));
  for (const auto& load : cancelled)
    load.task()->setCompletionHandler(nullptr);
  client().cancelAllTasks();
  const auto loads = makeLoads(client(), named("/a"), 8);
  ASSERT_TRUE(waitForLookUps(3));
  name_.setAnswer(Answer::loopback);
  expectBodies(loads, "body");
  for (const auto& load : cancelled)
    EXPECT_EQ(load.completions(), 0);
}

TEST_F(KivRESTServiceProbe, ItIsTheOnlyOneOfAllThreads) {
  settings_.threads = 4;
  findUnreachable(Answer::silence);
  const auto loads = makeLoads(client(), named("/a"), 18);
  ASSERT_TRUE(waitForLookUps(2));
  name_.setAnswer(Answer::noSuchName);
  ASSERT_TRUE(waitForEnd(loads));
  EXPECT_EQ(triesOf(loads), 1);
  EXPECT_EQ(name_.lookUps(), 2U);
}

TEST_F(KivRESTServiceProbe, AServerThatRefusesIsProbedForEachOfTheTries) {
  const RefusingServer refusing;
  const auto loads = makeLoads(client(), refusing.url("/a"), 18);
  expectErrors(loads, Code::cannotConnect);
  EXPECT_LT(triesOf(loads), 18);
}

TEST_F(KivRESTServiceProbe, AServerThatSendsToOneIsNotUnreachableForFailingAnother) {
  const Gate gate;
  server_.serve("/large", Response::ok(std::string(100'000, 'x')).gateAt(10, gate));
  name_.setAnswer(Answer::loopback);
  settings_.threads = 2;  // each thread resolves names itself
  client().setProgressHandler([](const KivRESTServiceProgress&) {});
  const Load large(client(), named("/large"));
  ASSERT_TRUE(waitUntil([&] {
    const auto& progress = large.task()->progress();
    return progress.bytesReceived > 0;
  }));
  name_.setAnswer(Answer::serverFails);
  for (const std::string query : {"?1", "?2"}) {
    const Load load = loaded({named("/a") + query, mirror_.url("/a") + query});
    EXPECT_EQ(load.body(), "of the mirror") << load.message();
    EXPECT_EQ(load.task()->metrics().tries, 2);
  }
  gate.open();
  ASSERT_TRUE(large.waitForEnd());
  EXPECT_EQ(large.body().size(), 100'000U);
}

}  // namespace
