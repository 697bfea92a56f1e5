// The page view of a program that was built without Qt WebEngine.

#include <QPushButton>
#include <memory>

#include <gtest/gtest.h>

#include "Examples/desktop/PageView.h"
#include "Tests/Examples/desktop/Browser.h"

using kiv::test::Browser;

namespace {

CacheItem page(const QString& path) {
  CacheItem item;
  item.kind = CacheItem::Kind::page;
  item.title = "A page & more";
  item.page = path;
  item.version = path;
  return item;
}

class BrowserPageView : public testing::Test {
 protected:
  QPushButton& button() { return *view_->findChild<QPushButton*>(); }

  Browser browser_;
  std::unique_ptr<PageView> view_{PageView::make(nullptr)};
};

}  // namespace

TEST_F(BrowserPageView, OpensThePageThatIsOnShow) {
  view_->present(page("/tmp/first.html"));
  view_->present(page("/tmp/some folder/index.html"));
  button().click();
  EXPECT_EQ(browser_.opened, QList{QUrl::fromLocalFile("/tmp/some folder/index.html")});
}

/// Its files are kept by the lease of the item that came first.
TEST_F(BrowserPageView, KeepsTheFilesOfAVersionThatIsOnShow) {
  CacheItem item = page("/tmp/1.lease/page.html");
  view_->present(item);
  item.page = "/tmp/2.lease/page.html";
  view_->present(item);
  button().click();
  EXPECT_EQ(browser_.opened, QList{QUrl::fromLocalFile("/tmp/1.lease/page.html")});
}

TEST_F(BrowserPageView, OpensNothingThatIsNoPageByItsName) {
  for (const QString name : {"run.desktop", "run.sh", "page", "page.html.exe", ".html/x"}) {
    view_->present(page("/tmp/" + name));
    EXPECT_FALSE(button().isEnabled()) << name.toStdString();
    button().click();
  }
  EXPECT_TRUE(browser_.opened.isEmpty());
  view_->present(page("/tmp/PAGE.HTM"));
  EXPECT_TRUE(button().isEnabled());
}
