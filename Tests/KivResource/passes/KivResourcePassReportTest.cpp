// The report of each pass: what it says of every item and file, and that it comes exactly once.

#include <cerrno>
#include <filesystem>
#include <functional>
#include <future>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KivResource/NSError+KivResource.h"
#include "KivResource/passes/KivResourcePassReport.h"
#include "Tests/KivResource/RealClientFixture.h"
#include "Tests/KivResource/passes/PassReportFixture.h"
#include "Tests/Support/FaultyFileManager.h"
#include "Tests/Support/ForgetfulFileManager.h"

namespace kiv::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using EntryOutcome = KivResourcePassEntryOutcome;
using FileOutcome = KivResourcePassFileOutcome;
using Outcome = KivResourcePassOutcome;

class KivResourcePassReportTest : public WithReports<ManagerFixture> {};

// --- What becomes of a resource ------------------------------------------------------------------

TEST_F(KivResourcePassReportTest, AnUpdateTellsNewReplacedUnchangedAndDropped) {
  load({banner("old", 1, "o1.png"), banner("same", 5, "s.png"), plain("gone", 3)});
  const auto id = follow(KivResourcePass::update(config(
      {banner("new", 1, "n.png"), banner("old", 2, "o2.png"), banner("same", 4, "s4.png")})));
  client->succeed("/n.png", "1234");
  client->succeed("/o2.png", "5678");
  const auto report = takeReport();
  EXPECT_EQ(report.passID, id);
  EXPECT_EQ(report.outcome, Outcome::done);
  EXPECT_THAT(entriesOf(report), ElementsAre("new added", "old replaced", "same unchanged"));
  EXPECT_EQ(report.entries[0].otherVersion, std::nullopt);
  EXPECT_EQ(report.entries[1].otherVersion, 1U);
  EXPECT_EQ(report.entries[2].otherVersion, 5U);
  EXPECT_EQ(report.entries[2].updated, 4U);
  EXPECT_THAT(filesOf(report), ElementsAre("n.png downloaded", "o2.png downloaded"));
  ASSERT_EQ(report.dropped.size(), 1U);
  EXPECT_EQ(report.dropped[0].resourceID, "gone");
  EXPECT_EQ(report.dropped[0].updated, 3U);
  EXPECT_EQ(report.count(EntryOutcome::added), 1U);
  EXPECT_EQ(report.count(EntryOutcome::failed), 0U);
  EXPECT_FALSE(report.isIncomplete);
  EXPECT_EQ(report.saveError, std::nullopt);
}

TEST_F(KivResourcePassReportTest, AnOlderVersionThatIsReplacedIsNotDropped) {
  load({plain("a", 1)});
  load({plain("a", 2)});
  ASSERT_THAT(registry(), ElementsAre("a", "a"));
  follow(KivResourcePass::update(config({banner("a", 3, "a.png")})));
  client->succeed("/a.png");
  const auto report = takeReport();
  EXPECT_THAT(registry(), ElementsAre("a"));
  EXPECT_THAT(entriesOf(report), ElementsAre("a replaced"));
  EXPECT_EQ(report.entries[0].otherVersion, 2U);
  EXPECT_THAT(report.dropped, IsEmpty());
}

TEST_F(KivResourcePassReportTest, ALoadDropsNothing) {
  load({plain("a", 1)});
  follow(KivResourcePass::load(config({plain("b", 1)})));
  const auto report = takeReport();
  EXPECT_THAT(entriesOf(report), ElementsAre("b added"));
  EXPECT_THAT(report.dropped, IsEmpty());
}

TEST_F(KivResourcePassReportTest, AResourceThatIsCompleteOnArrivalStaysBesideTheOlderVersion) {
  load({plain("a", 1)});
  follow(KivResourcePass::load(config({plain("a", 2)})));
  const auto report = takeReport();
  EXPECT_THAT(entriesOf(report), ElementsAre("a added"));
  EXPECT_EQ(report.entries[0].otherVersion, std::nullopt);
}

TEST_F(KivResourcePassReportTest, AFileThatIsThereAlreadyIsLocal) {
  write(stored("i.png"), "icon");
  follow(KivResourcePass::load(config({video("v", 1, "x/i.png", "x/v.mp4")})));
  client->succeed("/v.mp4");
  const auto report = takeReport();
  EXPECT_THAT(entriesOf(report), ElementsAre("v added"));
  EXPECT_THAT(filesOf(report), ElementsAre("x/i.png local", "x/v.mp4 downloaded"));
}

