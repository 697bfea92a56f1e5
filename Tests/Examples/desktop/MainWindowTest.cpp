#include <QAbstractButton>
#include <QApplication>
#include <QCheckBox>
#include <QLabel>
#include <QPointer>
#include <QScrollBar>
#include <QSpinBox>
#include <QStackedWidget>
#include <QTabBar>
#include <QTreeWidget>
#include <optional>

#include <gtest/gtest.h>

#include "Examples/desktop/BannerView.h"
#include "Examples/desktop/ElidedLabel.h"
#include "Examples/desktop/Gallery.h"
#include "Examples/desktop/MainWindow.h"
#include "Examples/desktop/PageView.h"
#include "Examples/desktop/PassStatus.h"
#include "Examples/desktop/SpaceDialog.h"
#include "Tests/Examples/desktop/Browser.h"
#include "Tests/Examples/desktop/Picture.h"
#include "Tests/Examples/desktop/SessionFixture.h"

using kiv::test::content;
using kiv::test::screenshot;
using kiv::test::served;
using kiv::test::waitUntil;
using Pass = CacheSession::Pass;

class MainWindowTest : public kiv::test::SessionFixture {
 protected:
  void openWindow() {
    open();
    window_.emplace(*session_, QStringList{content("first.json"), content("second.json")});
    window_->show();
    window_->activateWindow();
    ASSERT_TRUE(waitUntil([&] { return QApplication::activeWindow() == &*window_; }));
    ASSERT_TRUE(waitForContents());
  }

  [[nodiscard]] bool isEmptyStateShown() const {
    return window_->findChild<QStackedWidget*>()->currentIndex() == 0;
  }

  [[nodiscard]] BannerView* banner(const QString& title) const {
    for (BannerView* view : window_->findChildren<BannerView*>()) {
      if (view->text() == title) return view;
    }
    return nullptr;
  }

  [[nodiscard]] QString status() const {
    return window_->findChild<PassStatus*>()->findChild<ElidedLabel*>()->text();
  }

  [[nodiscard]] bool isPauseShown() const {
    for (const QLabel* label : window_->findChild<PassStatus*>()->findChildren<QLabel*>()) {
      if (label->text() == "Paused") return label->isVisible();
    }
    ADD_FAILURE() << "there is no label for the pause";
    return false;
  }

  /// True if the view shows exactly the picture, without scaling.
  static bool shows(BannerView& view, const QString& file) {
    const QImage picture = QImage(file).convertToFormat(QImage::Format_RGB32);
    const QImage seen = view.grab(QRect(QPoint(3, 3), picture.size())).toImage();
    return seen.convertToFormat(QImage::Format_RGB32) == picture;
  }

  kiv::test::Browser browser_;
  std::optional<MainWindow> window_;
};

TEST_F(MainWindowTest, SaysThatNothingIsCachedAndThenShowsWhatHasCome) {
  openWindow();
  EXPECT_TRUE(isEmptyStateShown());
  EXPECT_EQ(status(), "0 resources in the cache");
  ASSERT_TRUE(run(Pass::load, content("first.json")));
  EXPECT_FALSE(isEmptyStateShown());
  EXPECT_EQ(window_->findChildren<BannerView*>().size(), 3);
  EXPECT_EQ(window_->findChild<QTabBar*>()->count(), 2);
  EXPECT_EQ(status(), "Done: 6 resources in the cache · 6 new");
}

TEST_F(MainWindowTest, ShowsABannerAtItsOwnSizeAndTheNewVersionInTheSameView) {
  openWindow();
  ASSERT_TRUE(run(Pass::load, content("first.json")));
  BannerView* const view = banner("Northlight Bicycles, spring");
  ASSERT_TRUE(view);
  EXPECT_TRUE(shows(*view, served("banners/spring/v1/northlight-spring-1.png")));
  view->setFocus();
  ASSERT_TRUE(run(Pass::update, content("second.json")));
  EXPECT_EQ(banner("Northlight Bicycles, end of spring"), view);
  EXPECT_EQ(QApplication::focusWidget(), view);
  EXPECT_FALSE(banner("Harbour Ferry"));
  view->clearFocus();
  EXPECT_TRUE(shows(*view, served("banners/spring/v2/northlight-spring-2.png")));
}

