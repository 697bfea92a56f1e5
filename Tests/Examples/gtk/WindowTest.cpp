#include <algorithm>
#include <filesystem>

#include <gtest/gtest.h>

#include "Tests/Examples/gtk/WindowFixture.h"
#include "Tests/Support/LoopbackServer.h"
#include "Tests/Support/ReadFile.h"

using kiv::test::content;
using kiv::test::LoopbackServer;
using kiv::test::Response;
using kiv::test::waitUntil;

namespace {

bool has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

}  // namespace

class GTKWindowTest : public kiv::test::WindowFixture {
 protected:
  /// Starts a pass whose only file the server holds back.
  void startAPassThatWaitsFor(LoopbackServer& silent, Response response) {
    silent.serve("/a.png", std::move(response));
    open(silent.url());
    choose(configuration(banner("a.png")));
    click("load");
    ASSERT_TRUE(silent.waitForRequests("/a.png", 1));
    EXPECT_FALSE(isIdle());
  }

  /// What the only row of a page shows. Owns its lease.
  [[nodiscard]] ShownItem shownPage() const {
    GtkWidget* const row = gtk_widget_get_parent(named("open-page"));
    return *static_cast<ShownItem*>(g_object_get_data(G_OBJECT(row), "item"));
  }
};

TEST_F(GTKWindowTest, ShowsWhatTheFirstPassBrings) {
  open();
  EXPECT_EQ(status(), "0 in the cache");
  ASSERT_TRUE(run("load", content("first.json")));
  EXPECT_EQ(status(), "6 new");
  EXPECT_EQ(count("banner"), 3U);
  EXPECT_EQ(count("icon"), 1U);
  EXPECT_EQ(count("open-page"), 2U);
  EXPECT_TRUE(has(texts(), "The Night Train\n★★★★★  1287 votes\n")) << texts();
  EXPECT_EQ(count("failure"), 0U);
}

TEST_F(GTKWindowTest, OpensPagesAndLinks) {
  open();
  ASSERT_TRUE(run("load", content("first.json")));
  for (GtkWidget* const button : kiv::test::widgetsNamed(window_->widget(), "open-page"))
    click(button);
  ASSERT_EQ(opened_.size(), 2U);
  for (const std::string& uri : opened_) {
    char* const path = g_filename_from_uri(uri.c_str(), nullptr, nullptr);
    ASSERT_TRUE(path) << uri;
    EXPECT_TRUE(std::filesystem::is_regular_file(path)) << path;
    g_free(path);
  }
  opened_.clear();
  for (GtkWidget* const button : kiv::test::widgetsNamed(window_->widget(), "open-link"))
    click(button);
  std::sort(opened_.begin(), opened_.end());  // the rows are in the order in which the files came
  EXPECT_EQ(opened_,
            (std::vector<std::string>{
                "https://ferry.example/timetable", "https://host.example/advertise",
                "https://nighttrain.example/tickets", "https://northlight.example/spring"}));
}

TEST_F(GTKWindowTest, AnUpdateSaysWhatBecameOfEachResourceAndNamesTheFailedFile) {
  open();
  ASSERT_TRUE(run("load", content("first.json")));
  ASSERT_TRUE(run("update", content("second.json")));
  EXPECT_EQ(status(), "1 new, 1 replaced, 4 unchanged, 1 failed, 1 dropped");
  const std::string failure = kiv::test::textsIn(named("failure"));
  EXPECT_TRUE(failure.starts_with("banners/lost-balloon.png\n")) << failure;
  EXPECT_TRUE(has(failure, server_.url() + "/banners/lost-balloon.png: status 404\n")) << failure;
  EXPECT_TRUE(has(texts(), "Northlight Bicycles, end of spring\n"));
  EXPECT_FALSE(has(texts(), "Northlight Bicycles, spring\n"));
  EXPECT_FALSE(has(texts(), "Harbour Ferry\n"));
  EXPECT_EQ(count("banner"), 3U);
  // The next command removes the list.
  ASSERT_TRUE(run("check"));
  EXPECT_EQ(count("failure"), 0U);
}

TEST_F(GTKWindowTest, NamesEveryTryAtEachServer) {
  LoopbackServer main;
  LoopbackServer mirror;
  main.serve("/a.png", Response::status(503));
  mirror.serve("/a.png", Response::nothing());
  open(CacheSetup{directory_.path("root"), main.url(), mirror.url(), std::chrono::hours(1)});
  ASSERT_TRUE(run("load", configuration(banner("a.png"))));
  const std::string failure = kiv::test::textsIn(named("failure"));
  EXPECT_EQ(status(), "1 failed");
  EXPECT_TRUE(has(failure, main.url("/a.png") + ": status 503\n")) << failure;
  EXPECT_TRUE(has(failure, mirror.url("/a.png") + ": error ")) << failure;
}

