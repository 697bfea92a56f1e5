// The updater with clients and a clock of the test's: what it asks for, when, and what it does with
// the answers.

#include <chrono>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KivResource/configuration/KivConfigurationStore.h"
#include "KivResource/configuration/KivConfigurationUpdater.h"
#include "Tests/Support/FaultyFileManager.h"
#include "Tests/Support/ManagerFixture.h"
#include "Tests/Support/ManualTimers.h"

namespace kiv::test {
namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Checks = std::vector<KivConfigurationCheck>;

const std::string address = "https://config.test/a.json";

class KivConfigurationUpdaterTest : public ManagerFixture {
 protected:
  KivConfigurationUpdaterTest() {
    options.interval = 1000s;
    options.jitter = 0;
    makeUpdater();
  }

  ~KivConfigurationUpdaterTest() override { updater.reset(); }

  /// Another updater, as after a restart of the host; the manager stays.
  void makeUpdater() {
    updater.reset();
    server = std::make_shared<FakeRESTService>();
    timers = std::make_shared<ManualTimers>();
    options.restService = server;
    options.timers = timers;
    updater =
        std::make_unique<KivConfigurationUpdater>(manager, *URL::fromString(address), options);
    updater->setCheckHandler([this](const auto& check) { checks.push_back(check); });
  }

  static void drain() {
    while (DispatchQueue::main()->drain() > 0) {
    }
  }

  /// The text of a configuration with these items.
  static std::string text(std::initializer_list<Dictionary> items) {
    return JSON::toCompactString(config(items));
  }

  /// The server answers the request with a configuration of that version.
  void answer(const std::string& body, const std::string& tag = {}) {
    ASSERT_EQ(server->tasks.size(), 1U);
    server->tasks.front()->setReturnedValidators(KivRESTServiceValidators{address, tag, ""});
    EXPECT_TRUE(server->succeed("", body));
    drain();
  }
  void answerUnchanged(const std::string& tag) {
    ASSERT_EQ(server->tasks.size(), 1U);
    server->tasks.front()->setReturnedValidators(KivRESTServiceValidators{address, tag, ""});
    EXPECT_TRUE(server->answer("", 304));
    drain();
  }
  void refuse() {
    EXPECT_TRUE(server->fail(""));
    drain();
  }
  void succeedFile(const std::string& end) {
    EXPECT_TRUE(client->succeed(end));
    drain();
  }
  void failFile(const std::string& end) {
    EXPECT_TRUE(client->fail(end));
    drain();
  }

  void advance(Timers::Time time) {
    timers->advance(time);
    drain();
  }

  /// Runs a first check that loads a.png and leaves nothing undone.
  void startWithA() {
    updater->start();
    answer(text({banner("a", 1, "x/a.png")}), "\"1\"");
    succeedFile("a.png");
    ASSERT_EQ(takeOutcomes(), Names{"updated"});
  }

  /// The outcomes of the checks since the last call.
  Names takeOutcomes() {
    Names outcomes;
    for (const auto& check : std::exchange(checks, {})) {
      last = check;
      outcomes.emplace_back(kiv::nameOf(check.outcome));
    }
    return outcomes;
  }

  [[nodiscard]] std::string savedText() const {
    const auto saved = ConfigurationStore({address}, options.largestConfiguration).load();
    return saved ? std::string(saved->text.view()) : "nothing";
  }

