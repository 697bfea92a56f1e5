#include <gtest/gtest.h>

#include "Examples/desktop/CacheSession.h"
#include "Tests/Examples/desktop/SessionFixture.h"
#include "Tests/Support/FaultyFileManager.h"
#include "Tests/Support/LoopbackServer.h"

using kiv::test::content;
using kiv::test::FaultyFileManager;
using kiv::test::LoopbackServer;
using kiv::test::Response;
using kiv::test::served;
using kiv::test::waitUntil;
using Pass = CacheSession::Pass;

class CacheSessionTest : public kiv::test::SessionFixture {
 protected:
  /// Writes a configuration with one banner and returns its path.
  QString banner(const std::string& link) const {
    return QString::fromStdString(directory_.write(
        "banner.json",
        R"({"items": [{"engine": "eco_standard", "name": "A banner", "type": "t", "banner_id": "1",
            "priority": 1, "updated": 1, "market_url": "file:///etc/passwd", "image_728x90": ")" +
            link + R"("}]})"));
  }

  /// Opens the session and starts a pass whose only file the server never sends.
  bool startAPassThatWaitsFor(LoopbackServer& silent) {
    useServer(silent.url());
    silent.serve("/a.png", Response::ok("x").stallAt(0));
    open();
    session_->start(Pass::load, banner("a.png"));
    return silent.waitForRequests("/a.png", 1);
  }
};

TEST_F(CacheSessionTest, AnnouncesAnEmptyCache) {
  open();
  ASSERT_TRUE(waitForContents());
  EXPECT_TRUE(items_.isEmpty());
  EXPECT_FALSE(session_->isRunning());
}

TEST_F(CacheSessionTest, TellsPlainValuesOfEveryKind) {
  open();
  ASSERT_TRUE(run(Pass::load, content("first.json")));
  EXPECT_EQ(items_.size(), 6);
  EXPECT_EQ(loaded_, 6);
  EXPECT_TRUE(failures_.isEmpty());

  const CacheItem* const banner = item("harbour-ferry");
  ASSERT_TRUE(banner);
  EXPECT_EQ(banner->kind, CacheItem::Kind::banner);
  EXPECT_EQ(banner->picture, QImage(served("banners/harbour-ferry.png")));
  EXPECT_EQ(banner->market, QUrl("https://ferry.example/timetable"));

  const CacheItem* const promotion = item("night-train");
  ASSERT_TRUE(promotion);
  EXPECT_EQ(promotion->kind, CacheItem::Kind::promotion);
  EXPECT_EQ(promotion->title, "The Night Train");
  EXPECT_EQ(promotion->votes, 1287U);
  EXPECT_NEAR(promotion->rating, 4.7, 1e-6);
  EXPECT_TRUE(promotion->video.endsWith("/night-train.mp4"));

  const CacheItem* const page = item("lighthouse");
  ASSERT_TRUE(page);
  EXPECT_EQ(page->kind, CacheItem::Kind::page);
  EXPECT_TRUE(page->page.endsWith("/lighthouse/index.html"));
}