TEST_F(MainWindowTest, IsNotMadeAnewWhenTheFirstPageComes) {
  openWindow();
  const WId before = window_->winId();
  ASSERT_TRUE(run(Pass::load, content("first.json")));
  ASSERT_TRUE(waitUntil([&] { return window_->findChild<PageView*>()->isVisible(); }));
  kiv::test::runWaitingEvents();
  EXPECT_EQ(window_->winId(), before);
  EXPECT_EQ(QApplication::activeWindow(), &*window_);
}

TEST_F(MainWindowTest, TellsWhatFailedInWords) {
  openWindow();
  ASSERT_TRUE(run(Pass::update, content("second.json")));
  const auto* const list = window_->findChild<QTreeWidget*>();
  ASSERT_EQ(list->topLevelItemCount(), 1);
  EXPECT_TRUE(list->isVisible());
  EXPECT_EQ(list->topLevelItem(0)->text(0), "Lost balloon");
  EXPECT_TRUE(list->topLevelItem(0)->text(1).contains("404"));
  EXPECT_TRUE(status().startsWith("6 resources in the cache · 6 new · 1 failed: "))
      << status().toStdString();
  ASSERT_EQ(list->topLevelItem(0)->childCount(), 1);
  EXPECT_EQ(list->topLevelItem(0)->child(0)->text(1),
            QString::fromStdString(server_.url()) + "/banners/lost-balloon.png: status 404");
  // The next pass starts without the failures of this one.
  ASSERT_TRUE(run(Pass::load, content("first.json")));
  EXPECT_FALSE(list->isVisible());
}

TEST_F(MainWindowTest, KeysStartAndStopPasses) {
  openWindow();
  QTest::keyClick(&*window_, Qt::Key_L, Qt::ControlModifier);
  EXPECT_TRUE(session_->isRunning());
  ASSERT_TRUE(waitForEnd());
  EXPECT_TRUE(item("harbour-ferry"));
  ends_ = 0;
  QTest::keyClick(&*window_, Qt::Key_U, Qt::ControlModifier);
  QTest::keyClick(&*window_, Qt::Key_Escape);
  ASSERT_TRUE(waitForEnd());
  EXPECT_FALSE(session_->isRunning());
}

TEST_F(MainWindowTest, SaysThatItIsPaused) {
  openWindow();
  EXPECT_FALSE(isPauseShown());
  QTest::keyClick(&*window_, Qt::Key_P, Qt::ControlModifier);
  EXPECT_TRUE(isPauseShown());
  session_->start(Pass::load, content("first.json"));
  QTest::keyClick(&*window_, Qt::Key_P, Qt::ControlModifier);
  EXPECT_FALSE(isPauseShown());
  ASSERT_TRUE(waitForEnd());
  EXPECT_TRUE(item("harbour-ferry"));
}

TEST_F(MainWindowTest, ChecksTheStoredFilesAndSaysWhatCameOfIt) {
  openWindow();
  ASSERT_TRUE(run(Pass::load, content("first.json")));
  QTest::keyClick(&*window_, Qt::Key_R, Qt::ControlModifier);
  EXPECT_TRUE(session_->isRevalidating());
  ASSERT_TRUE(waitUntil([this] { return revalidations_ > 0; }));
  EXPECT_EQ(status(), "Stored files: 6 unchanged");
}