TEST_F(KivResourcePassReportTest, AResourceThatIsCompletedTwiceIsStillReplaced) {
  load({video("v", 1, "i.png", "v.mp4")});
  write(stored("same.bin"), "both");
  follow(KivResourcePass::load(config({video("v", 2, "icons/same.bin", "videos/same.bin")})));
  const auto report = takeReport();
  EXPECT_THAT(entriesOf(report), ElementsAre("v replaced"));
  EXPECT_EQ(report.entries[0].otherVersion, 1U);
}

TEST_F(KivResourcePassReportTest, AResourceThatCompletesInSpiteOfAFailureIsLoaded) {
  follow(KivResourcePass::load(config({video("v", 1, "icons/f.bin", "videos/f.bin")})));
  client->fail("/icons/f.bin");
  client->succeed("/videos/f.bin");
  const auto report = takeReport();
  EXPECT_THAT(entriesOf(report), ElementsAre("v added"));
  EXPECT_EQ(report.entries[0].error, std::nullopt);
  EXPECT_THAT(filesOf(report), ElementsAre("icons/f.bin failed", "videos/f.bin downloaded"));
}

TEST_F(KivResourcePassReportTest, SeveralResourcesMayShareAFile) {
  follow(KivResourcePass::load(config({banner("a", 1, "x/s.png"), banner("b", 1, "y/s.png")})));
  client->succeed("/x/s.png");
  client->fail("/y/s.png");
  const auto report = takeReport();
  EXPECT_THAT(entriesOf(report), ElementsAre("a added", "b failed"));
  EXPECT_THAT(filesOf(report), ElementsAre("x/s.png downloaded", "y/s.png failed"));
}

TEST_F(KivResourcePassReportTest, OfTwoItemsWithOneIdentifierTheLaterReplacesTheEarlier) {
  follow(KivResourcePass::load(config({banner("a", 1, "1.png"), banner("a", 2, "2.png")})));
  client->succeed("/1.png");
  client->succeed("/2.png");
  const auto report = takeReport();
  EXPECT_THAT(entriesOf(report), ElementsAre("a removed", "a replaced"));
  EXPECT_EQ(report.entries[0].otherVersion, 2U);
  EXPECT_EQ(report.entries[0].reason, "version 2 is loaded instead");
  EXPECT_EQ(report.entries[1].otherVersion, 1U);
}

TEST_F(KivResourcePassReportTest, AnUnchangedResourceThatASecondItemReplacesIsRemoved) {
  load({banner("a", 1, "1.png")});
  follow(KivResourcePass::load(config({banner("a", 1, "1.png"), banner("a", 2, "2.png")})));
  client->succeed("/2.png");
  EXPECT_THAT(entriesOf(takeReport()), ElementsAre("a removed", "a replaced"));
}

TEST_F(KivResourcePassReportTest, WhatTheHostRemovesDuringThePassIsRemoved) {
  follow(KivResourcePass::load(config({plain("p", 1), banner("a", 1, "a.png")})));
  manager->removeResource(entry(0));
  client->succeed("/a.png");
  const auto report = takeReport();
  EXPECT_THAT(entriesOf(report), ElementsAre("p removed", "a added"));
  EXPECT_EQ(report.entries[0].otherVersion, std::nullopt);
  EXPECT_FALSE(report.entries[0].reason.empty());
}

// --- Items that are not selected -----------------------------------------------------------------

TEST_F(KivResourcePassReportTest, TheFiltersSayWhatTheyLeaveOut) {
  auto pass = KivResourcePass::loadID(
      "p", config({plain("p", 1), plain("q", 1), with(plain("p", 1), "type", "other")}));
  pass.type = "plain";
  follow(pass);
  const auto report = takeReport();
  EXPECT_EQ(report.outcome, Outcome::done);
  EXPECT_THAT(entriesOf(report), ElementsAre("p added", "q leftOut", "p leftOut"));
  EXPECT_EQ(report.entries[1].reason, "the pass selects another identifier, \"p\"");
  EXPECT_EQ(report.entries[2].reason, "the pass selects another type, \"plain\"");
}

