// Tests the program itself on a screen, with the content server, by key presses and screenshots.

#include <QProcess>
#include <QTest>
#include <csignal>
#include <functional>
#include <memory>

#include <gtest/gtest.h>

#include "Tests/Examples/desktop/Content.h"
#include "Tests/Examples/desktop/Picture.h"
#include "Tests/Support/TemporaryDirectory.h"

using kiv::test::content;
using kiv::test::difference;
using kiv::test::find;
using kiv::test::keep;
using kiv::test::screenshot;
using kiv::test::served;
using kiv::test::textIn;

namespace {

constexpr int patience = 60'000;  // milliseconds

/// A process that is terminated when it goes out of scope.
class Program {
 public:
  Program(const QString& path, const QStringList& arguments,
          const QProcessEnvironment& environment = QProcessEnvironment::systemEnvironment()) {
    process_.setProcessEnvironment(environment);
    process_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process_.start(path, arguments);
    EXPECT_TRUE(process_.waitForStarted(patience));
  }
  ~Program() {
    signal(SIGCONT);
    process_.terminate();
    const bool hasEnded =
        process_.state() == QProcess::NotRunning || process_.waitForFinished(patience);
    EXPECT_TRUE(hasEnded) << "the program does not end";
  }
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  void signal(int number) const {
    const auto process = static_cast<pid_t>(process_.processId());
    if (process > 0) kill(process, number);
  }

  /// The first line of its output.
  QString firstLine() {
    while (!process_.canReadLine()) {
      if (!process_.waitForReadyRead(patience)) return {};
    }
    return QString(process_.readLine()).trimmed();
  }

 private:
  QProcess process_;
};

}  // namespace

class WindowPictures : public testing::Test {
 protected:
  static std::unique_ptr<Program> serve(QString& url, const QStringList& more = {}) {
    auto server =
        std::make_unique<Program>(KIVRESOURCE_TOOL, QStringList{"serve", content("server")} + more);
    url = server->firstLine();
    EXPECT_TRUE(url.startsWith("http://"));
    return server;
  }

  /// Opens the window on the cache of this test.
  std::unique_ptr<Program> open(const QStringList& arguments, const QString& scale = "1") {
    auto environment = QProcessEnvironment::systemEnvironment();
    environment.insert("HOME", QString::fromStdString(directory_.path()));
    environment.insert("QT_SCALE_FACTOR", scale);
    return std::make_unique<Program>(
        KIVRESOURCE_DESKTOP,
        QStringList{"--root", QString::fromStdString(directory_.path("root"))} + arguments,
        environment);
  }

  /// A pass that never ends by itself, so that its progress can be observed.
  struct Halted {
    std::unique_ptr<Program> server;
    std::unique_ptr<Program> mirror;
    std::unique_ptr<Program> window;
  };

  /// The main server responds to the video with 503, and the mirror is stopped by SIGSTOP.
  Halted openWithTheVideoKeptBack() {
    QString url;
    QString mirrorURL;
    Halted pass;
    pass.server = serve(url, {"--fault", "/video/night-train.mp4=503"});
    pass.mirror = serve(mirrorURL);
    pass.mirror->signal(SIGSTOP);
    pass.window = open({"--server", url, "--mirror", mirrorURL, "--config", content("first.json")});
    return pass;
  }

  static void press(const QString& keys) {
    QProcess xdotool;
    xdotool.start("xdotool",
                  {"search", "--sync", "--name", "Resource cache", "windowfocus", "key", keys});
    EXPECT_TRUE(xdotool.waitForFinished(patience));
    EXPECT_EQ(xdotool.exitCode(), 0);
  }

  /// Takes screenshots until one meets the condition. Saves that one or, after the time-out, the
  /// last one.
  static QImage waitForPicture(const QString& name,
                               const std::function<bool(const QImage&)>& isAsItIsToBe) {
    QImage picture;
    const bool came = QTest::qWaitFor(
        [&] {
          picture = screenshot();
          return isAsItIsToBe(picture);
        },
        patience);
    keep(picture, name);
    EXPECT_TRUE(came) << "never seen: " << name.toStdString()
                      << ". The last picture says: " << textIn(picture).toStdString();
    return picture;
  }

  /// Text recognition takes a second, so its result is cached.
  bool says(const QImage& picture, const QString& text) {
    if (picture.cacheKey() != lastRead_) {
      lastRead_ = picture.cacheKey();
      lastText_ = textIn(picture);
    }
    return lastText_.contains(text);
  }

  /// True if the picture shows one of the two pages: the one that was loaded first.
  bool showsAPage(const QImage& picture) {
    return says(picture, "Climb one hundred") || says(picture, "The second loaf");
  }

  qint64 lastRead_ = 0;
  QString lastText_;
  kiv::test::TemporaryDirectory directory_;
  const QImage spring_{served("banners/spring/v1/northlight-spring-1.png")};
  const QImage newSpring_{served("banners/spring/v2/northlight-spring-2.png")};
  const QImage ferry_{served("banners/harbour-ferry.png")};
};