TEST_F(MainWindowTest, AsksBeforeItFreesSpace) {
  openWindow();
  ASSERT_TRUE(run(Pass::load, content("first.json")));
  QTest::keyClick(&*window_, Qt::Key_T, Qt::ControlModifier);
  const QPointer<SpaceDialog> dialog = window_->findChild<SpaceDialog*>();
  ASSERT_TRUE(dialog);
  const auto* const text = dialog->findChild<QLabel*>("plan");
  ASSERT_TRUE(waitUntil([&] { return text->text().endsWith("Nothing has to be removed."); }));
  dialog->findChild<QSpinBox*>()->setValue(0);
  ASSERT_TRUE(waitUntil([&] { return text->text().endsWith("Nothing can be removed."); }));
  dialog->findChild<QCheckBox*>()->setChecked(true);
  ASSERT_TRUE(waitUntil([&] { return text->text().contains("2 resources and 2 files"); }))
      << text->text().toStdString();
  EXPECT_EQ(window_->findChildren<BannerView*>().size(), 3);
  dialog->accept();  // closing it otherwise removes nothing
  EXPECT_TRUE(waitUntil([&] { return window_->findChildren<BannerView*>().size() == 1; }));
  EXPECT_EQ(status(), "2 resources and 2 files removed");
}

TEST_F(MainWindowTest, KeepsUpToDateOnlyWithAnAddress) {
  openWindow();
  QTest::keyClick(&*window_, Qt::Key_K, Qt::ControlModifier);
  ASSERT_TRUE(waitUntil([this] { return checks_ > 0; }));
  EXPECT_FALSE(session_->isFollowing());
  const auto* const list = window_->findChild<QTreeWidget*>();
  ASSERT_EQ(list->topLevelItemCount(), 1);
  EXPECT_EQ(list->topLevelItem(0)->text(1), "This is no http or https address.");
}

TEST_F(MainWindowTest, ABannerIsReachedByTabAndOpensItsMarketByReturn) {
  openWindow();
  ASSERT_TRUE(run(Pass::load, content("first.json")));
  // The web view passes the focus on only after a reply of its renderer process.
  window_->findChild<PageView*>()->hide();
  QWidget* const wanted = banner("Harbour Ferry");
  EXPECT_TRUE(waitUntil([&] {
    if (QApplication::focusWidget() == wanted) return true;
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
    return false;
  }));
  QTest::keyClick(wanted, Qt::Key_Return);
  ASSERT_EQ(browser_.opened.size(), 1);
  EXPECT_EQ(browser_.opened[0], QUrl("https://ferry.example/timetable"));
  QTest::mouseClick(wanted, Qt::LeftButton);
  EXPECT_EQ(browser_.opened.size(), 2);
}

TEST_F(MainWindowTest, NeverOpensAMarketLinkThatDoesNotLeadToTheWeb) {
  BannerView view;
  CacheItem item;
  item.market = QUrl("file:///etc/passwd");
  view.present(item);
  view.click();
  EXPECT_TRUE(browser_.opened.isEmpty());
}

TEST_F(MainWindowTest, ScrollsWhereItIsTooSmallForItsContents) {
  openWindow();
  ASSERT_TRUE(run(Pass::load, content("first.json")));
  window_->resize(640, 400);
  const auto* const gallery = window_->findChild<Gallery*>();
  EXPECT_TRUE(waitUntil([&] { return gallery->verticalScrollBar()->maximum() > 0; }));
  EXPECT_LE(window_->width(), 800);
  // A banner keeps its size even if there is too little space.
  EXPECT_TRUE(waitUntil(
      [&] { return banner("Harbour Ferry")->size() == banner("Harbour Ferry")->sizeHint(); }));
}

TEST_F(MainWindowTest, CanBeReadOnADarkPalette) {
  QPalette dark(QColor(0x2b, 0x2b, 0x2e));  // Qt derives the other colours from the button colour
  dark.setColor(QPalette::Highlight, QColor(0x3d, 0xae, 0xe9));
  QApplication::setPalette(dark);
  openWindow();
  ASSERT_TRUE(run(Pass::update, content("second.json")));
  QString text;
  QImage picture;
  ASSERT_TRUE(waitUntil([&] {
    picture = screenshot();
    text = kiv::test::textIn(picture);
    return text.contains("1,287 votes") && text.contains("Lost balloon") &&
           text.contains("Visit") && text.contains("The Night Train");
  })) << text.toStdString();
  kiv::test::keep(picture, "dark");
  EXPECT_LT(picture.pixelColor(600, 20).lightness(), 100);  // the tool bar
}