TEST_F(GTKWindowTest, ShowsWhatIsCachedWithoutAServer) {
  open();
  ASSERT_TRUE(run("load", content("first.json")));
  close();
  server_.stop();
  open();
  EXPECT_EQ(status(), "6 in the cache");
  EXPECT_EQ(count("banner"), 3U);
  EXPECT_EQ(count("open-page"), 2U);
}

TEST_F(GTKWindowTest, APausedPassGoesOnAfterResume) {
  LoopbackServer slow;
  startAPassThatWaitsFor(slow, Response::ok(std::string(5000, 'x')).stallAt(3000));
  ASSERT_TRUE(waitUntil([&] { return has(status(), "0 of 1 files"); }));
  slow.serve("/a.png", Response::ok(std::string(5000, 'x')));
  click("pause");
  ASSERT_TRUE(slow.waitForNoConnection());
  EXPECT_FALSE(isIdle());
  EXPECT_EQ(slow.requests("/a.png").size(), 1U);
  click("pause");
  ASSERT_TRUE(waitUntil([&] { return isIdle(); }));
  EXPECT_EQ(status(), "1 new");
  EXPECT_EQ(slow.requests("/a.png").size(), 2U);
}

TEST_F(GTKWindowTest, NothingStartsWhileItIsPaused) {
  open();
  click("pause");
  EXPECT_STREQ(gtk_button_get_label(GTK_BUTTON(named("pause"))), "Resume");
  choose(content("first.json"));
  click("load");
  ASSERT_TRUE(waitUntil([&] { return status().starts_with("Paused: 0 of"); })) << status();
  EXPECT_EQ(server_.requestCount(), 0U);
  click("pause");
  ASSERT_TRUE(waitUntil([&] { return isIdle(); }));
  EXPECT_EQ(status(), "6 new");
}

TEST_F(GTKWindowTest, StopEndsAPassAndTheNextOneIsAccepted) {
  LoopbackServer silent;
  startAPassThatWaitsFor(silent, Response::ok("x").stallAt(0));
  ASSERT_TRUE(run("stop"));
  EXPECT_EQ(status(), "Stopped: 1 not loaded");
  silent.serve("/b.png", Response::ok("not a picture"));
  ASSERT_TRUE(run("load", configuration(banner("b.png"))));
  EXPECT_EQ(status(), "1 new");
  EXPECT_TRUE(has(texts(), "This picture cannot be shown.\n"));
}

TEST_F(GTKWindowTest, AnAddressIsCheckedAgain) {
  kiv::ContentServer configurations(content(""));
  ASSERT_TRUE(configurations.start());
  const std::string url = configurations.url() + "/first.json";
  open();
  ASSERT_TRUE(run("update", url));
  EXPECT_TRUE(status().starts_with("6 new. Next check in ")) << status();
  ASSERT_TRUE(run("update"));
  EXPECT_TRUE(status().starts_with("The configuration has not changed. Next check in "))
      << status();
  configurations.failWithStatus("/first.json", 404);
  ASSERT_TRUE(run("update"));
  EXPECT_TRUE(status().starts_with("No new configuration. Next check in ")) << status();
  EXPECT_TRUE(has(kiv::test::textsIn(named("failure")), "404"));
  EXPECT_EQ(count("banner"), 3U);
  click("load");  // an address is for Update
  EXPECT_EQ(status(), "An address is checked by Update");
  EXPECT_TRUE(isIdle());
  open();  // a new updater, which runs a pass with what the last one saved
  ASSERT_TRUE(run("update", url));
  EXPECT_TRUE(
      status().starts_with("No new configuration. With the saved one: 6 unchanged. Next check in "))
      << status();
}

TEST_F(GTKWindowTest, StopEndsTheFetchOfAConfiguration) {
  LoopbackServer silent;
  silent.serve("/c.json", Response::ok("{}").stallAt(0));
  open();
  choose(silent.url("/c.json"));
  click("update");
  ASSERT_TRUE(silent.waitForRequests("/c.json", 1));
  ASSERT_TRUE(run("stop"));
  EXPECT_EQ(status(), "Stopped");
  EXPECT_TRUE(silent.waitForNoConnection());
  ASSERT_TRUE(run("load", content("first.json")));
  EXPECT_EQ(status(), "6 new");
}

