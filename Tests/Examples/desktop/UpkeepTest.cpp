// The session's operations on a cache that is filled: following an address, checking the stored
// files, freeing space.

#include <QDir>
#include <QFile>
#include <functional>
#include <optional>

#include <gtest/gtest.h>

#include "Examples/desktop/CacheSession.h"
#include "Tests/Examples/desktop/SessionFixture.h"
#include "Tests/Support/LoopbackServer.h"

using kiv::test::content;
using kiv::test::LoopbackServer;
using kiv::test::Response;
using kiv::test::served;
using kiv::test::waitUntil;
using Pass = CacheSession::Pass;

class UpkeepTest : public kiv::test::SessionFixture {
 protected:
  bool waitForCheck() {
    return waitUntil([this] { return checks_ > 0; });
  }

  bool revalidate() {
    revalidations_ = 0;
    session_->revalidate();
    return waitUntil([this] { return revalidations_ > 0; });
  }

  /// The answer to planSpace() or freeSpace().
  SpaceSummary answer(void (CacheSession::*signal)(const SpaceSummary&),
                      const std::function<void()>& ask) {
    std::optional<SpaceSummary> told;
    const auto connection = QObject::connect(
        session_.get(), signal, [&told](const SpaceSummary& summary) { told = summary; });
    ask();
    EXPECT_TRUE(waitUntil([&] { return told.has_value(); }));
    QObject::disconnect(connection);
    return told.value_or(SpaceSummary());
  }

  SpaceSummary plan(const SpaceBound& bound) {
    return answer(&CacheSession::spacePlanned, [&] { session_->planSpace(bound); });
  }

  SpaceSummary freeSpace(const SpaceBound& bound) {
    return answer(&CacheSession::spaceFreed, [&] { session_->freeSpace(bound); });
  }
};

TEST_F(UpkeepTest, FollowsAnAddress) {
  kiv::ContentServer configurations(content("").toStdString());
  ASSERT_TRUE(configurations.start());
  const QString url = QString::fromStdString(configurations.url());
  open();
  session_->follow(url + "/first.json");
  EXPECT_TRUE(session_->isFollowing());
  ASSERT_TRUE(waitForCheck());
  EXPECT_EQ(summary_.changes, "6 new");
  EXPECT_EQ(items_.size(), 6);
  EXPECT_EQ(loaded_, 6);
  session_->stopFollowing();
  EXPECT_FALSE(session_->isFollowing());

  checks_ = 0;
  session_->follow(url + "/second.json");
  ASSERT_TRUE(waitForCheck());
  EXPECT_EQ(summary_.changes, "1 new, 1 replaced, 1 dropped");
  EXPECT_EQ(summary_.failures.size(), 1);
  EXPECT_FALSE(item("harbour-ferry"));
}

TEST_F(UpkeepTest, SaysWhyAnAddressCannotBeFollowed) {
  open();
  session_->follow("first.json");
  ASSERT_TRUE(waitForCheck());
  EXPECT_FALSE(session_->isFollowing());
  ASSERT_EQ(summary_.failures.size(), 1);

  checks_ = 0;
  session_->follow(QString::fromStdString(server_.url()) + "/none.json");
  ASSERT_TRUE(waitForCheck());
  EXPECT_TRUE(session_->isFollowing());  // it may be there an hour later
  ASSERT_EQ(summary_.failures.size(), 1);
  EXPECT_TRUE(summary_.failures[0].reason.contains("404"));
}

TEST_F(UpkeepTest, StopFollowingStopsTheUpdateThatRuns) {
  kiv::ContentServer configurations(content("").toStdString());
  ASSERT_TRUE(configurations.start());
  LoopbackServer silent;
  useServer(silent.url());
  silent.serve("/banners/harbour-ferry.png", Response::ok("x").stallAt(0));
  open();
  session_->follow(QString::fromStdString(configurations.url()) + "/first.json");
  ASSERT_TRUE(silent.waitForRequests("/banners/harbour-ferry.png", 1));
  session_->stopFollowing();
  EXPECT_TRUE(silent.waitForNoConnection());
  useServer(server_.url());
  EXPECT_TRUE(run(Pass::load, content("first.json")));
  EXPECT_EQ(items_.size(), 6);
}

