// What the slots show, with a fake network.

#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "FakeDisk.h"
#include "TestApp.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class AdSlotsTest : public testing::Test {
 protected:
  /// Loads the banner "spring" and forgets what was told and drawn.
  void loadSpring() {
    network.serve("https://main.test/spring.png", "spring", "\"1\"");
    app.load({banner("spring", 1, "spring.png")});
    app.settle();
    EXPECT_EQ(app.takeCallbacks(), "1 loaded, 0 failed, 1 finished");
    EXPECT_THAT(app.takeDrawn(), ElementsAre("start: spring"));
  }

  TemporaryFolder folder;
  FakeDisk disk;
  TestApp app{folder.path("root")};
  FakeNetwork& network = *app.network;
};

// --- A pass -------------------------------------------------------------------------------------

TEST_F(AdSlotsTest, AFirstPassLoadsAndShows) {
  network.serve("https://main.test/spring.png", "spring");
  app.load({banner("spring", 1, "spring.png")});
  EXPECT_EQ(app.slots->status(), "loading");
  app.settle();
  EXPECT_EQ(app.takeCallbacks(), "1 loaded, 0 failed, 1 finished");
  EXPECT_THAT(app.takeDrawn(), ElementsAre("start: spring"));
  EXPECT_EQ(app.slots->status(), "done");
  EXPECT_THAT(network.requests(), ElementsAre("https://main.test/spring.png"));
}

TEST_F(AdSlotsTest, AMirrorAnswersForTheMainServer) {
  network.setAnswer("https://main.test/a.png",
                    FakeNetwork::failure(KivRESTServiceErrorCode::cannotConnect));
  network.serve("https://mirror.test/a.png", "from the mirror");
  app.load({banner("a", 1, "a.png")});
  app.settle();
  EXPECT_THAT(app.takeDrawn(), ElementsAre("start: from the mirror"));
  EXPECT_EQ(app.slots->status(), "done");
  EXPECT_THAT(network.requests(),
              ElementsAre("https://main.test/a.png", "https://mirror.test/a.png"));
}

TEST_F(AdSlotsTest, AMissingFileIsToldWithItsTries) {
  network.setAnswer("https://mirror.test/a.png", FakeNetwork::status(503));
  app.load({banner("a", 1, "a.png")});
  app.settle();
  EXPECT_EQ(app.takeCallbacks(), "0 loaded, 1 failed, 1 finished");
  EXPECT_THAT(app.takeDrawn(), IsEmpty());
  EXPECT_EQ(app.slots->status(),
            "done\na.png: Error load file \"a.png\" with invalid response status code 404. "
            "(https://main.test: 404, https://mirror.test: 503)");
}

TEST_F(AdSlotsTest, ServersThatDoNotAnswerAreTold) {
  using Code = KivRESTServiceErrorCode;
  network.setAnswer("https://main.test/a.png", FakeNetwork::failure(Code::cannotConnect));
  network.setAnswer("https://mirror.test/a.png", FakeNetwork::failure(Code::timedOut));
  app.load({banner("a", 1, "a.png")});
  app.settle();
  EXPECT_EQ(app.takeCallbacks(), "0 loaded, 1 failed, 1 finished");
  EXPECT_EQ(app.slots->status(),
            "done\na.png: cannotConnect: https://main.test/a.png "
            "(https://main.test: cannotConnect, https://mirror.test: timedOut)");
}

TEST_F(AdSlotsTest, TheMostImportantBannerIsFetchedFirst) {
  network.serve("https://main.test/low.png", "low");
  network.serve("https://main.test/high.png", "high");
  app.load({banner("low", 1, "low.png", 1), banner("high", 1, "high.png", 9)});
  app.settle();
  EXPECT_THAT(network.requests(),
              ElementsAre("https://main.test/high.png", "https://main.test/low.png"));
}

TEST_F(AdSlotsTest, TheBannerOfTheHighestPriorityIsShownInWhateverOrderTheyCome) {
  for (const std::string name : {"low.png", "high.png", "middle.png"}) {
    network.serve("https://main.test/" + name, name);
    network.hold(name);
  }
  app.load({banner("low", 1, "low.png", 1), banner("high", 1, "high.png", 9),
            banner("middle", 1, "middle.png", 5)});
  for (const std::string name : {"low.png", "high.png", "middle.png"}) {
    network.release(name);
    app.settle();
  }
  EXPECT_THAT(app.takeDrawn(), ElementsAre("start: low.png", "start: high.png"));
  EXPECT_EQ(app.takeCallbacks(), "3 loaded, 0 failed, 1 finished");
}

TEST_F(AdSlotsTest, APassDuringAPassIsRefused) {
  network.serve("https://main.test/a.png", "a");
  network.hold("a.png");
  app.load({banner("a", 1, "a.png")});
  app.load({banner("b", 1, "b.png")});
  app.settle();
  EXPECT_EQ(app.takeCallbacks(), "0 loaded, 1 failed, 1 finished");
  EXPECT_EQ(app.slots->status(), "loading\nbusy: not loaded");
  network.release("a.png");  // the first pass continues
  app.settle();
  EXPECT_EQ(app.takeCallbacks(), "1 loaded, 0 failed, 1 finished");
  EXPECT_EQ(app.slots->status(), "done");
  EXPECT_THAT(network.requests(), ElementsAre("https://main.test/a.png"));
}

