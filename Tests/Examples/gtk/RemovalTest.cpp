#include <filesystem>

#include <gtest/gtest.h>

#include "Tests/Examples/gtk/WindowFixture.h"

using kiv::test::content;
using kiv::test::waitUntil;

class GTKRemovalTest : public kiv::test::WindowFixture {
 protected:
  /// A cache with one file, of the dropped banner, that no resource needs.
  void loadAndUpdate() {
    open();
    ASSERT_TRUE(run("load", content("first.json")));
    ASSERT_TRUE(run("update", content("second.json")));
    ASSERT_TRUE(exists("harbour-ferry.png"));
  }

  bool waitForTheQuestion() {
    return waitUntil([this] { return gtk_widget_get_visible(named("question")); });
  }

  [[nodiscard]] std::string question() const {
    return gtk_label_get_text(GTK_LABEL(named("question-text")));
  }

  [[nodiscard]] std::string stored(const std::string& name) const {
    return directory_.path("root/KivResource/Resources/" + name);
  }
  [[nodiscard]] bool exists(const std::string& name) const {
    return std::filesystem::exists(stored(name));
  }
};

TEST_F(GTKRemovalTest, AsksFirstAndThenRemovesWhatNoResourceNeeds) {
  loadAndUpdate();
  click("free");
  ASSERT_TRUE(waitForTheQuestion());
  EXPECT_EQ(question(), "Remove what no resource needs?\n• harbour-ferry.png");
  EXPECT_TRUE(exists("harbour-ferry.png"));
  EXPECT_TRUE(status().ends_with(" could be freed")) << status();
  EXPECT_FALSE(isIdle());
  ASSERT_TRUE(run("remove"));
  EXPECT_TRUE(status().starts_with("Removed: ")) << status();
  EXPECT_FALSE(gtk_widget_get_visible(named("question")));
  EXPECT_FALSE(exists("harbour-ferry.png"));
  EXPECT_TRUE(exists("rooftop-cinema.png"));
  ASSERT_TRUE(run("free"));
  EXPECT_TRUE(status().starts_with("Nothing to remove, the cache uses ")) << status();
}

TEST_F(GTKRemovalTest, KeepsEverythingIfTheUserDoesNotWantIt) {
  loadAndUpdate();
  click("free");
  ASSERT_TRUE(waitForTheQuestion());
  click("keep");
  EXPECT_TRUE(isIdle());
  EXPECT_EQ(status(), "Nothing was removed");
  EXPECT_FALSE(gtk_widget_get_visible(named("question")));
  ASSERT_TRUE(run("check"));  // the queue has run all that came before
  EXPECT_TRUE(exists("harbour-ferry.png"));
}

TEST_F(GTKRemovalTest, AsksAgainIfItWouldRemoveSomethingElse) {
  loadAndUpdate();
  click("free");
  ASSERT_TRUE(waitForTheQuestion());
  directory_.write("root/KivResource/Resources/late.png");
  click("remove");
  EXPECT_FALSE(gtk_widget_get_visible(named("question")));
  ASSERT_TRUE(waitForTheQuestion());
  EXPECT_NE(question().find("• harbour-ferry.png"), std::string::npos);
  EXPECT_NE(question().find("• late.png"), std::string::npos);
  EXPECT_TRUE(exists("harbour-ferry.png"));
  EXPECT_TRUE(exists("late.png"));
  ASSERT_TRUE(run("remove"));
  EXPECT_FALSE(exists("harbour-ferry.png"));
  EXPECT_FALSE(exists("late.png"));
}

TEST_F(GTKRemovalTest, NamesAtMostEightFiles) {
  open();
  for (int i = 0; i < 10; ++i)
    directory_.write("root/KivResource/Resources/" + std::to_string(i) + "\n.png");
  click("free");
  ASSERT_TRUE(waitForTheQuestion());
  EXPECT_TRUE(question().ends_with("\nand 2 more")) << question();
  EXPECT_NE(question().find("\\x0a.png"), std::string::npos) << question();
}