TEST_F(GTKWindowTest, StopEndsAPassOfACheckAndTheChecks) {
  LoopbackServer silent;
  silent.serve("/c.json", Response::ok(R"({"items": [)" + banner("a.png") + "]}"));
  silent.serve("/a.png", Response::ok("x").stallAt(0));
  open(silent.url());
  choose(silent.url("/c.json"));
  click("update");
  ASSERT_TRUE(silent.waitForRequests("/a.png", 1));
  ASSERT_TRUE(run("stop"));
  EXPECT_TRUE(status().starts_with("Stopped: 1 not loaded")) << status();
  // A check by the same updater would ask with validators, and find nothing to do.
  silent.serve("/a.png", Response::ok("x"));
  ASSERT_TRUE(run("update"));
  EXPECT_TRUE(status().starts_with("1 new")) << status();
}

TEST_F(GTKWindowTest, AShownPageStaysReadableWhenANewVersionReplacesIt) {
  LoopbackServer server;
  server.serve("/one.html", Response::ok("first"));
  server.serve("/two.html", Response::ok("second"));
  open(server.url());
  ASSERT_TRUE(run("load", configuration(page("one.html", 1))));
  std::optional<ShownItem> before = shownPage();
  ASSERT_TRUE(run("update", configuration(page("two.html", 2))));
  EXPECT_EQ(status(), "1 replaced");
  const ShownItem after = shownPage();
  const std::string path = before->page;
  EXPECT_EQ(kiv::test::readFile(path), "first");
  EXPECT_EQ(kiv::test::readFile(after.page), "second");
  // The lease ends on the manager's queue, when nothing shows the former version any more.
  before.reset();
  EXPECT_TRUE(waitUntil([&] { return !std::filesystem::exists(path); }));
}

TEST_F(GTKWindowTest, ACheckForChangesShowsTheNewContents) {
  LoopbackServer server;
  server.serve("/p.html", Response::ok("first"));
  open(server.url());
  ASSERT_TRUE(run("load", configuration(page("p.html"))));
  ASSERT_TRUE(run("check"));
  EXPECT_EQ(status(), "Checked: 1 unchanged");
  server.serve("/p.html", Response::ok("second"));
  ASSERT_TRUE(run("check"));
  EXPECT_EQ(status(), "Checked: 1 changed");
  EXPECT_EQ(kiv::test::readFile(shownPage().page), "second");
  server.serve("/p.html", Response::status(404));
  ASSERT_TRUE(run("check"));
  EXPECT_EQ(status(), "Checked: 1 failed");
  EXPECT_TRUE(has(kiv::test::textsIn(named("failure")), server.url("/p.html") + ": status 404"));
  EXPECT_EQ(kiv::test::readFile(shownPage().page), "second");
}

TEST_F(GTKWindowTest, SaysWhatIsWrongWithAConfiguration) {
  open();
  for (const std::string& path : {directory_.path("none.json"), directory_.path(), std::string()}) {
    ASSERT_TRUE(run("load", path));
    EXPECT_EQ(status(), "This file cannot be read: " + path);
  }
  ASSERT_TRUE(run("update", directory_.write("broken.json", "{\"items\": [}")));
  EXPECT_TRUE(status().starts_with("No configuration: ")) << status();
  ASSERT_TRUE(run("update", configuration("{}")));
  EXPECT_EQ(status(), "No resource in the configuration: 1 invalid");
  EXPECT_EQ(count("failure"), 1U);
}

TEST_F(GTKWindowTest, SaysThatTheCacheCannotBeOpened) {
  open(CacheSetup{"", server_.url(), {}, std::chrono::hours(1)});
  EXPECT_TRUE(status().starts_with("The cache cannot be opened: ")) << status();
}

TEST_F(GTKWindowTest, MayGoInTheMiddleOfAPass) {
  LoopbackServer silent;
  startAPassThatWaitsFor(silent, Response::ok("x").stallAt(0));
  EXPECT_FALSE(isClosed_);
  gtk_window_close(GTK_WINDOW(window_->widget()));
  EXPECT_TRUE(isClosed_);
  close();
  EXPECT_TRUE(silent.waitForNoConnection());
  // Nothing that was told meanwhile is left for a window that is gone.
  while (g_main_context_iteration(nullptr, FALSE)) {
  }
}