TEST_F(KivResourcePassReportTest, ItemsThatMakeNoResourceSayWhy) {
  Array items;
  items.append(Value("text"));
  items.append(without(plain("a", 1), "engine"));
  items.append(without(banner("b", 1, "b.png"), "name"));
  items.append(plain("p", 1));
  follow(KivResourcePass::load(Dictionary{{"items", items}}));
  const auto report = takeReport();
  EXPECT_THAT(entriesOf(report), ElementsAre(" invalid", "a invalid", "b invalid", "p added"));
  EXPECT_EQ(report.entries[0].reason, "it is no JSON object");
  EXPECT_EQ(report.entries[1].reason, "it lacks \"engine\", a string");
  EXPECT_EQ(report.entries[2].reason, "it lacks \"name\", a string");
  EXPECT_TRUE(report.entries[2].isEngineKnown);
  EXPECT_FALSE(report.entries[3].isEngineKnown);
  EXPECT_EQ(report.entries[3].item, 3U);
  EXPECT_EQ(report.entries[3].engine, "eco_other");
}

TEST_F(KivResourcePassReportTest, WithoutItemsNothingIsSelectedAndNothingDropped) {
  load({plain("a", 1)});
  for (const Value& none : {Value(), Value(Dictionary()), Value("text"), Value(Array()),
                            Value(Dictionary{{"items", "text"}}), config({})}) {
    follow(KivResourcePass::update(none));
    const auto report = takeReport();
    EXPECT_EQ(report.outcome, Outcome::nothingSelected);
    EXPECT_THAT(report.entries, IsEmpty());
    EXPECT_THAT(report.dropped, IsEmpty());
  }
  EXPECT_THAT(registry(), ElementsAre("a"));
}

TEST_F(KivResourcePassReportTest, WhereTheFilterLeavesNothingTheItemsAreStillListed) {
  follow(KivResourcePass::loadType("page", config({plain("a", 1)})));
  const auto report = takeReport();
  EXPECT_EQ(report.outcome, Outcome::nothingSelected);
  EXPECT_THAT(entriesOf(report), ElementsAre("a leftOut"));
}

// --- Failures ------------------------------------------------------------------------------------

TEST_F(KivResourcePassReportTest, ARequestThatCannotBeMadeFailsWithOneReport) {
  KivAppConfiguration::sharedInstance()->setMainACSDomain(std::nullopt);
  follow(KivResourcePass::load(config({banner("a", 1, "a.png"), banner("b", 1, "b.png")})));
  const auto report = takeReport();
  EXPECT_EQ(report.outcome, Outcome::done);
  EXPECT_THAT(entriesOf(report), ElementsAre("a failed", "b failed"));
  ASSERT_TRUE(report.entries[1].files[0].error);
  EXPECT_EQ(report.entries[1].files[0].error->code, CreateURLRequestErrorCode);
  EXPECT_EQ(report.entries[1].error, report.entries[1].files[0].error);
  EXPECT_EQ(report.entries[1].files[0].statusCode, 0);
  EXPECT_EQ(report.entries[1].files[0].metrics.tries, 0);
}

TEST_F(KivResourcePassReportTest, WithoutALoaderItFailsToo) {
  manager->setLoader(nullptr);
  follow(KivResourcePass::load(config({banner("a", 1, "a.png")})));
  EXPECT_THAT(entriesOf(takeReport()), ElementsAre("a failed"));
  manager->setLoader(std::make_shared<KivResourceRESTModule>());
}

TEST_F(KivResourcePassReportTest, NoDataAndNoErrorIsAFailureWithoutError) {
  follow(KivResourcePass::load(config({banner("a", 1, "a.png")})));
  client->answer("/a.png", 200);
  const auto report = takeReport();
  EXPECT_THAT(entriesOf(report), ElementsAre("a failed"));
  EXPECT_EQ(report.entries[0].error, std::nullopt);
  EXPECT_EQ(report.entries[0].files[0].statusCode, 200);
  EXPECT_THAT(filesOf(report), ElementsAre("a.png failed"));
}