TEST_F(CacheSessionTest, TellsHowFarThePassHasCome) {
  LoopbackServer slow;
  useServer(slow.url());
  const kiv::test::Gate gate;
  slow.serve("/a.png", Response::ok(std::string(200'000, 'x')).gateAt(150'000, gate));
  open();
  session_->start(Pass::load, banner("a.png"));
  ASSERT_TRUE(waitUntil([&] { return progress_.bytes == 150'000; }));
  EXPECT_EQ(progress_.files, 1);
  EXPECT_EQ(progress_.filesDone, 0);
  EXPECT_EQ(progress_.bytesExpected, 200'000);
  EXPECT_TRUE(session_->isRunning());
  gate.open();
  EXPECT_TRUE(waitForEnd());
}

TEST_F(CacheSessionTest, ShowsWhatIsCachedWithoutAServer) {
  open();
  ASSERT_TRUE(run(Pass::load, content("first.json")));
  session_.reset();
  server_.stop();
  items_.clear();
  announcements_ = 0;
  open();
  ASSERT_TRUE(waitForContents());
  EXPECT_EQ(items_.size(), 6);
}

TEST_F(CacheSessionTest, AnUpdateBringsTheNewVersionAndDropsWhatIsNotNamed) {
  open();
  ASSERT_TRUE(run(Pass::load, content("first.json")));
  const QString before = item("northlight-spring")->version;
  ASSERT_TRUE(run(Pass::update, content("second.json")));
  const CacheItem* const banner = item("northlight-spring");
  ASSERT_TRUE(banner);
  EXPECT_EQ(banner->picture, QImage(served("banners/spring/v2/northlight-spring-2.png")));
  EXPECT_NE(banner->version, before);
  EXPECT_FALSE(item("harbour-ferry"));
  ASSERT_EQ(failures_.size(), 1);
  EXPECT_EQ(failures_[0].what, "Lost balloon");
  EXPECT_TRUE(failures_[0].reason.contains("404")) << failures_[0].reason.toStdString();
  EXPECT_EQ(summary_.changes, "1 new, 1 replaced, 1 dropped");
}

TEST_F(CacheSessionTest, TheSummaryTellsTheTriesOfEachFailure) {
  LoopbackServer main;
  LoopbackServer mirror;
  main.serve("/a.png", Response::status(404));
  mirror.serve("/a.png", Response::status(410));
  useServer(main.url());
  KivAppConfiguration::sharedInstance()->setReserveACSDomain(mirror.url());
  open();
  ASSERT_TRUE(run(Pass::load, banner("a.png")));
  ASSERT_EQ(summary_.failures.size(), 1);
  EXPECT_EQ(summary_.failures[0].what, "A banner");
  const auto url = [](const LoopbackServer& server) {
    return QString::fromStdString(server.url() + "/a.png");
  };
  EXPECT_EQ(summary_.failures[0].tries,
            (QStringList{url(main) + ": status 404", url(mirror) + ": status 410"}));
}

TEST_F(CacheSessionTest, APauseKeepsThePassAndContinuesIt) {
  LoopbackServer slow;
  useServer(slow.url());
  slow.serve("/a.png", Response::ok(std::string(200'000, 'x')).stallAt(150'000));
  open();
  session_->start(Pass::load, banner("a.png"));
  ASSERT_TRUE(waitUntil([&] { return progress_.bytes == 150'000; }));
  session_->setPaused(true);
  EXPECT_TRUE(slow.waitForNoConnection());
  EXPECT_TRUE(session_->isRunning());
  slow.serve("/a.png", Response::ok(std::string(200'000, 'x')));
  session_->setPaused(false);
  ASSERT_TRUE(waitForEnd());
  EXPECT_TRUE(summary_.failures.isEmpty());
  EXPECT_EQ(summary_.changes, "1 new");
}

TEST_F(CacheSessionTest, APausedPassCanBeStopped) {
  LoopbackServer silent;
  ASSERT_TRUE(startAPassThatWaitsFor(silent));
  session_->setPaused(true);
  EXPECT_TRUE(silent.waitForNoConnection());
  session_->stop();
  ASSERT_TRUE(waitForEnd());
  EXPECT_EQ(summary_.changes, "1 not loaded");
  // The next session of the process is not paused.
  session_.reset();
  useServer(server_.url());
  open();
  EXPECT_TRUE(run(Pass::load, content("first.json")));
  EXPECT_EQ(items_.size(), 6);
}

TEST_F(CacheSessionTest, AnotherPassWithTheSameConfigurationChangesNoItem) {
  open();
  ASSERT_TRUE(run(Pass::load, content("first.json")));
  const QList<CacheItem> before = items_;
  ASSERT_TRUE(run(Pass::update, content("first.json")));
  EXPECT_EQ(summary_.changes, "");
  ASSERT_EQ(items_.size(), before.size());
  for (const CacheItem& item : before)
    EXPECT_EQ(this->item(item.id)->version, item.version) << item.id.toStdString();
}

TEST_F(CacheSessionTest, AServerThatDiesInThePassEndsItWithTheReasonInWords) {
  LoopbackServer dying;
  useServer(dying.url());
  dying.serve("/banners/harbour-ferry.png", Response::ok("a picture"));
  dying.serve("/video/night-train.mp4", Response::ok(std::string(500'000, 'x')).closeAt(100'000));
  open();
  ASSERT_TRUE(run(Pass::load, content("first.json")));
  bool isTold = false;
  for (const PassFailure& failure : failures_)
    isTold = isTold || (failure.what == "The Night Train, spot" && failure.reason.size() > 10);
  EXPECT_TRUE(isTold);
  EXPECT_TRUE(item("harbour-ferry"));  // resources that were complete stay
  EXPECT_FALSE(item("night-train"));
}

TEST_F(CacheSessionTest, StopEndsAPassThatWouldWaitForLong) {
  LoopbackServer silent;
  ASSERT_TRUE(startAPassThatWaitsFor(silent));
  EXPECT_TRUE(session_->isRunning());
  session_->stop();
  ASSERT_TRUE(waitForEnd());
  EXPECT_FALSE(session_->isRunning());
  EXPECT_TRUE(failures_.isEmpty());
  // The next pass is accepted.
  useServer(server_.url());
  EXPECT_TRUE(run(Pass::load, content("first.json")));
  EXPECT_EQ(items_.size(), 6);
}

TEST_F(CacheSessionTest, MayGoInTheMiddleOfAPass) {
  LoopbackServer silent;
  ASSERT_TRUE(startAPassThatWaitsFor(silent));
  session_.reset();
  EXPECT_TRUE(silent.waitForNoConnection());
  const int before = announcements_;
  kiv::test::runWaitingEvents();
  EXPECT_EQ(announcements_, before);
  EXPECT_EQ(ends_, 0);
}

TEST_F(CacheSessionTest, AFullDiskIsToldInWordsAndWhatIsThereStays) {
  open();
  ASSERT_TRUE(run(Pass::load, content("first.json")));
  FaultyFileManager disk;
  disk.setAvailableSpace(1000);
  ASSERT_TRUE(run(Pass::update, content("second.json")));
  ASSERT_EQ(failures_.size(), 3);
  for (const PassFailure& failure : failures_) {
    if (failure.what == "Lost balloon") continue;
    EXPECT_TRUE(failure.reason.contains("1000")) << failure.reason.toStdString();
  }
  EXPECT_EQ(item("northlight-spring")->picture,
            QImage(served("banners/spring/v1/northlight-spring-1.png")));
}

TEST_F(CacheSessionTest, TakesItsConfigurationFromAnAddress) {
  kiv::ContentServer configurations(content("").toStdString());
  ASSERT_TRUE(configurations.start());
  const QString url = QString::fromStdString(configurations.url());
  open();
  ASSERT_TRUE(run(Pass::load, url + "/first.json"));
  EXPECT_EQ(items_.size(), 6);

  ASSERT_TRUE(run(Pass::load, url + "/none.json"));
  ASSERT_EQ(summary_.failures.size(), 1);
  EXPECT_TRUE(summary_.failures[0].reason.contains("404"));

  configurations.stop();
  ASSERT_TRUE(run(Pass::load, url + "/first.json"));
  ASSERT_EQ(summary_.failures.size(), 1);
  EXPECT_GT(summary_.failures[0].reason.size(), 10);
}

TEST_F(CacheSessionTest, TellsWhatIsWrongWithAConfigurationFile) {
  open();
  ASSERT_TRUE(run(Pass::load, QString::fromStdString(directory_.path("none.json"))));
  ASSERT_EQ(summary_.failures.size(), 1);
  EXPECT_FALSE(summary_.failures[0].reason.isEmpty());
  const auto broken = directory_.write("broken.json", "{\"items\": [}");
  ASSERT_TRUE(run(Pass::update, QString::fromStdString(broken)));
  ASSERT_EQ(summary_.failures.size(), 1);
  EXPECT_TRUE(summary_.failures[0].reason.contains("line"))
      << summary_.failures[0].reason.toStdString();
}

TEST_F(CacheSessionTest, GivesNoLinkThatDoesNotLeadToTheWeb) {
  directory_.write("server/a.png", "no picture");
  kiv::ContentServer server(directory_.path("server"));
  ASSERT_TRUE(server.start());
  useServer(server.url());
  open();
  ASSERT_TRUE(run(Pass::load, banner("a.png")));
  ASSERT_EQ(items_.size(), 1);
  EXPECT_TRUE(items_[0].market.isEmpty());
  EXPECT_TRUE(items_[0].picture.isNull());
}