TEST_F(AdSlotsTest, AStoppedPassKeepsWhatHasCome) {
  network.serve("https://main.test/a.png", "a");
  network.serve("https://main.test/b.png", "b");
  network.hold("b.png");
  app.load({banner("a", 1, "a.png"), banner("b", 1, "b.png", 9)});
  app.settle();
  app.slots->stop();
  network.release("b.png");
  app.settle();
  EXPECT_EQ(app.takeCallbacks(), "1 loaded, 0 failed, 1 finished");
  EXPECT_EQ(app.slots->status(), "stopped");
  EXPECT_THAT(app.takeDrawn(), ElementsAre("start: a"));
  EXPECT_THAT(network.requests(), ElementsAre("https://main.test/a.png"));
}

TEST_F(AdSlotsTest, NothingIsDownloadedDuringACall) {
  network.serve("https://main.test/a.png", "a");
  app.slots->setInCall(true);
  app.load({banner("a", 1, "a.png")});
  app.settle();
  EXPECT_THAT(network.requests(), IsEmpty());
  EXPECT_EQ(app.slots->status(), "loading");
  app.slots->setInCall(false);
  app.settle();
  EXPECT_THAT(app.takeDrawn(), ElementsAre("start: a"));
}

TEST_F(AdSlotsTest, SlotsThatAreGoneHearNothing) {
  network.serve("https://main.test/a.png", "a");
  app.load({banner("a", 1, "a.png")});
  app.slots.reset();
  app.settle();
  EXPECT_EQ(app.takeCallbacks(), "1 loaded, 0 failed, 1 finished");
  EXPECT_THAT(app.takeDrawn(), IsEmpty());
}

// --- What is shown stays ------------------------------------------------------------------------

TEST_F(AdSlotsTest, WhatIsShownStaysUntilANewerVersionIsDrawn) {
  loadSpring();
  const std::string stored = app.manager->allLoadedResources().front()->useFilePaths().front();
  const std::string shown = app.drawnPath;
  network.serve("https://main.test/spring-2.png", "spring, 2");
  app.load({banner("spring", 2, "spring-2.png")});
  EXPECT_TRUE(network.answer());
  kiv::DispatchQueue::main()->drain();  // the manager has the newer one, the slots do not know yet
  EXPECT_EQ(contentsOf(stored), "(no file)");
  EXPECT_EQ(contentsOf(shown), "spring");
  app.settle();
  EXPECT_THAT(app.takeDrawn(), ElementsAre("start: spring, 2"));
  EXPECT_EQ(contentsOf(shown), "(no file)");
}

TEST_F(AdSlotsTest, APageKeepsItsFolderAsLongAsItIsShown) {
  network.serve("https://main.test/page.zip", contentsOf(PAGE_ARCHIVE));
  app.load({page("hello", 1, "page.zip")});
  app.settle();
  EXPECT_THAT(app.takeDrawn(), ElementsAre(testing::HasSubstr("<p>Hello</p>")));
  const auto style = std::filesystem::path(app.drawnPath).replace_filename("page.css").string();
  // Other software of the user's removes the stored page: what is shown is whole nevertheless.
  for (const auto& path : app.manager->allLoadedResources().front()->useFilePaths())
    std::filesystem::remove_all(std::filesystem::path(path).parent_path());
  EXPECT_THAT(contentsOf(style), testing::HasSubstr("navy"));
  app.slots.reset();
  EXPECT_EQ(contentsOf(style), "(no file)");
}

TEST_F(AdSlotsTest, ABannerThatIsDroppedLeavesItsSlot) {
  loadSpring();
  network.serve("https://main.test/page.zip", contentsOf(PAGE_ARCHIVE));
  app.load({page("hello", 1, "page.zip")});
  app.settle();
  EXPECT_THAT(app.takeDrawn(), testing::Contains("start: "));
  EXPECT_EQ(app.slots->shownIn("start"), "");
  EXPECT_EQ(app.slots->shownIn("page"), "hello");
}

TEST_F(AdSlotsTest, TrimmingNeverRemovesWhatIsShown) {
  network.serve("https://main.test/low.png", std::string(100'000, 'l'));
  network.serve("https://main.test/high.png", std::string(100'000, 'h'));
  app.load({banner("low", 1, "low.png", 1), banner("high", 1, "high.png", 9)});
  app.settle();
  EXPECT_FALSE(app.slots->bound(0));  // it cannot be kept
  ASSERT_EQ(app.manager->allLoadedResources().size(), 1U);
  EXPECT_EQ(app.slots->shownIn("start"), "high");
  EXPECT_EQ(contentsOf(app.drawnPath), std::string(100'000, 'h'));
  EXPECT_TRUE(app.slots->bound(1'000'000));
}

// --- Files that change under their names --------------------------------------------------------

TEST_F(AdSlotsTest, AFileThatHasNotChangedIsNotSentAgain) {
  loadSpring();
  const std::size_t bytes = network.bodyBytes();
  app.slots->refresh();
  app.settle();
  EXPECT_THAT(app.takeDrawn(), IsEmpty());
  EXPECT_EQ(app.slots->status(), "done");
  EXPECT_EQ(network.requests().size(), 2U);
  EXPECT_EQ(network.bodyBytes(), bytes);
}

TEST_F(AdSlotsTest, AFileThatHasChangedIsDrawnAgain) {
  loadSpring();
  network.serve("https://main.test/spring.png", "corrected", "\"2\"");
  app.slots->refresh();
  app.settle();
  EXPECT_THAT(app.takeDrawn(), ElementsAre("start: corrected"));
  EXPECT_EQ(app.takeCallbacks(), "0 loaded, 0 failed, 0 finished");  // no resource has changed
}

}  // namespace