TEST_F(KivResourcePassReportTest, OneFileFailsAndAnotherSucceeds) {
  follow(KivResourcePass::load(config({video("v", 1, "i.png", "v.mp4")})));
  client->answer("/i.png", 404);
  client->succeed("/v.mp4");
  const auto report = takeReport();
  EXPECT_THAT(entriesOf(report), ElementsAre("v failed"));
  EXPECT_THAT(filesOf(report), ElementsAre("i.png failed", "v.mp4 downloaded"));
  EXPECT_EQ(report.entries[0].files[0].statusCode, 404);
  EXPECT_EQ(report.entries[0].error->code, InvalidResponseStatusErrorCode);
}

TEST_F(KivResourcePassReportTest, AFullDiskFailsTheFileAndTheList) {
  FaultyFileManager files;
  follow(KivResourcePass::load(config({banner("a", 1, "a.png"), plain("p", 1)})));
  EXPECT_THAT(takeEvents(), ElementsAre("loaded p"));
  files.setFailingOperation(FileOperation::write, ENOSPC);
  client->succeed("/a.png");
  const auto report = takeReport();
  EXPECT_THAT(entriesOf(report), ElementsAre("a failed", "p added"));
  ASSERT_TRUE(report.entries[0].files[0].error);
  EXPECT_TRUE(isSystemError(*report.entries[0].files[0].error, std::errc::no_space_on_device));
  EXPECT_EQ(report.entries[0].files[0].statusCode, 200);
  EXPECT_EQ(report.saveError, std::nullopt) << "the list had not changed";

  follow(KivResourcePass::load(config({plain("q", 1)})));
  const auto next = takeReport();
  EXPECT_THAT(entriesOf(next), ElementsAre("q added"));
  ASSERT_TRUE(next.saveError);
  EXPECT_TRUE(isSystemError(*next.saveError, std::errc::no_space_on_device));
}

TEST_F(KivResourcePassReportTest, StoredButNotFoundAgainIsIncomplete) {
  const ForgetfulFileManager files("/lost.png");
  follow(KivResourcePass::load(config({banner("a", 1, "x/lost.png")})));
  client->succeed("/lost.png");
  const auto report = takeReport();
  EXPECT_THAT(entriesOf(report), ElementsAre("a incomplete"));
  EXPECT_THAT(filesOf(report), ElementsAre("x/lost.png notFound"));
  EXPECT_EQ(report.entries[0].reason, "\"lost.png\" was stored, but is not found under that name");
  EXPECT_THAT(takeEvents(), ElementsAre("finished"));
}

// --- Passes that do not end by themselves --------------------------------------------------------

TEST_F(KivResourcePassReportTest, AStoppedPassSaysWhatHadNotEnded) {
  load({plain("gone", 1)});
  follow(KivResourcePass::update(
      config({banner("a", 1, "a.png"), banner("b", 1, "b.png"), video("v", 1, "i.png", "v.mp4")})));
  client->succeed("/a.png");
  client->fail("/i.png");
  const auto tasks = client->tasks;
  manager->stopLoading();
  const auto report = takeReport();
  EXPECT_EQ(report.outcome, Outcome::stopped);
  EXPECT_THAT(entriesOf(report), ElementsAre("a added", "b notEnded", "v failed"));
  EXPECT_THAT(filesOf(report),
              ElementsAre("a.png downloaded", "b.png notEnded", "i.png failed", "v.mp4 notEnded"));
  EXPECT_THAT(report.dropped, IsEmpty());
  for (const auto& task : tasks)
    FakeRESTService::endTask(*task, HTTPResponse(200), Data("late"), {});
  manager->finishLoading();
  manager->stopLoading();
  expectNoReport();
}

