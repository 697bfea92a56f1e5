// What the slots do on a disk in trouble, after a restart, and beside another cache.

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "FakeDisk.h"
#include "TestApp.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Operation = FakeDisk::Operation;

class AdSlotsDiskTest : public testing::Test {
 protected:
  AdSlotsDiskTest() {
    start();
    app->network->serve("https://main.test/1.png", "one");
    app->load({banner("a", 1, "1.png")});
    app->settle();
    EXPECT_THAT(app->takeDrawn(), ElementsAre("start: one"));
    EXPECT_EQ(app->takeCallbacks(), "1 loaded, 0 failed, 1 finished");
  }

  /// Also starts the application again, as a new process would.
  void start() {
    app.reset();
    app = std::make_unique<TestApp>(folder.path("root"));
  }
  void loadSecond() {
    app->network->serve("https://main.test/2.png", "two");
    app->load({banner("a", 2, "2.png")});
    app->settle();
  }

  TemporaryFolder folder;
  FakeDisk disk;  // outlives the application
  std::unique_ptr<TestApp> app;
};

TEST_F(AdSlotsDiskTest, ARestartShowsWhatWasLoadedWithoutTheNetwork) {
  start();
  EXPECT_THAT(app->takeDrawn(), ElementsAre("start: one"));
  EXPECT_THAT(app->network->requests(), IsEmpty());
}

TEST_F(AdSlotsDiskTest, APassThatChangesNothingWritesNothing) {
  const int writes = disk.count(Operation::write);
  app->load({banner("a", 1, "1.png")});
  app->settle();
  EXPECT_EQ(app->takeCallbacks(), "1 loaded, 0 failed, 1 finished");
  EXPECT_EQ(disk.count(Operation::write), writes);
}

TEST_F(AdSlotsDiskTest, AFullDiskIsToldAndNothingIsLost) {
  disk.fill();
  const int files = disk.count(Operation::createFile);
  loadSecond();
  EXPECT_EQ(disk.count(Operation::createFile), files);  // the framework sees that there is no room
  EXPECT_EQ(app->takeCallbacks(), "0 loaded, 1 failed, 1 finished");
  EXPECT_THAT(app->slots->status(), HasSubstr("2.png: "));
  EXPECT_THAT(app->takeDrawn(), IsEmpty());
  EXPECT_EQ(contentsOf(app->drawnPath), "one");
  start();
  EXPECT_EQ(app->slots->shownIn("start"), "a");
  disk.heal();
  loadSecond();
  EXPECT_THAT(app->takeDrawn(), testing::Contains("start: two"));
  EXPECT_EQ(app->slots->status(), "done");
}

TEST_F(AdSlotsDiskTest, AListThatCannotBeSavedIsTold) {
  disk.fail(Operation::move, std::errc::io_error, "resources_config.json");
  loadSecond();
  EXPECT_THAT(app->takeDrawn(), ElementsAre("start: two"));
  EXPECT_THAT(app->slots->status(), HasSubstr("done\nnot saved: "));
  start();  // the former list is there, with its file
  EXPECT_THAT(app->takeDrawn(), ElementsAre("start: one"));
}

TEST_F(AdSlotsDiskTest, AReadOnlyDiskIsTold) {
  disk.makeReadOnly();
  loadSecond();
  EXPECT_EQ(app->takeCallbacks(), "0 loaded, 1 failed, 1 finished");
  EXPECT_THAT(app->slots->status(), HasSubstr("2.png: "));
  EXPECT_EQ(contentsOf(app->drawnPath), "one");
}

TEST_F(AdSlotsDiskTest, AReadOnlyDiskShowsWhatIsStored) {
  disk.makeReadOnly();
  start();
  EXPECT_THAT(app->takeDrawn(), ElementsAre("start: one"));
  EXPECT_THAT(app->slots->status(), HasSubstr("start: "));  // why it has no lease
}

TEST_F(AdSlotsDiskTest, ABannerWhoseFileSomebodyHasRemovedGivesItsPlaceToTheNext) {
  app->network->serve("https://main.test/2.png", "two");
  app->load({banner("a", 1, "1.png", 9), banner("b", 1, "2.png", 1)});
  app->settle();
  const auto stored = app->manager->loadedResourcesWithID("a").front()->useFilePaths().front();
  EXPECT_TRUE(std::filesystem::remove(stored));
  std::vector<std::string> drawn;
  const auto slots = AdSlots::open(
      app->manager, {"start"},
      [&drawn](const std::string&, const std::string& path) { drawn.push_back(contentsOf(path)); });
  EXPECT_THAT(drawn, ElementsAre("two"));
}

TEST_F(AdSlotsDiskTest, ADiskWithoutHardLinksShowsCopies) {
  disk.fail(Operation::link, std::errc::operation_not_supported);
  loadSecond();
  EXPECT_THAT(app->takeDrawn(), ElementsAre("start: two"));
}

TEST_F(AdSlotsDiskTest, AFileThatMayNotBeRemovedHarmsNothing) {
  disk.fail(Operation::remove, std::errc::permission_denied);
  loadSecond();
  EXPECT_EQ(app->takeCallbacks(), "1 loaded, 0 failed, 1 finished");
  EXPECT_THAT(app->takeDrawn(), ElementsAre("start: two"));
}

TEST_F(AdSlotsDiskTest, WhatTheUserSeesIsNoted) {
  const int notes = disk.count(Operation::touch);
  app->slots->noteSeen("start");
  EXPECT_EQ(disk.count(Operation::touch), notes + 1);
  app->slots->noteSeen("page");  // it is empty
  EXPECT_EQ(disk.count(Operation::touch), notes + 1);
}

TEST_F(AdSlotsDiskTest, TwoCachesDoNotTouchEachOther) {
  TestApp other(folder.path("other"));
  other.network->serve("https://main.test/1.png", "another one");
  other.load({banner("a", 7, "1.png")});
  other.settle();
  EXPECT_THAT(other.takeDrawn(), ElementsAre("start: another one"));
  EXPECT_EQ(app->takeCallbacks(), "0 loaded, 0 failed, 0 finished");
  EXPECT_EQ(app->network->requests().size(), 1U);
  EXPECT_EQ(contentsOf(app->drawnPath), "one");
  start();
  EXPECT_THAT(app->takeDrawn(), ElementsAre("start: one"));
}

}  // namespace
