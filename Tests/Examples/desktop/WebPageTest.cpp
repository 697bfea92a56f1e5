#include <QProcess>
#include <QWebEngineProfile>
#include <QWebEngineView>
#include <atomic>
#include <optional>

#include <gtest/gtest.h>

#include "Examples/desktop/WebPage.h"
#include "Tests/Examples/desktop/Browser.h"
#include "Tests/Examples/desktop/Waiting.h"
#include "Tests/Support/LoopbackServer.h"
#include "Tests/Support/TemporaryDirectory.h"

using kiv::test::LoopbackServer;
using kiv::test::Response;
using kiv::test::TemporaryDirectory;
using kiv::test::waitUntil;

TEST(PageGuard, LetsAPageOfAnArchiveHaveItsFolderAndNothingElse) {
  const TemporaryDirectory directory;
  const auto url = [&](const char* path) {
    return QUrl::fromLocalFile(QString::fromStdString(directory.path(path)));
  };
  for (const char* path : {"page/index.html", "page/images/a.png", "page-2/a.png", "secret"})
    directory.write(path);
  PageGuard guard;
  guard.setPage(url("page/index.html").toLocalFile(), url("page").toLocalFile());
  EXPECT_TRUE(guard.allows(url("page/index.html")));
  EXPECT_TRUE(guard.allows(url("page/images/a.png")));
  EXPECT_FALSE(guard.allows(url("page-2/a.png")));
  EXPECT_FALSE(guard.allows(url("page/../secret")));
  EXPECT_FALSE(guard.allows(url("page/none")));
  EXPECT_FALSE(guard.allows(url("page")));
  EXPECT_FALSE(guard.allows(QUrl("file:///etc/passwd")));
  EXPECT_FALSE(guard.allows(QUrl("http://127.0.0.1/")));
  EXPECT_FALSE(guard.allows(QUrl("ftp://127.0.0.1/")));
  EXPECT_FALSE(guard.allows(QUrl("view-source:file:///etc/passwd")));
  EXPECT_TRUE(guard.allows(QUrl("data:text/plain,x")));
}

TEST(PageGuard, LetsASinglePageHaveItselfAlone) {
  const TemporaryDirectory directory;
  const auto other = QString::fromStdString(directory.write("other.html"));
  for (const char* name : {"page.html", "index.html"}) {
    const auto page = QString::fromStdString(directory.write(name));
    PageGuard guard;
    guard.setPage(page, QString());
    EXPECT_TRUE(guard.allows(QUrl::fromLocalFile(page)));
    EXPECT_FALSE(guard.allows(QUrl::fromLocalFile(other)));
  }
}

TEST(PageGuard, WithoutAPageNothingIsReached) {
  const TemporaryDirectory directory;
  directory.write("index.html");
  PageGuard guard;
  guard.setPage(QString::fromStdString(directory.path("none.html")),
                QString::fromStdString(directory.path("none")));
  EXPECT_FALSE(
      guard.allows(QUrl::fromLocalFile(QString::fromStdString(directory.path("index.html")))));
  EXPECT_FALSE(guard.allows(QUrl("file:///")));
}

class WebPageTest : public testing::Test {
 protected:
  ~WebPageTest() override { page_.reset(); }

  /// Shows a page with that body and waits until its title reports that it is done.
  bool show(const std::string& body) {
    page_.emplace(&profile_);
    view_.setPage(&*page_);
    view_.resize(400, 300);
    view_.show();
    const auto path = directory_.write("page/index.html", "<title>new</title>" + body);
    page_->show(QString::fromStdString(path), QString::fromStdString(directory_.path("page")));
    return waitUntil([this] { return page_->title().startsWith("done"); });
  }

  static std::string script(const std::string& code) {
    return "<script>addEventListener('load', async () => {" + code + "});</script>";
  }

  TemporaryDirectory directory_;
  kiv::test::Browser browser_;
  QWebEngineProfile profile_;
  QWebEngineView view_;
  std::optional<WebPage> page_;
};

TEST_F(WebPageTest, ShowsItsOwnPictures) {
  QImage picture(7, 5, QImage::Format_RGB32);
  picture.fill(Qt::red);
  directory_.write("page/images/a.png");
  picture.save(QString::fromStdString(directory_.path("page/images/a.png")));
  ASSERT_TRUE(
      show("<img id='a' src='images/a.png'>" +
           script("document.title = 'done ' + document.getElementById('a').naturalWidth;")));
  EXPECT_EQ(page_->title(), "done 7");
}