TEST_F(KivResourcePassReportTest, ARefusedPassAndTheRunningOneEachReportOnce) {
  load({plain("gone", 1)});
  const auto running = follow(KivResourcePass::update(config({banner("a", 1, "a.png")})));
  const auto refused = follow(KivResourcePass::loadID(
      "x", config({plain("x", 1), plain("y", 1), without(plain("z", 1), "name")})));
  EXPECT_NE(running, refused);
  const auto first = takeReport();
  EXPECT_EQ(first.passID, refused);
  EXPECT_EQ(first.outcome, Outcome::refused);
  EXPECT_THAT(entriesOf(first), ElementsAre("x failed", "y failed", "z invalid"));
  EXPECT_EQ(first.entries[1].error->code, DownloadQueueIsBusyKivResourceErrorCode);
  EXPECT_THAT(first.dropped, IsEmpty());
  client->succeed("/a.png");
  const auto second = takeReport();
  EXPECT_EQ(second.passID, running);
  EXPECT_EQ(second.outcome, Outcome::done);
  EXPECT_THAT(entriesOf(second), ElementsAre("a added"));
  ASSERT_EQ(second.dropped.size(), 1U) << "applied early, and still of this pass";
  EXPECT_EQ(second.dropped[0].resourceID, "gone");
  expectNoReport();
}

TEST_F(KivResourcePassReportTest, ARefusedPassWithoutItemsIsRefused) {
  beginLoad({banner("a", 1, "a.png")});
  follow(KivResourcePass::update(Value()));
  EXPECT_EQ(takeReport().outcome, Outcome::refused);
  client->succeed("/a.png");
  expectNoReport();
}

TEST_F(KivResourcePassReportTest, APassThatNobodyFollowsIsNotPartOfAReport) {
  const auto followed = follow(KivResourcePass::load(config({banner("a", 1, "a.png")})));
  beginLoad({plain("x", 1)});
  expectNoReport();
  client->succeed("/a.png");
  const auto report = takeReport();
  EXPECT_EQ(report.passID, followed);
  EXPECT_THAT(entriesOf(report), ElementsAre("a added"));
}

TEST_F(KivResourcePassReportTest, AResetCountAbandonsThePassWhenTheNextOneStarts) {
  const auto first = follow(KivResourcePass::load(config({banner("a", 1, "a.png")})));
  manager->setLoadingResourcesFilesCount(0);
  follow(KivResourcePass::load(config({banner("b", 1, "b.png")})));
  const auto report = takeReport();
  EXPECT_EQ(report.passID, first);
  EXPECT_EQ(report.outcome, Outcome::abandoned);
  EXPECT_THAT(entriesOf(report), ElementsAre("a notEnded"));
  client->succeed("/a.png");
  client->succeed("/b.png");
  EXPECT_EQ(reports().size(), 1U);
  EXPECT_EQ(reports().front().outcome, Outcome::done);
}

TEST_F(KivResourcePassReportTest, WhatArrivesAfterTheEndDoesNotChangeTheReport) {
  follow(KivResourcePass::load(config({banner("a", 1, "a.png")})));
  manager->setLoadingResourcesFilesCount(0);
  beginLoad({plain("b", 1)});
  client->succeed("/a.png");
  const auto report = takeReport();
  EXPECT_THAT(entriesOf(report), ElementsAre("a notEnded"));
  EXPECT_THAT(filesOf(report), ElementsAre("a.png notEnded"));
  EXPECT_EQ(report.entries[0].files[0].statusCode, 0);
}

TEST_F(KivResourcePassReportTest, AStartThatThrowsIsNotReported) {
  manager->setLoader(std::make_shared<ThrowingLoader>());
  EXPECT_THROW(follow(KivResourcePass::load(config({banner("a", 1, "a.png")}))), std::bad_alloc);
  manager->stopLoading();
  expectNoReport();
}

TEST_F(KivResourcePassReportTest, AManagerThatGoesAwayAbandonsItsPass) {
  follow(KivResourcePass::load(config({banner("a", 1, "a.png")})));
  client->cancelAllTasks();
  const std::weak_ptr<KivResourceManager> former = manager;
  manager = KivResourceManager::newInstance();
  EXPECT_TRUE(former.expired());
  const auto report = takeReport();
  EXPECT_EQ(report.outcome, Outcome::abandoned);
  EXPECT_THAT(entriesOf(report), ElementsAre("a notEnded"));
}

// --- When the report comes -----------------------------------------------------------------------

TEST_F(KivResourcePassReportTest, TheReportComesAfterTheCallbacksOfThePass) {
  KivAppConfiguration::sharedInstance()->setMainACSDomain(std::nullopt);
  Events order;
  manager->startPass(KivResourcePass::load(config({banner("a", 1, "a.png"), plain("p", 1)})),
                     [&](const KivResourcePassReport&) {
                       order = observer->events;
                       observer->events.emplace_back("report");
                     });
  EXPECT_THAT(observer->events, IsEmpty()) << "nothing is called within the call";
  EXPECT_THAT(takeEvents(), ElementsAre("failed a", "finished", "loaded p", "finished", "report"));
  EXPECT_EQ(order.size(), 4U);
}