  KivConfigurationUpdaterOptions options;
  std::shared_ptr<FakeRESTService> server;  ///< Of the configuration.
  std::shared_ptr<ManualTimers> timers;
  std::unique_ptr<KivConfigurationUpdater> updater;
  Checks checks;
  KivConfigurationCheck last;
};

// --- What a check does ---------------------------------------------------------------------------

TEST_F(KivConfigurationUpdaterTest, ANewUpdaterDoesNothing) {
  drain();
  EXPECT_THAT(server->urls, IsEmpty());
  EXPECT_EQ(timers->count(), 0U);
}

TEST_F(KivConfigurationUpdaterTest, TheFirstCheckAsksForTheWholeAndRunsAnUpdatePass) {
  load({banner("old", 1, "x/old.png")});
  updater->start();
  ASSERT_THAT(server->urls, ElementsAre(address));
  EXPECT_EQ(server->tasks.front()->validators(), KivRESTServiceValidators());
  answer(text({banner("a", 1, "x/a.png")}), "\"1\"");
  EXPECT_THAT(takeOutcomes(), IsEmpty());  // the pass runs
  succeedFile("a.png");
  EXPECT_EQ(takeOutcomes(), Names{"updated"});
  EXPECT_EQ(last.statusCode, 200);
  EXPECT_FALSE(last.error);
  EXPECT_FALSE(last.saveError);
  ASSERT_TRUE(last.report);
  EXPECT_EQ(last.report->count(KivResourcePassEntryOutcome::added), 1U);
  EXPECT_EQ(last.report->dropped.size(), 1U);
  EXPECT_EQ(registry(), Names{"a"});
}

TEST_F(KivConfigurationUpdaterTest, TheMirrorsAreThoseOfTheOptions) {
  options.mirrors = {*URL::fromString("https://mirror.test/a.json")};
  makeUpdater();
  updater->start();
  EXPECT_EQ(server->tasks.front()->requestMirrorURLs(), options.mirrors);
}

TEST_F(KivConfigurationUpdaterTest, A304AfterACompletePassRunsNone) {
  startWithA();
  advance(1000s);
  EXPECT_EQ(server->tasks.front()->validators(), (KivRESTServiceValidators{address, "\"1\"", ""}));
  takeEvents();
  answerUnchanged("\"1\"");
  EXPECT_EQ(takeOutcomes(), Names{"unchanged"});
  EXPECT_EQ(last.statusCode, 304);
  EXPECT_FALSE(last.report);
  EXPECT_THAT(takeEvents(), IsEmpty());
}

TEST_F(KivConfigurationUpdaterTest, TheSameBytesAreUnchangedAndTheirNewValidatorsAreKept) {
  startWithA();
  const std::string same = savedText();
  advance(1000s);
  answer(same, "\"2\"");
  EXPECT_EQ(takeOutcomes(), Names{"unchanged"});
  EXPECT_EQ(ConfigurationStore({address}, 1'000'000).load()->validators.entityTag, "\"2\"");
  advance(1000s);
  EXPECT_EQ(server->tasks.front()->validators()->entityTag, "\"2\"");
}

TEST_F(KivConfigurationUpdaterTest, AnotherTextRunsAPassAndIsSaved) {
  startWithA();
  advance(1000s);
  const std::string next = text({banner("b", 1, "x/b.png")});
  answer(next, "\"2\"");
  succeedFile("b.png");
  EXPECT_EQ(takeOutcomes(), Names{"updated"});
  EXPECT_EQ(registry(), Names{"b"});
  EXPECT_EQ(savedText(), next);
}

TEST_F(KivConfigurationUpdaterTest, AfterAPassThatLeftAFileMissingA304RunsAnother) {
  updater->start();
  answer(text({banner("a", 1, "x/a.png")}), "\"1\"");
  failFile("a.png");
  EXPECT_EQ(takeOutcomes(), Names{"updated"});
  advance(1000s);
  EXPECT_EQ(server->tasks.front()->validators()->entityTag, "\"1\"");
  answerUnchanged("\"1\"");
  succeedFile("a.png");
  EXPECT_EQ(takeOutcomes(), Names{"repeated"});
  EXPECT_EQ(registry(), Names{"a"});
  advance(1000s);
  answerUnchanged("\"1\"");
  EXPECT_EQ(takeOutcomes(), Names{"unchanged"});
}

TEST_F(KivConfigurationUpdaterTest, AStoppedPassIsRepeated) {
  updater->start();
  answer(text({banner("a", 1, "x/a.png")}), "\"1\"");
  manager->stopLoading();
  drain();
  EXPECT_EQ(takeOutcomes(), Names{"updated"});
  EXPECT_EQ(last.report->outcome, KivResourcePassOutcome::stopped);
  advance(1000s);
  answerUnchanged("\"1\"");
  succeedFile("a.png");
  EXPECT_EQ(takeOutcomes(), Names{"repeated"});
}

TEST_F(KivConfigurationUpdaterTest, APassWhoseListWasNotSavedIsRepeated) {
  updater->start();
  {
    FaultyFileManager faults;
    faults.setFailingMove(listPath());
    answer(text({plain("a", 1)}), "\"1\"");
  }
  EXPECT_EQ(takeOutcomes(), Names{"updated"});
  EXPECT_TRUE(last.report->saveError);
  advance(1000s);
  answerUnchanged("\"1\"");
  EXPECT_EQ(takeOutcomes(), Names{"repeated"});
  EXPECT_EQ(savedList().size(), 1U);
}

TEST_F(KivConfigurationUpdaterTest, AnInvalidItemBesideValidOnesIsNotRepeatedForever) {
  updater->start();
  answer(text({plain("a", 1), Dictionary{{"engine", "eco_fs"}}}), "\"1\"");
  EXPECT_EQ(takeOutcomes(), Names{"updated"});
  advance(1000s);
  answerUnchanged("\"1\"");
  EXPECT_EQ(takeOutcomes(), Names{"unchanged"});
}

TEST_F(KivConfigurationUpdaterTest, AnEmptyListOfItemsIsAConfigurationThatDropsNothing) {
  startWithA();
  advance(1000s);
  answer(R"({"items":[]})", "\"2\"");
  EXPECT_EQ(takeOutcomes(), Names{"updated"});
  EXPECT_EQ(last.report->outcome, KivResourcePassOutcome::nothingSelected);
  EXPECT_EQ(registry(), Names{"a"});
  EXPECT_EQ(savedText(), R"({"items":[]})");
}

TEST_F(KivConfigurationUpdaterTest, ANewUpdaterRunsAPassAlsoWithAnUnchangedConfiguration) {
  startWithA();
  makeUpdater();
  std::filesystem::remove(stored("a.png"));
  restart();
  makeUpdater();
  updater->start();
  EXPECT_EQ(server->tasks.front()->validators()->entityTag, "\"1\"");
  answerUnchanged("\"1\"");
  succeedFile("a.png");
  EXPECT_EQ(takeOutcomes(), Names{"repeated"});
  EXPECT_EQ(registry(), Names{"a"});
}

// --- Answers that are no configuration -----------------------------------------------------------

TEST_F(KivConfigurationUpdaterTest, BadBodiesChangeNothing) {
  startWithA();
  const std::string good = savedText();
  const std::string deep =
      R"({"items":)" + std::string(100'000, '[') + std::string(100'000, ']') + "}";
  const std::vector<std::string> bodies{"",
                                        " ",
                                        "<html><body>Welcome to the hotel</body></html>",
                                        "null",
                                        "7",
                                        "[]",
                                        "{}",
                                        R"({"items":{}})",
                                        R"({"items":null})",
                                        R"({"items":[1,"2",null,{}]})",
                                        R"({"items":[]}x)",
                                        R"({"items":[)",
                                        std::string("{\"items\":[]}\0", 13),
                                        "{\"items\":[\"\xFF\"]}",
                                        deep,
                                        good.substr(0, good.size() / 2)};
  for (const std::string& body : bodies) {
    takeEvents();
    updater->checkNow();
    answer(body, "\"bad\"");
    EXPECT_EQ(takeOutcomes(), Names{"failed"}) << body.substr(0, 60);
    EXPECT_TRUE(last.error) << body.substr(0, 60);
    EXPECT_EQ(last.statusCode, 200);
    EXPECT_FALSE(last.report);
    EXPECT_THAT(takeEvents(), IsEmpty());
    EXPECT_EQ(savedText(), good);
  }
  EXPECT_EQ(registry(), Names{"a"});
  // What follows is asked for with the validators of the good one.
  updater->checkNow();
  EXPECT_EQ(server->tasks.front()->validators()->entityTag, "\"1\"");
  answerUnchanged("\"1\"");
  EXPECT_EQ(takeOutcomes(), Names{"unchanged"});
}

TEST_F(KivConfigurationUpdaterTest, TheErrorsSayWhatIsWrong) {
  startWithA();
  const auto codeOf = [&](const std::string& body) {
    updater->checkNow();
    answer(body);
    takeOutcomes();
    return last.error->domain + " " + std::to_string(last.error->code);
  };
  EXPECT_EQ(codeOf("<html>"), "kiv.JSON 1");
  EXPECT_EQ(codeOf("{}"), "kiv.KivConfiguration 2");
  EXPECT_EQ(codeOf(R"({"items":[1]})"), "kiv.KivConfiguration 3");
}

TEST_F(KivConfigurationUpdaterTest, OtherStatusesAreFailures) {
  startWithA();
  for (const std::int64_t status : {204, 206, 301, 404, 500}) {
    updater->checkNow();
    EXPECT_TRUE(server->answer("", status));
    drain();
    EXPECT_EQ(takeOutcomes(), Names{"failed"});
    EXPECT_EQ(last.statusCode, status);
    EXPECT_EQ(last.error->code, static_cast<int>(KivConfigurationErrorCode::invalidStatus));
    EXPECT_THAT(last.error->localizedDescription(), HasSubstr(std::to_string(status)));
  }
}

TEST_F(KivConfigurationUpdaterTest, A304WithoutAKnownConfigurationIsAFailure) {
  updater->start();
  answerUnchanged("\"1\"");
  EXPECT_EQ(takeOutcomes(), Names{"failed"});
  EXPECT_EQ(last.error->code, static_cast<int>(KivConfigurationErrorCode::invalidStatus));
}

TEST_F(KivConfigurationUpdaterTest, ATransferErrorIsPassedOn) {
  updater->start();
  refuse();
  EXPECT_EQ(takeOutcomes(), Names{"failed"});
  EXPECT_EQ(last.error, FakeRESTService::transferError());
  EXPECT_EQ(last.statusCode, 0);
}

TEST_F(KivConfigurationUpdaterTest, ATextBeyondTheLimitIsAFailure) {
  const std::string body = text({plain("a", 1)});
  options.largestConfiguration = static_cast<std::int64_t>(body.size()) - 1;
  makeUpdater();
  updater->start();
  answer(body);
  EXPECT_EQ(takeOutcomes(), Names{"failed"});
  EXPECT_EQ(last.error->code, static_cast<int>(KivRESTServiceErrorCode::bodyTooLarge));
  options.largestConfiguration = static_cast<std::int64_t>(body.size());
  makeUpdater();
  updater->start();
  answer(body);
  EXPECT_EQ(takeOutcomes(), Names{"updated"});
}

// --- The saved configuration ---------------------------------------------------------------------

TEST_F(KivConfigurationUpdaterTest, AStartWithoutANetworkUsesTheSavedOneOnce) {
  updater->start();
  answer(text({banner("a", 1, "x/a.png"), plain("p", 1)}), "\"1\"");
  failFile("a.png");
  restart();
  makeUpdater();
  takeOutcomes();
  updater->start();
  refuse();
  succeedFile("a.png");
  EXPECT_EQ(takeOutcomes(), Names{"failed"});
  EXPECT_EQ(last.error, FakeRESTService::transferError());
  ASSERT_TRUE(last.report);
  EXPECT_EQ(last.report->count(KivResourcePassEntryOutcome::added), 1U);
  EXPECT_EQ(registry(), (Names{"p", "a"}));
  takeEvents();
  advance(60s);
  refuse();
  EXPECT_EQ(takeOutcomes(), Names{"failed"});
  EXPECT_FALSE(last.report);
  EXPECT_THAT(takeEvents(), IsEmpty());
}

TEST_F(KivConfigurationUpdaterTest, ABadAnswerAtTheStartUsesTheSavedOneToo) {
  startWithA();
  restart();
  makeUpdater();
  updater->start();
  answer("<html>");
  EXPECT_EQ(takeOutcomes(), Names{"failed"});
  EXPECT_TRUE(last.report);
}

TEST_F(KivConfigurationUpdaterTest, TheSavedOneIsNotUsedIfTheHostDoesNotWantIt) {
  startWithA();
  options.usesSavedConfiguration = false;
  makeUpdater();
  updater->start();
  // Its validators are used, since nothing is lost by that.
  EXPECT_EQ(server->tasks.front()->validators()->entityTag, "\"1\"");
  refuse();
  EXPECT_EQ(takeOutcomes(), Names{"failed"});
  EXPECT_FALSE(last.report);
}

TEST_F(KivConfigurationUpdaterTest, ASavedOneThatIsNoConfigurationIsIgnored) {
  EXPECT_FALSE(ConfigurationStore({address}, 1000).save({Data("{}"), {address, "\"1\"", ""}}));
  log.clear();
  updater->start();
  EXPECT_THAT(log.lines(), Contains(HasSubstr("the saved configuration is not used")));
  EXPECT_TRUE(server->tasks.front()->validators()->isEmpty());
  refuse();
  EXPECT_FALSE(checks.front().report);
}

TEST_F(KivConfigurationUpdaterTest, AConfigurationThatCannotBeSavedIsUsedAndReported) {
  updater->start();
  {
    FaultyFileManager faults;
    faults.setFailingMove(root() + "/KivResource/last_configuration");
    answer(text({plain("a", 1)}), "\"1\"");
  }
  EXPECT_EQ(takeOutcomes(), Names{"updated"});
  EXPECT_TRUE(last.saveError);
  EXPECT_EQ(registry(), Names{"a"});
  EXPECT_EQ(savedText(), "nothing");
  // It is known nevertheless, as long as the updater lives.
  advance(1000s);
  answerUnchanged("\"1\"");
  EXPECT_EQ(takeOutcomes(), Names{"unchanged"});
}

// --- A busy manager ------------------------------------------------------------------------------

TEST_F(KivConfigurationUpdaterTest, ACheckWaitsForThePassOfTheHost) {
  load({banner("old", 1, "x/old.png")});
  updater->start();
  beginUpdate({banner("h", 1, "x/h.png")});
  takeEvents();
  answer(text({banner("a", 1, "x/a.png")}), "\"1\"");
  EXPECT_EQ(takeOutcomes(), Names{"postponed"});
  EXPECT_THAT(takeEvents(), IsEmpty());  // no refusal, and no finish
  EXPECT_EQ(registry(), Names{"old"});   // nor are its removals early
  succeedFile("h.png");
  succeedFile("a.png");
  EXPECT_EQ(takeOutcomes(), Names{"updated"});
  EXPECT_EQ(registry(), Names{"a"});
}

TEST_F(KivConfigurationUpdaterTest, ItWaitsForEveryPassThatTheHostStartsInBetween) {
  updater->start();
  beginLoad({banner("h", 1, "x/h.png")});
  answer(text({plain("a", 1)}), "\"1\"");
  EXPECT_EQ(takeOutcomes(), Names{"postponed"});
  EXPECT_TRUE(client->succeed("h.png"));
  beginLoad({banner("i", 1, "x/i.png")});  // before the callback of the first one
  drain();
  EXPECT_THAT(takeOutcomes(), IsEmpty());
  succeedFile("i.png");
  EXPECT_EQ(takeOutcomes(), Names{"updated"});
}

TEST_F(KivConfigurationUpdaterTest, ACallOfAWaitingCheckIsAnsweredAtItsEnd) {
  Names heard;
  beginLoad({banner("h", 1, "x/h.png")});
  updater->checkNow([&](const auto& check) { heard.emplace_back(kiv::nameOf(check.outcome)); });
  answer(text({plain("a", 1)}));
  EXPECT_THAT(heard, IsEmpty());
  EXPECT_EQ(takeOutcomes(), Names{"postponed"});
  updater->checkNow([&](const auto& check) { heard.emplace_back(kiv::nameOf(check.outcome)); });
  EXPECT_EQ(server->urls.size(), 1U);
  succeedFile("h.png");
  EXPECT_EQ(heard, (Names{"updated", "updated"}));
}

TEST_F(KivConfigurationUpdaterTest, WithoutACallbackTheTimerLooksAgain) {
  updater->start();
  beginLoad({banner("h", 1, "x/h.png")});
  answer(text({plain("a", 1)}));
  EXPECT_EQ(takeOutcomes(), Names{"postponed"});
  manager->setMulticastObserver(nullptr);
  succeedFile("h.png");
  EXPECT_THAT(takeOutcomes(), IsEmpty());
  advance(1000s);
  EXPECT_EQ(takeOutcomes(), Names{"updated"});
}

TEST_F(KivConfigurationUpdaterTest, AFailedStartWaitsWithTheSavedOneToo) {
  startWithA();
  makeUpdater();
  updater->start();
  beginLoad({banner("h", 1, "x/h.png")});
  refuse();
  EXPECT_EQ(takeOutcomes(), Names{"postponed"});
  succeedFile("h.png");
  EXPECT_EQ(takeOutcomes(), Names{"failed"});
  EXPECT_TRUE(last.report);
  EXPECT_EQ(registry(), Names{"a"});
}

// --- Time ----------------------------------------------------------------------------------------

TEST_F(KivConfigurationUpdaterTest, TheNextCheckComesAfterTheIntervalAndNotBefore) {
  startWithA();
  EXPECT_EQ(last.nextCheck, 1000s);
  EXPECT_EQ(timers->count(), 1U);
  advance(1000s - 1ms);
  EXPECT_EQ(server->urls.size(), 1U);
  advance(1ms);
  EXPECT_EQ(server->urls.size(), 2U);
  EXPECT_EQ(timers->count(), 0U);  // until the check has ended
}

TEST_F(KivConfigurationUpdaterTest, AfterALongSleepThereIsOneCheck) {
  startWithA();
  advance(50'000s);
  EXPECT_EQ(server->urls.size(), 2U);
  answerUnchanged("\"1\"");
  EXPECT_EQ(server->urls.size(), 2U);
  EXPECT_EQ(last.nextCheck, 1000s);
}

TEST_F(KivConfigurationUpdaterTest, TheIntervalBeginsWithTheEndOfThePass) {
  updater->start();
  answer(text({banner("a", 1, "x/a.png")}));
  advance(5000s);
  EXPECT_EQ(server->urls.size(), 1U);
  succeedFile("a.png");
  EXPECT_EQ(timers->waits, (std::vector<Timers::Time>{1000s}));
}

TEST_F(KivConfigurationUpdaterTest, FailuresAreTriedAgainSooner) {
  updater->start();
  for (const auto wait : {60s, 120s, 240s, 480s, 960s, 1000s, 1000s}) {
    refuse();
    takeOutcomes();
    EXPECT_EQ(last.nextCheck, wait);
    advance(wait);
  }
  answer(text({plain("a", 1)}));
  takeOutcomes();
  EXPECT_EQ(last.nextCheck, 1000s);
}

TEST_F(KivConfigurationUpdaterTest, JitterLengthensTheInterval) {
  options.jitter = 1;
  makeUpdater();
  startWithA();
  for (int check = 0; check < 40; ++check) {
    advance(2000s);
    answerUnchanged("\"1\"");
  }
  ASSERT_EQ(timers->waits.size(), 41U);
  const auto [shortest, longest] = std::minmax_element(timers->waits.begin(), timers->waits.end());
  EXPECT_GE(*shortest, 1000s);
  EXPECT_LE(*longest, 2000s);
  EXPECT_NE(*shortest, *longest);
}

TEST_F(KivConfigurationUpdaterTest, WithoutAnIntervalOnlyCallsCheck) {
  options.interval = 0s;
  makeUpdater();
  startWithA();
  EXPECT_FALSE(last.nextCheck);
  EXPECT_EQ(timers->count(), 0U);
  updater->checkNow();
  answerUnchanged("\"1\"");
  EXPECT_EQ(takeOutcomes(), Names{"unchanged"});
}

TEST_F(KivConfigurationUpdaterTest, WithoutAStartACallChecksOnce) {
  updater->checkNow();
  answer(text({plain("a", 1)}));
  EXPECT_EQ(takeOutcomes(), Names{"updated"});
  EXPECT_FALSE(last.nextCheck);
  EXPECT_EQ(timers->count(), 0U);
}

TEST_F(KivConfigurationUpdaterTest, ACallReplacesTheNextCheck) {
  startWithA();
  advance(500s);
  updater->checkNow();
  EXPECT_EQ(timers->count(), 0U);
  answerUnchanged("\"1\"");
  advance(500s);
  EXPECT_EQ(server->urls.size(), 2U);
  advance(500s);
  EXPECT_EQ(server->urls.size(), 3U);
}

TEST_F(KivConfigurationUpdaterTest, ATimerThatFiresWithACallIsNoSecondCheck) {
  startWithA();
  timers->advance(1000s);  // its job is on the queue
  updater->checkNow();
  drain();
  EXPECT_EQ(server->urls.size(), 2U);
  timers->advance(1000s);
  answerUnchanged("\"1\"");
  timers->advance(0s);
  drain();
  EXPECT_EQ(server->urls.size(), 2U);
}

TEST_F(KivConfigurationUpdaterTest, WithoutATimerALineIsLogged) {
  timers->refuses = true;
  updater->start();
  answer(text({plain("a", 1)}));
  EXPECT_EQ(takeOutcomes(), Names{"updated"});
  EXPECT_THAT(log.lines(), Contains(HasSubstr("no timer can be set")));
}

// --- Calls, stops and the end --------------------------------------------------------------------

TEST_F(KivConfigurationUpdaterTest, ASecondStartHasNoEffect) {
  updater->start();
  updater->start();
  EXPECT_EQ(server->urls.size(), 1U);
  startWithA();
  updater->start();
  EXPECT_EQ(server->urls.size(), 1U);
}

TEST_F(KivConfigurationUpdaterTest, CallsDuringACheckShareItAndComeBeforeTheOtherHandler) {
  Names heard;
  updater->setCheckHandler([&](const auto&) { heard.emplace_back("all"); });
  updater->start();
  updater->checkNow([&](const auto&) { heard.emplace_back("first"); });
  updater->checkNow([&](const auto&) { heard.emplace_back("second"); });
  updater->checkNow();
  answer(text({plain("a", 1)}));
  EXPECT_EQ(heard, (Names{"first", "second", "all"}));
  EXPECT_EQ(server->urls.size(), 1U);
}

TEST_F(KivConfigurationUpdaterTest, AStopDuringTheRequestCancelsIt) {
  bool isHeard = false;
  updater->start();
  const auto task = server->tasks.front();
  updater->checkNow([&](const auto&) { isHeard = true; });
  updater->stop();
  EXPECT_THAT(server->tasks, IsEmpty());
  FakeRESTService::endTask(*task, HTTPResponse(200), Data(text({plain("a", 1)})), std::nullopt);
  drain();
  EXPECT_THAT(takeOutcomes(), IsEmpty());
  EXPECT_FALSE(isHeard);
  EXPECT_EQ(timers->count(), 0U);
  EXPECT_THAT(registry(), IsEmpty());
}

TEST_F(KivConfigurationUpdaterTest, AStopDuringThePassLeavesItRunning) {
  updater->start();
  answer(text({banner("a", 1, "x/a.png")}), "\"1\"");
  updater->stop();
  succeedFile("a.png");
  EXPECT_EQ(registry(), Names{"a"});
  EXPECT_THAT(takeOutcomes(), IsEmpty());
  EXPECT_EQ(timers->count(), 0U);
}

TEST_F(KivConfigurationUpdaterTest, AStopWhileItWaitsForgetsTheCheck) {
  updater->start();
  beginLoad({banner("h", 1, "x/h.png")});
  answer(text({plain("a", 1)}));
  updater->stop();
  succeedFile("h.png");
  advance(5000s);
  EXPECT_EQ(takeOutcomes(), Names{"postponed"});
  EXPECT_EQ(registry(), Names{"h"});
}

TEST_F(KivConfigurationUpdaterTest, AStopBetweenChecksEndsThem) {
  startWithA();
  timers->advance(1000s);
  updater->stop();
  drain();
  EXPECT_EQ(server->urls.size(), 1U);
}

TEST_F(KivConfigurationUpdaterTest, AStartAfterAStopBeginsAgain) {
  startWithA();
  updater->stop();
  updater->start();
  answerUnchanged("\"1\"");
  EXPECT_EQ(takeOutcomes(), Names{"repeated"});
}

TEST_F(KivConfigurationUpdaterTest, AStartAfterAStopDuringThePassWaitsForItsEnd) {
  updater->start();
  answer(text({banner("a", 1, "x/a.png")}), "\"1\"");
  updater->stop();
  updater->start();
  answerUnchanged("\"1\"");
  EXPECT_EQ(takeOutcomes(), Names{"postponed"});
  succeedFile("a.png");
  EXPECT_EQ(takeOutcomes(), Names{"repeated"});
}

TEST_F(KivConfigurationUpdaterTest, NothingIsCalledAfterTheEnd) {
  updater->start();
  answer(text({banner("a", 1, "x/a.png")}), "\"1\"");
  updater.reset();
  succeedFile("a.png");
  advance(5000s);
  EXPECT_THAT(checks, IsEmpty());
  EXPECT_EQ(registry(), Names{"a"});
  EXPECT_EQ(client.use_count(), 2);  // nothing else is held
}

TEST_F(KivConfigurationUpdaterTest, AHandlerMayDestroyTheUpdater) {
  int calls = 0;
  updater->setCheckHandler([&](const auto&) { ++calls; });
  updater->checkNow([&](const auto&) {
    ++calls;
    updater.reset();
  });
  updater->checkNow([&](const auto&) { ++calls; });
  answer(text({plain("a", 1)}));
  EXPECT_EQ(calls, 1);
}

TEST_F(KivConfigurationUpdaterTest, AHandlerOfAPostponedCheckMayDestroyTheUpdater) {
  updater->setCheckHandler([&](const auto&) { updater.reset(); });
  updater->start();
  beginLoad({banner("h", 1, "x/h.png")});
  answer(text({plain("a", 1)}));
  EXPECT_FALSE(updater);
  succeedFile("h.png");
  EXPECT_EQ(registry(), Names{"h"});
}

TEST_F(KivConfigurationUpdaterTest, AHandlerMayOwnTheUpdater) {
  std::shared_ptr<KivConfigurationUpdater> owned(updater.release());
  const std::weak_ptr<KivConfigurationUpdater> seen = owned;
  auto* const same = owned.get();
  same->checkNow([kept = std::move(owned)](const auto&) {});
  ASSERT_FALSE(seen.expired());
  same->stop();  // drops the handler, and so the updater
  EXPECT_TRUE(seen.expired());
}

TEST_F(KivConfigurationUpdaterTest, AHandlerMayBeginTheNextCheck) {
  updater->setCheckHandler([&](const auto& check) {
    checks.push_back(check);
    if (checks.size() == 1) updater->checkNow();
  });
  updater->start();
  answer(text({plain("a", 1)}), "\"1\"");
  EXPECT_EQ(server->urls.size(), 2U);
  EXPECT_EQ(timers->count(), 0U);
  answerUnchanged("\"1\"");
  EXPECT_EQ(takeOutcomes(), (Names{"updated", "unchanged"}));
  EXPECT_EQ(timers->count(), 1U);
}

TEST_F(KivConfigurationUpdaterTest, AHandlerThatThrowsIsLoggedAndEndsNothing) {
  updater->checkNow([](const auto&) { throw std::runtime_error("from a handler"); });
  answer(text({plain("a", 1)}));
  EXPECT_EQ(takeOutcomes(), Names{"updated"});
  EXPECT_THAT(log.lines(), Contains(HasSubstr("from a handler")));
}

TEST_F(KivConfigurationUpdaterTest, ItsOwnClientIsNotTheManagersAndHasBounds) {
  options.restService = nullptr;
  const KivConfigurationUpdater own(manager, *URL::fromString(address), {});
  EXPECT_NE(own.restService(), manager->loader()->restService());
  const auto settings = own.restService()->settings();
  EXPECT_EQ(settings.largestBody, 10 * 1024 * 1024);
  EXPECT_EQ(settings.spoolDirectory, "");
  EXPECT_EQ(settings.deadline, 300s);
}

TEST_F(KivConfigurationUpdaterTest, ItsOwnClientHasTheSettingsOfTheManagersClient) {
  KivRESTServiceSettings settings;
  settings.userAgent = "Host/1.0";
  settings.deadline = 60s;
  manager->setLoader(
      std::make_shared<KivResourceRESTModule>(std::make_shared<KivRESTService>(settings)));
  options.restService = nullptr;
  const KivConfigurationUpdater own(manager, *URL::fromString(address), options);
  EXPECT_EQ(own.restService()->settings().userAgent, "Host/1.0");
  EXPECT_EQ(own.restService()->settings().deadline, 60s);
}

TEST_F(KivConfigurationUpdaterTest, WithoutAClientOfTheManagerItsOwnHasTheSettingsOfNewOnes) {
  manager->setLoader(std::make_shared<KivResourceRESTModule>(std::shared_ptr<KivRESTService>()));
  options.restService = nullptr;
  const KivConfigurationUpdater own(manager, *URL::fromString(address), options);
  EXPECT_EQ(own.restService()->settings().userAgent, KivRESTService::defaultSettings().userAgent);
}

TEST_F(KivConfigurationUpdaterTest, EveryOutcomeHasAName) {
  EXPECT_EQ(kiv::nameOf(KivConfigurationOutcome::updated), "updated");
  EXPECT_EQ(kiv::nameOf(KivConfigurationOutcome::repeated), "repeated");
  EXPECT_EQ(kiv::nameOf(KivConfigurationOutcome::unchanged), "unchanged");
  EXPECT_EQ(kiv::nameOf(KivConfigurationOutcome::postponed), "postponed");
  EXPECT_EQ(kiv::nameOf(KivConfigurationOutcome::failed), "failed");
}

}  // namespace
}  // namespace kiv::test