TEST_F(WindowPictures, BeforeDuringAndAfterAPass) {
  const Halted pass = openWithTheVideoKeptBack();

  const QImage before = waitForPicture(
      "before", [&](const QImage& picture) { return says(picture, "Nothing is cached yet"); });
  EXPECT_FALSE(find(ferry_, before));

  press("ctrl+l");
  const QImage during = waitForPicture("during", [&](const QImage& picture) {
    return find(ferry_, picture) && find(spring_, picture) && says(picture, "5 of 6 files");
  });
  EXPECT_FALSE(says(during, "1,287 votes"));

  pass.mirror->signal(SIGCONT);
  const QImage after = waitForPicture("window", [&](const QImage& picture) {
    return find(ferry_, picture) && says(picture, "Done: 6 resources") &&
           says(picture, "1,287 votes") && says(picture, "Fall asleep in the city") &&
           showsAPage(picture);
  });
  EXPECT_TRUE(find(spring_, after));
  EXPECT_TRUE(says(after, "The Night Train"));

  // Between two screenshots only the video has changed.
  QRect changed;
  waitForPicture("window-later", [&](const QImage& picture) {
    changed = difference(after, picture);
    return !changed.isEmpty();
  });
  EXPECT_LE(changed.width(), 432);
  EXPECT_LE(changed.height(), 243);
}

TEST_F(WindowPictures, AServerThatDiesInThePassLeavesWhatCameAndTheReason) {
  const Halted pass = openWithTheVideoKeptBack();
  waitForPicture("before-death",
                 [&](const QImage& picture) { return says(picture, "Nothing is cached yet"); });
  press("ctrl+l");
  waitForPicture("alive", [&](const QImage& picture) {
    return find(ferry_, picture) && says(picture, "5 of 6 files");
  });

  pass.mirror->signal(SIGKILL);  // while the request for the video is pending
  pass.server->signal(SIGKILL);
  const QImage dead = waitForPicture("dead", [&](const QImage& picture) {
    return says(picture, "1 failed") && find(ferry_, picture);
  });
  EXPECT_TRUE(says(dead, "5 resources in the cache"));
  EXPECT_TRUE(says(dead, "The Night Train, spot"));
  EXPECT_TRUE(find(spring_, dead));
}

TEST_F(WindowPictures, TheCacheWithoutAServerAndThenAnUpdate) {
  QString url;
  auto server = serve(url);
  auto window = open({"--server", url, "--config", content("first.json")});
  press("ctrl+l");
  waitForPicture("loaded",
                 [&](const QImage& picture) { return says(picture, "Done: 6 resources"); });
  window.reset();
  server.reset();

  window = open({"--server", url, "--config", content("second.json")});
  const QImage cached = waitForPicture("without-server", [&](const QImage& picture) {
    return find(spring_, picture) && says(picture, "1,287 votes");
  });
  EXPECT_TRUE(says(cached, "6 resources in the cache"));
  press("ctrl+u");
  waitForPicture("server-is-off", [&](const QImage& picture) {
    return says(picture, "Lost balloon") && find(spring_, picture) &&
           says(picture, "resources in the cache");
  });
  window.reset();

  server = serve(url);
  window = open({"--server", url, "--config", content("second.json")});
  waitForPicture("restarted",
                 [&](const QImage& picture) { return find(spring_, picture).has_value(); });
  press("ctrl+u");
  const QImage updated = waitForPicture("updated", [&](const QImage& picture) {
    return find(newSpring_, picture) && says(picture, "404");
  });
  EXPECT_FALSE(find(spring_, updated));
  EXPECT_FALSE(find(ferry_, updated));
}

TEST_F(WindowPictures, EveryPointIsFourPixelsOnAScreenOfTwiceTheDensity) {
  QString url;
  auto server = serve(url);
  auto window = open({"--server", url, "--config", content("first.json")}, "2");
  press("ctrl+l");
  const QImage twice =
      ferry_.scaled(ferry_.size() * 2, Qt::IgnoreAspectRatio, Qt::FastTransformation);
  const QImage picture = waitForPicture("high-dpi", [&](const QImage& seen) {
    return find(twice, seen) && says(seen, "1,287 votes") &&
           says(seen, "Fall asleep in the city") && showsAPage(seen);
  });
  EXPECT_TRUE(says(picture, "The Night Train"));
}

TEST_F(WindowPictures, ANarrowWindowHasThePagesBelowAndScrolls) {
  QString url;
  auto server = serve(url);
  auto window = open({"--server", url, "--config", content("first.json")});
  press("ctrl+l");
  waitForPicture("wide", [&](const QImage& picture) {
    return says(picture, "Done: 6 resources") && find(ferry_, picture);
  });
  QProcess xdotool;
  xdotool.start("xdotool", {"search", "--name", "Resource cache", "windowsize", "720", "1240"});
  ASSERT_TRUE(xdotool.waitForFinished(patience));
  const QImage leftPart = ferry_.copy(0, 0, 600, 90);
  const QImage picture = waitForPicture("narrow", [&](const QImage& seen) {
    return find(leftPart, seen) && !find(ferry_, seen) && says(seen, "Lighthouse Museum") &&
           says(seen, "1,287 vot");
  });
  EXPECT_TRUE(says(picture, "Done: 6 resources"));
}