TEST_F(KivResourcePassReportTest, ObserversHearTheSameAsWithoutAReport) {
  const auto items = {banner("a", 1, "a.png"), plain("p", 1), video("v", 1, "i.png", "v.mp4")};
  const auto run = [&](bool isFollowed) {
    restart();
    if (isFollowed) {
      follow(KivResourcePass::update(config(items)));
    } else {
      beginUpdate(items);
    }
    client->succeed("/a.png");
    client->answer("/v.mp4", 500);
    client->succeed("/i.png");
    const auto events = takeEvents();
    std::filesystem::remove_all(root());
    return events;
  };
  const auto without = run(false);
  EXPECT_EQ(run(true), without);
  EXPECT_THAT(without, ElementsAre("loaded p", "loaded a", "failed v", "finished"));
}

TEST_F(KivResourcePassReportTest, APassMayStartInTheReportOfAnother) {
  std::vector<Outcome> outcomes;
  manager->startPass(KivResourcePass::load(config({plain("a", 1)})),
                     [&](const KivResourcePassReport& report) {
                       outcomes.push_back(report.outcome);
                       follow(KivResourcePass::load(config({banner("b", 1, "b.png")})));
                     });
  takeEvents();
  EXPECT_THAT(outcomes, ElementsAre(Outcome::done));
  expectNoReport();
  client->succeed("/b.png");
  EXPECT_THAT(entriesOf(takeReport()), ElementsAre("b added"));
}

/// Starts a pass in its first callback.
struct Restarter : KivResourceManagerObserver {
  std::function<void()> start;
  void resourceManager_didLoadResource(const std::shared_ptr<KivResourceManager>&,
                                       const std::shared_ptr<KivResource>&) override {
    if (const auto call = std::exchange(start, nullptr)) call();
  }
};

TEST_F(KivResourcePassReportTest, APassWithinACallbackIsRefusedWhileTheOtherRuns) {
  const auto restarter = std::make_shared<Restarter>();
  manager->addObserver(restarter);
  restarter->start = [&] { follow(KivResourcePass::load(config({plain("x", 1)}))); };
  follow(KivResourcePass::load(config({banner("a", 1, "a.png"), banner("b", 1, "b.png")})));
  client->succeed("/a.png");
  EXPECT_EQ(takeReport().outcome, Outcome::refused);
  client->succeed("/b.png");
  const auto report = takeReport();
  EXPECT_EQ(report.outcome, Outcome::done);
  EXPECT_THAT(entriesOf(report), ElementsAre("a added", "b added"));
}

TEST_F(KivResourcePassReportTest, TheHandlerIsReleasedAndMayThrowOrBeEmpty) {
  const auto held = std::make_shared<int>(0);
  manager->startPass(KivResourcePass::load(config({plain("a", 1)})),
                     [held](const KivResourcePassReport&) {
                       ++*held;
                       throw std::runtime_error("of the host");
                     });
  takeEvents();
  EXPECT_EQ(*held, 1);
  EXPECT_EQ(held.use_count(), 1);
  manager->startPass(KivResourcePass::load(config({plain("b", 1)})), nullptr);
  EXPECT_THAT(takeEvents(), ElementsAre("loaded b", "finished"));
}

TEST_F(KivResourcePassReportTest, AReportOfAManagerOnASerialQueueComesThere) {
  const auto queue = DispatchQueue::serial("resources");
  std::promise<std::shared_ptr<DispatchQueue>> place;
  const auto plainConfig = config({plain("a", 1)});
  runOn(*queue, [&] {
    KivResourceManager::newInstance()->startPass(
        KivResourcePass::load(plainConfig),
        [&](const KivResourcePassReport&) { place.set_value(DispatchQueue::ofRunningJob()); });
  });
  EXPECT_EQ(place.get_future().get(), queue);
}