TEST_F(WebPageTest, ReachesNeitherOtherFilesNorTheNetwork) {
  LoopbackServer server;
  server.serve("/a.png", Response::ok("x"));
  QImage picture(7, 5, QImage::Format_RGB32);
  directory_.write("secret.png");
  picture.save(QString::fromStdString(directory_.path("secret.png")));
  directory_.write("secret.txt", "a secret");
  const std::string network = server.url("/a.png");
  ASSERT_TRUE(show(
      "<img id='a' src='../secret.png'><img src='" + network + "'><iframe id='f' src='" + network +
      "'></iframe>" +
      script(
          "const seen = [];"
          "for (const url of ['../secret.txt', 'file:///etc/passwd', '" +
          network +
          "']) {"
          "  try { seen.push((await (await fetch(url)).text()).length); }"
          "  catch (error) { seen.push('no'); }"
          "  await new Promise(then => {"
          "    const request = new XMLHttpRequest();"
          "    request.onloadend = () => { seen.push(request.responseText || 'no'); then(); };"
          "    try { request.open('GET', url); request.send(); }"
          "    catch (error) { seen.push('no'); then(); }"
          "  });"
          "}"
          "document.title = 'done ' + document.getElementById('a').naturalWidth + ' ' + seen;")));
  EXPECT_EQ(page_->title(), "done 0 no,no,no,no,no,no");
  EXPECT_TRUE(server.requests().empty());
}

TEST_F(WebPageTest, APageOfOneFileReachesNoFileBesideIt) {
  page_.emplace(&profile_);
  view_.setPage(&*page_);
  view_.show();
  QImage picture(7, 5, QImage::Format_RGB32);
  directory_.write("neighbour.png");
  picture.save(QString::fromStdString(directory_.path("neighbour.png")));
  directory_.write("other/index.html", "<title>other</title>");
  const auto path =
      directory_.write("index.html",
                       "<title>new</title><img id='a' src='neighbour.png'>"
                       "<iframe id='f' src='other/index.html'></iframe>" +
                           script("const seen = [];"
                                  "for (const url of ['neighbour.png', 'other/index.html']) {"
                                  "  try { seen.push((await (await fetch(url)).text()).length); }"
                                  "  catch (error) { seen.push('no'); }"
                                  "}"
                                  "document.title = 'done ' + "
                                  "document.getElementById('a').naturalWidth + ' ' + seen;"));
  page_->show(QString::fromStdString(path), QString());
  ASSERT_TRUE(waitUntil([this] { return page_->title().startsWith("done"); }));
  EXPECT_EQ(page_->title(), "done 0 no,no");
}

TEST_F(WebPageTest, AScriptCannotLeadTheViewElsewhereNorOpenTheBrowser) {
  LoopbackServer server;
  const std::string other = server.url("/other");
  ASSERT_TRUE(show("<a id='link' href='" + other + "'>a link</a>" +
                   script("window.open('" + other +
                          "');"
                          "document.getElementById('link').click();"
                          "alert('stop'); confirm('stop'); prompt('stop');"
                          "location = '" +
                          other +
                          "';"
                          "setTimeout(() => { document.title = 'done'; }, 200);")));
  EXPECT_TRUE(page_->url().toLocalFile().endsWith("/page/index.html"));
  EXPECT_TRUE(server.requests().empty());
  EXPECT_TRUE(browser_.opened.isEmpty());
}

TEST_F(WebPageTest, ALinkThatAPersonClicksOpensInTheBrowser) {
  ASSERT_TRUE(
      show("<body style='margin:0'><a href='https://shop.example/' "
           "style='display:block;width:400px;height:300px'>a link</a>" +
           script("requestAnimationFrame(() => requestAnimationFrame(() => {"
                  "document.title = 'done'; }));")));
  // Move the real pointer: the web view ignores synthetic events.
  const QPoint place = view_.mapToGlobal(QPoint(100, 100));
  QProcess xdotool;
  xdotool.start("xdotool", {"mousemove", QString::number(place.x()), QString::number(place.y()),
                            "click", "1"});
  ASSERT_TRUE(waitUntil([&] { return !browser_.opened.isEmpty(); }));
  EXPECT_TRUE(xdotool.state() == QProcess::NotRunning || xdotool.waitForFinished());
  EXPECT_EQ(browser_.opened[0], QUrl("https://shop.example/"));
  EXPECT_TRUE(page_->url().toLocalFile().endsWith("/page/index.html"));
}

TEST_F(WebPageTest, StaysOnShowWhenItsFileIsRemovedAndThenShowsTheNewOne) {
  ASSERT_TRUE(show(script("document.title = 'done 1';")));
  std::filesystem::remove_all(directory_.path("page"));
  kiv::test::runWaitingEvents();
  EXPECT_EQ(page_->title(), "done 1");
  const auto path = directory_.write("page/index.html", "<title>second</title>");
  page_->show(QString::fromStdString(path), QString::fromStdString(directory_.path("page")));
  EXPECT_TRUE(waitUntil([&] { return page_->title() == "second"; }));
}
