#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KivResource/NSError+KivResource.h"
#include "Tests/Support/ManagerFixture.h"

namespace {

using kiv::test::Events;
using kiv::test::ManagerFixture;
using testing::ElementsAre;
using testing::IsEmpty;

class KivResourceManagerPassesTest : public ManagerFixture {};

// --- The merge -----------------------------------------------------------------------------------

TEST_F(KivResourceManagerPassesTest, AnEqualStampKeepsTheLoadedResourceAndAnnouncesIt) {
  load({banner("a", 5, "a.png")});
  const auto before = manager->loadedResources()->resources();
  beginUpdate({banner("a", 5, "new.png")});
  EXPECT_THAT(takeEvents(), ElementsAre("loaded a", "finished"));
  EXPECT_EQ(observer->loaded[0], before[0]);
  EXPECT_EQ(manager->loadedResources()->resources(), before);
  EXPECT_THAT(client->urls, IsEmpty());
}

TEST_F(KivResourceManagerPassesTest, AGreaterStampIsFetchedWhileTheOldStaysUntilItIsComplete) {
  load({banner("a", 5, "a.png")});
  beginUpdate({banner("a", 6, "new.png")});
  EXPECT_THAT(takeEvents(), IsEmpty());
  EXPECT_EQ(entry(0)->updated(), 5U);
  EXPECT_TRUE(exists(stored("a.png")));
  ASSERT_TRUE(client->succeed("/new.png"));
  EXPECT_THAT(takeEvents(), ElementsAre("loaded a", "finished"));
  ASSERT_EQ(manager->loadedResources()->size(), 1U);
  EXPECT_EQ(entry(0)->updated(), 6U);
  EXPECT_FALSE(exists(stored("a.png")));
}

TEST_F(KivResourceManagerPassesTest, ASmallerStampKeepsTheLoadedResource) {
  load({banner("a", 5, "a.png")});
  beginUpdate({banner("a", 4, "old.png")});
  EXPECT_THAT(takeEvents(), ElementsAre("loaded a", "finished"));
  EXPECT_EQ(observer->loaded[0]->updated(), 5U);
}

TEST_F(KivResourceManagerPassesTest, StampsCompareUnsignedSoMinusOneIsTheLargest) {
  load({plain("a", 18446744073709551614U)});
  auto newest = plain("a", 0);
  newest.set("updated", -1);
  beginLoad({newest});
  EXPECT_THAT(takeEvents(), ElementsAre("loaded a", "finished"));
  EXPECT_EQ(observer->loaded[0]->updated(), 18446744073709551615U);
}

TEST_F(KivResourceManagerPassesTest, StampsAboveDoublePrecisionStayApart) {
  load({plain("a", 9007199254740992U)});
  beginLoad({plain("a", 9007199254740993U)});
  takeEvents();
  EXPECT_EQ(observer->loaded[0]->updated(), 9007199254740993U);
}

TEST_F(KivResourceManagerPassesTest, AnUpdateDropsWhatTheConfigurationLacksButKeepsItsFiles) {
  load({banner("a", 1, "a.png"), banner("b", 1, "b.png")});
  beginUpdate({banner("a", 1, "a.png")});
  EXPECT_THAT(takeEvents(), ElementsAre("loaded a", "finished"));
  EXPECT_THAT(registry(), ElementsAre("a"));
  EXPECT_EQ(savedList().size(), 1U);
  EXPECT_TRUE(exists(stored("b.png")));
  EXPECT_FALSE(manager->resourcesForRemove().has_value());
}

TEST_F(KivResourceManagerPassesTest, ALoadKeepsWhatTheConfigurationLacks) {
  load({plain("a", 1), plain("b", 1)});
  beginLoad({plain("a", 1)});
  takeEvents();
  EXPECT_THAT(registry(), ElementsAre("a", "b"));
}

TEST_F(KivResourceManagerPassesTest, TheSecondOfTwoNewOnesWithOneIdentifierFindsNoCounterpart) {
  load({banner("a", 5, "a.png")});
  beginLoad({banner("a", 5, "a.png"), banner("a", 3, "second.png")});
  EXPECT_THAT(takeEvents(), ElementsAre("loaded a"));
  EXPECT_THAT(client->urls, ElementsAre("http://main.test/files/second.png"));
  client->succeed("/second.png");
  EXPECT_THAT(takeEvents(), ElementsAre("loaded a", "finished"));
  ASSERT_EQ(manager->loadedResources()->size(), 1U);
  EXPECT_EQ(entry(0)->updated(), 3U);
}

TEST_F(KivResourceManagerPassesTest, OfTwoVersionsInOneConfigurationTheLastToCompleteWins) {
  beginLoad({banner("a", 9, "new.png"), banner("a", 3, "old.png")});
  client->succeed("/new.png");
  client->succeed("/old.png");
  EXPECT_THAT(takeEvents(), ElementsAre("loaded a", "loaded a", "finished"));
  ASSERT_EQ(manager->loadedResources()->size(), 1U);
  EXPECT_EQ(entry(0)->updated(), 3U);
  EXPECT_FALSE(exists(stored("new.png")));
}

TEST_F(KivResourceManagerPassesTest, TheFirstMatchInTheRegistryIsTheCounterpart) {
  load({plain("a", 1)});
  load({plain("a", 5)});
  ASSERT_EQ(manager->loadedResources()->size(), 2U);
  // The older resource comes first and is compared with, so a version between the two is newer.
  beginLoad({plain("a", 3)});
  takeEvents();
  EXPECT_EQ(observer->loaded[0]->updated(), 3U);
  EXPECT_EQ(manager->loadedResources()->size(), 3U);
}

TEST_F(KivResourceManagerPassesTest, AnUpdateThatNamesADoubledResourceKeepsBothOccurrences) {
  load({plain("a", 1), plain("b", 1)});
  manager->loadedResources()->append(entry(0));
  beginUpdate({plain("a", 1)});
  takeEvents();
  EXPECT_THAT(registry(), ElementsAre("a", "a"));
}

TEST_F(KivResourceManagerPassesTest, AnUpdateThatMarksNothingStillSavesTheList) {
  load({plain("a", 1)});
  std::filesystem::remove(listPath());
  beginUpdate({plain("a", 1)});
  takeEvents();
  EXPECT_EQ(savedList().size(), 1U);
}

TEST_F(KivResourceManagerPassesTest, ALoadThatFindsEverythingCurrentSavesNothing) {
  load({plain("a", 1)});
  std::filesystem::remove(listPath());
  beginLoad({plain("a", 1)});
  takeEvents();
  EXPECT_FALSE(exists(listPath()));
}

// --- Filters -------------------------------------------------------------------------------------

TEST_F(KivResourceManagerPassesTest, AnIdentifierThatNoItemHasGivesOneFinish) {
  manager->loadResourceWithID_forConfig("nobody", config({banner("a", 1, "a.png")}));
  EXPECT_THAT(takeEvents(), ElementsAre("finished"));
  EXPECT_THAT(client->urls, IsEmpty());
}

TEST_F(KivResourceManagerPassesTest, TheIdentifierSelectsEveryItemThatHasIt) {
  manager->loadResourceWithID_forConfig("a", config({plain("a", 1), plain("b", 1), plain("a", 2)}));
  EXPECT_THAT(takeEvents(), ElementsAre("loaded a", "loaded a", "finished"));
}

TEST_F(KivResourceManagerPassesTest, TheTypeSelects) {
  manager->loadResourcesWithType_forConfig("plain", config({plain("a", 1), banner("b", 1, "x")}));
  EXPECT_THAT(takeEvents(), ElementsAre("loaded a", "finished"));
}

TEST_F(KivResourceManagerPassesTest, IdentifierAndTypeApplyTogether) {
  auto other = plain("a", 2);
  other.set("type", "other");
  manager->loadResourcesFromConfig_withID_orType_replace(
      config({plain("a", 1), other, plain("b", 1)}), "a", "other", false);
  EXPECT_THAT(takeEvents(), ElementsAre("loaded a", "finished"));
  EXPECT_EQ(observer->loaded[0]->updated(), 2U);
}

TEST_F(KivResourceManagerPassesTest, AnEmptyIdentifierOrTypeSelectsEmptyOnesAndNoneSelectsAll) {
  auto untyped = plain("b", 1);
  untyped.set("type", "");
  const auto items = config({plain("", 1), untyped, plain("c", 1)});
  manager->loadResourceWithID_forConfig("", items);
  EXPECT_THAT(takeEvents(), ElementsAre("loaded ", "finished"));
  manager->loadResourcesWithType_forConfig("", items);
  EXPECT_THAT(takeEvents(), ElementsAre("loaded b", "finished"));
  manager->loadResourceWithID_forConfig(std::nullopt, items);
  EXPECT_THAT(takeEvents(), ElementsAre("loaded ", "loaded b", "loaded c", "finished"));
}

TEST_F(KivResourceManagerPassesTest, AConfigurationWithoutUsableItemsRemovesNothing) {
  load({plain("a", 1)});
  auto broken = plain("b", 1);
  broken.remove("name");
  for (const kiv::Value& empty :
       {kiv::Value(), config({}), config({broken}), kiv::Value(kiv::Dictionary{{"items", "x"}}),
        kiv::Value(7), kiv::Value(kiv::Array{plain("c", 1)})}) {
    manager->updateResourcesForConfig(empty);
    EXPECT_THAT(takeEvents(), ElementsAre("finished"));
    EXPECT_THAT(registry(), ElementsAre("a"));
  }
}

// --- Refused passes ------------------------------------------------------------------------------

TEST_F(KivResourceManagerPassesTest, ABusyManagerRefusesThePassAndGoesOn) {
  beginLoad({banner("a", 1, "a.png"), banner("b", 1, "b.png"), banner("c", 1, "c.png")});
  ASSERT_EQ(manager->loadingResourcesFilesCount(), 3);
  beginLoad({plain("x", 1), banner("y", 1, "y.png")});
  EXPECT_THAT(takeEvents(), ElementsAre("failed x", "failed y", "finished"));
  EXPECT_EQ(manager->loadingResourcesFilesCount(), 3);
  for (const auto& failure : observer->failures) {
    ASSERT_TRUE(failure.error.has_value());
    EXPECT_EQ(failure.error->domain, "kiv.KivResource");
    EXPECT_EQ(failure.error->domain, KivResourceErrorDomain);
    EXPECT_EQ(failure.error->code, 100);
    EXPECT_EQ(failure.error->code, DownloadQueueIsBusyKivResourceErrorCode);
    EXPECT_EQ(failure.error->localizedDescription(),
              "Resource download was canceled because the download queue is busy.");
    EXPECT_EQ(failure.error->userInfo.size(), 1U);
  }
  for (const char* name : {"/a.png", "/b.png", "/c.png"})
    client->succeed(name);
  EXPECT_THAT(takeEvents(), ElementsAre("loaded a", "loaded b", "loaded c", "finished"));
}

TEST_F(KivResourceManagerPassesTest, ARefusedPassIgnoresTheFilters) {
  beginLoad({banner("a", 1, "a.png")});
  const auto items = config({plain("x", 1), plain("y", 1)});
  manager->loadResourceWithID_forConfig("x", items);
  EXPECT_THAT(takeEvents(), ElementsAre("failed x", "failed y", "finished"));
  manager->loadResourcesWithType_forConfig("nothing", items);
  EXPECT_THAT(takeEvents(), ElementsAre("failed x", "failed y", "finished"));
  EXPECT_THAT(registry(), IsEmpty());
}

TEST_F(KivResourceManagerPassesTest, ARefusedPassWithoutItemsOnlyFinishes) {
  beginLoad({banner("a", 1, "a.png")});
  manager->loadResourcesForConfig(kiv::Value());
  EXPECT_THAT(takeEvents(), ElementsAre("finished"));
}

TEST_F(KivResourceManagerPassesTest, ARefusedPassAppliesTheRunningUpdatesRemovalsEarly) {
  load({plain("old", 1)});
  beginUpdate({banner("a", 1, "a.png")});
  EXPECT_THAT(registry(), ElementsAre("old"));
  beginLoad({plain("x", 1)});
  EXPECT_THAT(takeEvents(), ElementsAre("failed x", "finished"));
  EXPECT_THAT(registry(), IsEmpty());
  EXPECT_EQ(savedList().size(), 0U);
  client->succeed("/a.png");
  EXPECT_THAT(takeEvents(), ElementsAre("loaded a", "finished"));
  EXPECT_THAT(registry(), ElementsAre("a"));
}

// --- The end of a pass ---------------------------------------------------------------------------

TEST_F(KivResourceManagerPassesTest, RemovalsWaitForTheLastDownload) {
  load({plain("old", 1)});
  beginUpdate({banner("a", 1, "a.png"), banner("b", 1, "b.png")});
  client->succeed("/a.png");
  EXPECT_THAT(registry(), ElementsAre("old", "a"));
  ASSERT_TRUE(manager->resourcesForRemove().has_value());
  client->answer("/b.png", 404);
  EXPECT_THAT(registry(), ElementsAre("a"));
  EXPECT_THAT(takeEvents(), ElementsAre("loaded a", "failed b", "finished"));
}

TEST_F(KivResourceManagerPassesTest, WhatAnUpdateDropsNoLongerProtectsTheFilesThatItShared) {
  load({banner("a", 1, "x/shared.png"), banner("b", 1, "x/shared.png")});
  beginUpdate({banner("a", 1, "x/shared.png")});
  EXPECT_TRUE(exists(stored("shared.png")));
  beginLoad({banner("a", 2, "new.png")});
  client->succeed("/new.png");
  EXPECT_FALSE(exists(stored("shared.png")));
}

TEST_F(KivResourceManagerPassesTest, APassThatFailsAtOnceFinishesInItsMiddleAndAtItsEnd) {
  KivAppConfiguration::sharedInstance()->setMainACSDomain(std::nullopt);
  beginLoad({banner("a", 1, "a.png"), banner("b", 1, "b.png")});
  EXPECT_THAT(takeEvents(),
              ElementsAre("failed a", "finished", "failed b", "finished", "finished"));
  EXPECT_EQ(manager->loadingResourcesFilesCount(), 0);
}

TEST_F(KivResourceManagerPassesTest, AFailureAtOnceDoesNotFinishWhileADownloadIsInFlight) {
  beginLoad({banner("a", 1, "a.png"), banner("b", 1, "not a url.png")});
  EXPECT_THAT(takeEvents(), ElementsAre("failed b"));
  EXPECT_EQ(observer->failures[0].error->code, CreateURLRequestErrorCode);
  client->succeed("/a.png");
  EXPECT_THAT(takeEvents(), ElementsAre("loaded a", "finished"));
}

TEST_F(KivResourceManagerPassesTest, TheNextPassIsAcceptedOnceTheCountIsBackAtZero) {
  beginLoad({banner("a", 1, "a.png")});
  client->fail("/a.png");
  beginLoad({plain("b", 1)});
  EXPECT_THAT(takeEvents(), ElementsAre("failed a", "finished", "loaded b", "finished"));
}

// --- Stopping ------------------------------------------------------------------------------------

TEST_F(KivResourceManagerPassesTest, StoppingAnUpdateSendsOneFinishAndRemovesNothing) {
  load({plain("old", 1)});
  beginUpdate({banner("a", 1, "a.png"), banner("b", 1, "b.png")});
  std::filesystem::remove(listPath());
  const auto tasks = client->tasks;
  manager->stopLoading();
  EXPECT_THAT(takeEvents(), ElementsAre("finished"));
  EXPECT_EQ(client->cancellations, 1);
  EXPECT_EQ(manager->loadingResourcesFilesCount(), 0);
  EXPECT_THAT(registry(), ElementsAre("old"));
  EXPECT_TRUE(manager->resourcesForRemove().has_value());
  EXPECT_FALSE(exists(listPath()));
  for (const auto& task : tasks) {
    kiv::test::FakeRESTService::endTask(*task, kiv::HTTPResponse(200), kiv::Data("late"), {});
  }
  EXPECT_THAT(takeEvents(), IsEmpty());
}

TEST_F(KivResourceManagerPassesTest, TheNextAcceptedPassClearsTheStoppedOnesRemovals) {
  load({plain("old", 1)});
  beginUpdate({banner("a", 1, "a.png")});
  manager->stopLoading();
  beginLoad({plain("b", 1)});
  EXPECT_THAT(takeEvents(), ElementsAre("finished", "loaded b", "finished"));
  EXPECT_THAT(registry(), ElementsAre("old", "b"));
  EXPECT_FALSE(manager->resourcesForRemove().has_value());
}

TEST_F(KivResourceManagerPassesTest, StoppingWhileIdleStillSendsOneFinish) {
  manager->stopLoading();
  EXPECT_THAT(takeEvents(), ElementsAre("finished"));
}

TEST_F(KivResourceManagerPassesTest, WhatWasCompleteBeforeTheStopStays) {
  beginLoad({banner("a", 1, "a.png"), banner("b", 1, "b.png")});
  client->succeed("/a.png");
  manager->stopLoading();
  EXPECT_THAT(takeEvents(), ElementsAre("loaded a", "finished"));
  EXPECT_THAT(registry(), ElementsAre("a"));
  EXPECT_EQ(savedList().size(), 1U);
}

}  // namespace