TEST_F(KivResourcePassReportTest, AReportOfNestedPassesComesOnceEach) {
  // A loader of the host's that starts and stops passes while one is starting.
  struct Meddler : KivResourceRESTModule {
    std::function<void()> meddle;
    void loadDataForResource_usingFileLink_completionHandler(
        const std::shared_ptr<KivResource>& resource, const std::string& fileLink,
        CompletionHandler completion) override {
      if (const auto call = std::exchange(meddle, nullptr)) call();
      KivResourceRESTModule::loadDataForResource_usingFileLink_completionHandler(
          resource, fileLink, std::move(completion));
    }
  };
  const auto loader = std::make_shared<Meddler>();
  loader->setRestService(client);
  manager->setLoader(loader);
  loader->meddle = [&] {
    follow(KivResourcePass::load(config({plain("x", 1)})));
    manager->stopLoading();
    follow(KivResourcePass::load(config({plain("y", 1)})));
  };
  follow(KivResourcePass::load(config({banner("a", 1, "a.png"), banner("b", 1, "b.png")})));
  while (!client->tasks.empty())
    client->succeed("");
  takeEvents();
  std::vector<Outcome> outcomes;
  for (const auto& report : takeReports())
    outcomes.push_back(report.outcome);
  EXPECT_THAT(outcomes,
              testing::UnorderedElementsAre(Outcome::refused, Outcome::abandoned, Outcome::done));
}

// --- Other processes -----------------------------------------------------------------------------

/// Two managers on one root stand for two processes.
class KivResourceSharedPassReportTest : public KivResourcePassReportTest {
 protected:
  /// Runs a whole load pass of another process.
  static void loadElsewhere(std::initializer_list<Dictionary> items) {
    const auto other = KivResourceManager::newInstance();
    const auto client = std::make_shared<FakeRESTService>();
    other->loader()->setRestService(client);
    other->loadResourcesForConfig(config(items));
    while (!client->tasks.empty())
      client->succeed("");
  }
};

TEST_F(KivResourceSharedPassReportTest, ANewerVersionOfAnotherProcessRemovesTheLoadedOne) {
  follow(KivResourcePass::load(config({banner("a", 1, "a1.png"), banner("b", 1, "b.png")})));
  loadElsewhere({banner("a", 3, "a3.png")});
  client->succeed("/a1.png");
  client->succeed("/b.png");
  const auto report = takeReport();
  EXPECT_THAT(entriesOf(report), ElementsAre("a removed", "b added"));
  EXPECT_EQ(report.entries[0].otherVersion, 3U);
}

TEST_F(KivResourceSharedPassReportTest, AnUnchangedResourceThatAnotherProcessReplacesIsRemoved) {
  load({banner("a", 1, "a1.png")});
  follow(KivResourcePass::load(config({banner("a", 1, "a1.png"), banner("b", 1, "b.png")})));
  loadElsewhere({banner("a", 3, "a3.png")});
  client->succeed("/b.png");
  const auto report = takeReport();
  EXPECT_THAT(entriesOf(report), ElementsAre("a removed", "b added"));
  EXPECT_EQ(report.entries[0].otherVersion, 3U);
}

TEST_F(KivResourceSharedPassReportTest, AResourceWhoseFileAnotherProcessRemovesIsFailed) {
  FaultyFileManager files;
  load({banner("a", 1, "x/shared.png")});
  const auto other = KivResourceManager::newInstance();
  const auto otherClient = std::make_shared<FakeRESTService>();
  other->loader()->setRestService(otherClient);
  bool isRemoved = false;
  files.setObserver([&](const FaultyFileManager::Operation& operation) {
    if (operation.kind != FileOperation::lock || std::exchange(isRemoved, true)) return;
    other->loadResourcesForConfig(config({banner("a", 2, "x/a2.png")}));
    otherClient->succeed("");
  });
  follow(KivResourcePass::load(config({banner("b", 1, "x/shared.png")})));
  files.setObserver({});
  const auto report = takeReport();
  EXPECT_THAT(entriesOf(report), ElementsAre("b failed"));
  ASSERT_TRUE(report.entries[0].error);
  EXPECT_TRUE(isSystemError(*report.entries[0].error, std::errc::no_such_file_or_directory));
  EXPECT_THAT(takeEvents(), testing::Contains("failed b"));
}

// --- Statuses, tries and bytes -------------------------------------------------------------------

