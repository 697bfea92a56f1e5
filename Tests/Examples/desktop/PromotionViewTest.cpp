#include <QFile>
#include <QMediaPlayer>
#include <QPushButton>
#include <QVideoSink>

#include <gtest/gtest.h>

#include "Examples/desktop/ElidedLabel.h"
#include "Examples/desktop/PromotionView.h"
#include "Examples/desktop/VideoArea.h"
#include "Tests/Examples/desktop/Content.h"
#include "Tests/Examples/desktop/Waiting.h"
#include "Tests/Support/TemporaryDirectory.h"

using kiv::test::waitUntil;

class PromotionViewTest : public testing::Test {
 protected:
  PromotionViewTest() {
    view_.resize(740, 260);
    view_.show();
    video_ = view_.findChild<VideoArea*>();
    QObject::connect(video_->sink(), &QVideoSink::videoFrameChanged, [this] { ++frames_; });
  }

  /// Copies the sample video to a file with that name.
  QString video(const char* name) const {
    const QString path = QString::fromStdString(directory_.path(name));
    EXPECT_TRUE(QFile::copy(kiv::test::served("video/night-train.mp4"), path));
    return path;
  }

  static CacheItem item(const QString& video, const QString& version) {
    CacheItem item;
    item.kind = CacheItem::Kind::promotion;
    item.title = "The Night Train";
    item.video = video;
    item.version = version;
    return item;
  }

  [[nodiscard]] bool isPlaying() const {
    return view_.player().playbackState() == QMediaPlayer::PlayingState;
  }

  bool waitForFrames(int count) {
    const int wanted = frames_ + count;
    return waitUntil([this, wanted] { return frames_ >= wanted; });
  }

  kiv::test::TemporaryDirectory directory_;
  PromotionView view_;
  VideoArea* video_;
  int frames_ = 0;
};

TEST_F(PromotionViewTest, PlaysOverAndOver) {
  view_.present(item(video("a.mp4"), "1"));
  view_.play();
  ASSERT_TRUE(waitUntil([&] { return view_.player().position() > 0; }));
  qint64 last = 0;
  EXPECT_TRUE(waitUntil([&] {
    const qint64 position = view_.player().position();
    return position < std::exchange(last, position);
  })) << "it never began again";
  EXPECT_TRUE(isPlaying());
  EXPECT_TRUE(waitForFrames(5));
}

TEST_F(PromotionViewTest, ShowsFramesThatDiffer) {
  view_.present(item(video("a.mp4"), "1"));
  view_.play();
  ASSERT_TRUE(waitForFrames(1));
  const QImage first = video_->grab().toImage();
  EXPECT_TRUE(waitUntil([&] { return video_->grab().toImage() != first; }));
}

TEST_F(PromotionViewTest, GoesOnWhileItsFileIsRemoved) {
  const QString path = video("a.mp4");
  view_.present(item(path, "1"));
  view_.play();
  ASSERT_TRUE(waitForFrames(5));
  ASSERT_TRUE(QFile::remove(path));
  // Play past the end, where it starts again from the beginning.
  EXPECT_TRUE(waitForFrames(200));
  EXPECT_TRUE(isPlaying());
  EXPECT_EQ(view_.player().error(), QMediaPlayer::NoError);
}

TEST_F(PromotionViewTest, PlaysTheNewVersionInPlaceOfTheOneThatWasRemoved) {
  const QString old = video("old.mp4");
  view_.present(item(old, "1"));
  view_.play();
  ASSERT_TRUE(waitForFrames(5));
  ASSERT_TRUE(QFile::remove(old));
  const QString newer = video("new.mp4");
  view_.present(item(newer, "2"));
  EXPECT_EQ(view_.player().source(), QUrl::fromLocalFile(newer));
  EXPECT_TRUE(isPlaying());
  EXPECT_TRUE(waitForFrames(5));
  EXPECT_EQ(view_.player().error(), QMediaPlayer::NoError);
}

TEST_F(PromotionViewTest, ANewVersionOfAPausedVideoStaysPaused) {
  view_.present(item(video("old.mp4"), "1"));
  view_.present(item(video("new.mp4"), "2"));
  EXPECT_FALSE(isPlaying());
}

TEST_F(PromotionViewTest, TheSameVersionAgainDoesNotDisturbIt) {
  const CacheItem same = item(video("a.mp4"), "1");
  view_.present(same);
  view_.play();
  ASSERT_TRUE(waitUntil([&] { return view_.player().position() > 200; }));
  view_.present(same);
  EXPECT_GT(view_.player().position(), 0);
  EXPECT_TRUE(isPlaying());
}

TEST_F(PromotionViewTest, AFileThatIsNoVideoIsToldAndBreaksNothing) {
  const auto path = directory_.write("broken.mp4", "no video at all");
  view_.present(item(QString::fromStdString(path), "1"));
  const QImage before = video_->grab().toImage();
  view_.play();
  // An error message replaces the video.
  EXPECT_TRUE(waitUntil([&] { return video_->grab().toImage() != before; }));
  EXPECT_NE(view_.player().error(), QMediaPlayer::NoError);
}

TEST_F(PromotionViewTest, AButtonPausesAndPlays) {
  view_.present(item(video("a.mp4"), "1"));
  auto* const button = view_.findChildren<QPushButton*>().first();
  button->click();
  EXPECT_TRUE(isPlaying());
  button->click();
  EXPECT_EQ(view_.player().playbackState(), QMediaPlayer::PausedState);
}

TEST_F(PromotionViewTest, EndsATitleThatIsTooLongInAnEllipsis) {
  CacheItem longTitle = item(video("a.mp4"), "1");
  view_.present(longTitle);
  auto* const label = view_.findChild<ElidedLabel*>();
  EXPECT_FALSE(label->isElided());
  kiv::test::runWaitingEvents();
  const int width = view_.minimumSizeHint().width();
  longTitle.title = QString("An unusually long title ").repeated(20);
  view_.present(longTitle);
  kiv::test::runWaitingEvents();
  EXPECT_TRUE(label->isElided());
  EXPECT_EQ(view_.minimumSizeHint().width(), width);  // a long text does not widen the window
}