TEST_F(UpkeepTest, FetchesAFileThatHasChangedUnderItsName) {
  const QString name = "banners/harbour-ferry.png";
  const QString other = "banners/spring/v1/northlight-spring-1.png";
  QDir(QString::fromStdString(directory_.path())).mkpath("server/banners/spring/v1");
  const QString copy = QString::fromStdString(directory_.path("server/")) + name;
  ASSERT_TRUE(QFile::copy(served(name), copy));
  kiv::ContentServer server(directory_.path("server"));
  ASSERT_TRUE(server.start());
  useServer(server.url());
  open();
  ASSERT_TRUE(run(Pass::load, content("first.json")));
  const QString before = item("harbour-ferry")->version;

  ASSERT_TRUE(revalidate());
  EXPECT_EQ(summary_.changes, "1 unchanged");
  EXPECT_EQ(item("harbour-ferry")->version, before);

  ASSERT_TRUE(QFile::remove(copy));
  ASSERT_TRUE(QFile::copy(served(other), copy));
  ASSERT_TRUE(revalidate());
  EXPECT_EQ(summary_.changes, "1 changed and fetched");
  EXPECT_EQ(item("harbour-ferry")->picture, QImage(served(other)));
  EXPECT_NE(item("harbour-ferry")->version, before);
}

TEST_F(UpkeepTest, SaysWhatCouldNotBeChecked) {
  open();
  ASSERT_TRUE(run(Pass::load, content("first.json")));
  LoopbackServer empty;
  useServer(empty.url());
  ASSERT_TRUE(revalidate());
  EXPECT_EQ(summary_.changes, "");
  ASSERT_EQ(summary_.failures.size(), 6);
  for (const PassFailure& failure : summary_.failures)
    EXPECT_EQ(failure.tries.size(), 1) << failure.what.toStdString();
  EXPECT_EQ(items_.size(), 6);
}

TEST_F(UpkeepTest, ASessionMayGoWhileItChecks) {
  open();
  ASSERT_TRUE(run(Pass::load, content("first.json")));
  LoopbackServer silent;
  useServer(silent.url());
  silent.serve("/banners/harbour-ferry.png", Response::ok("x").stallAt(0));
  session_->revalidate();
  ASSERT_TRUE(silent.waitForRequests("/banners/harbour-ferry.png", 1));
  session_.reset();
  EXPECT_TRUE(silent.waitForNoConnection());
  kiv::test::runWaitingEvents();
  EXPECT_EQ(revalidations_, 0);
}

TEST_F(UpkeepTest, FreesWhatNoResourceUses) {
  open();
  ASSERT_TRUE(run(Pass::load, content("first.json")));
  ASSERT_TRUE(run(Pass::update, content("second.json")));
  const SpaceSummary planned = plan({0, false});
  EXPECT_GT(planned.files, 0);
  EXPECT_EQ(planned.resources, 0);
  const SpaceSummary freed = freeSpace({0, false});
  EXPECT_EQ(freed.files, planned.files);
  EXPECT_EQ(freed.usedBefore, planned.usedBefore);
  EXPECT_LT(freed.usedAfter, freed.usedBefore);
  EXPECT_EQ(plan({0, false}).files, 0);
}

TEST_F(UpkeepTest, NeverRemovesWhatIsOnShow) {
  open();
  ASSERT_TRUE(run(Pass::load, content("first.json")));
  // The items own the video and the pages. A picture is in memory, and one is packaged.
  const SpaceSummary freed = freeSpace({0, true});
  EXPECT_EQ(freed.resources, 2);
  EXPECT_FALSE(freed.isBoundKept);
  EXPECT_EQ(items_.size(), 4);
  EXPECT_TRUE(QFile::exists(item("night-train")->video));
  EXPECT_TRUE(QFile::exists(item("lighthouse")->page));
}

TEST_F(UpkeepTest, FreesNothingDuringAPass) {
  LoopbackServer silent;
  useServer(silent.url());
  silent.serve("/banners/harbour-ferry.png", Response::ok("x").stallAt(0));
  open();
  session_->start(Pass::load, content("first.json"));
  ASSERT_TRUE(silent.waitForRequests("/banners/harbour-ferry.png", 1));
  const SpaceSummary freed = freeSpace({0, true});
  EXPECT_FALSE(freed.problem.isEmpty());
  EXPECT_EQ(freed.files, 0);
}