class KivResourcePassReportTransfersTest : public WithReports<RealClientFixture> {
 protected:
  /// Waits for the one report that is expected.
  KivResourcePassReport waitForReport() {
    EXPECT_TRUE(waitUntil([&] { return !reports().empty(); }));
    return takeReport();
  }

  LoopbackServer mirror;
};

TEST_F(KivResourcePassReportTransfersTest, AFailedFileTellsItsStatusAndTries) {
  KivAppConfiguration::sharedInstance()->setReserveACSDomain(mirror.url("/reserve"));
  server.serve("/a.png", Response::status(404));
  mirror.serve("/reserve/a.png", Response::nothing());
  server.serve("/b.png", Response::ok("12345"));
  follow(KivResourcePass::update(config({banner("a", 1, "a.png"), banner("b", 1, "b.png")})));
  const auto report = waitForReport();
  EXPECT_THAT(entriesOf(report), ElementsAre("a failed", "b added"));
  const auto& file = report.entries[0].files.at(0);
  EXPECT_EQ(file.link, "a.png");
  EXPECT_EQ(file.statusCode, 404);
  EXPECT_EQ(file.metrics.server->absoluteString(), server.url("/a.png"));
  ASSERT_GE(file.metrics.failedTries.size(), 2U);
  EXPECT_EQ(static_cast<std::size_t>(file.metrics.tries), file.metrics.failedTries.size());
  EXPECT_EQ(file.metrics.failedTries[0].server.absoluteString(), server.url("/a.png"));
  EXPECT_EQ(file.metrics.failedTries[0].statusCode, 404);
  EXPECT_EQ(file.metrics.failedTries[0].error, std::nullopt);
  EXPECT_EQ(file.metrics.failedTries[1].server.absoluteString(), mirror.url("/reserve/a.png"));
  EXPECT_NE(file.metrics.failedTries[1].error, std::nullopt);
  EXPECT_EQ(report.entries[1].files.at(0).metrics.bytes, 5);
  EXPECT_EQ(report.entries[1].files.at(0).statusCode, 200);
  EXPECT_EQ(report.bytes, 5);
  EXPECT_GE(report.duration, report.entries[1].files.at(0).metrics.totalTime);
}

TEST_F(KivResourcePassReportTransfersTest, ABodyThatResourcesShareCountsForEach) {
  server.serve("/s.png", Response::ok("123"));
  follow(KivResourcePass::update(config({banner("a", 1, "s.png"), banner("b", 1, "s.png")})));
  const auto report = waitForReport();
  EXPECT_THAT(entriesOf(report), ElementsAre("a added", "b added"));
  EXPECT_EQ(report.bytes, 6);
}

TEST_F(KivResourcePassReportTransfersTest, AStopInTheMiddleReportsOnce) {
  const Gate gate;
  server.serve("/a.png", Response::ok("a"));
  server.serve("/b.png", Response::ok("body").gateAt(2, gate));
  follow(KivResourcePass::update(config({banner("a", 1, "a.png"), banner("b", 1, "b.png")})));
  ASSERT_TRUE(waitUntil([&] { return observer->count("loaded a") == 1; }));
  ASSERT_TRUE(server.waitForRequests("/b.png", 1));
  manager->stopLoading();
  gate.open();
  EXPECT_TRUE(server.waitForNoConnection());
  const auto report = waitForReport();
  EXPECT_EQ(report.outcome, Outcome::stopped);
  EXPECT_THAT(entriesOf(report), ElementsAre("a added", "b notEnded"));
  expectNoReport();
}

// --- Names ---------------------------------------------------------------------------------------

TEST(KivResourcePassReportNamesTest, EveryOutcomeHasItsName) {
  EXPECT_EQ(kiv::nameOf(Outcome::done), "done");
  EXPECT_EQ(kiv::nameOf(Outcome::abandoned), "abandoned");
  EXPECT_EQ(kiv::nameOf(FileOutcome::local), "local");
  EXPECT_EQ(kiv::nameOf(FileOutcome::notEnded), "notEnded");
  EXPECT_EQ(kiv::nameOf(EntryOutcome::added), "added");
  EXPECT_EQ(kiv::nameOf(EntryOutcome::invalid), "invalid");
}

}  // namespace
}  // namespace kiv::test
