// Removals that a hostile saved list requests through the manager: with the default removal guard
// and without a guard.

#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/Support/ManagerFixture.h"
#include "Tests/Support/RemovalGuard.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace kiv::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;

/// `outside_` is a directory next to the storage root whose files must not be removed.
class KivResourceRemovalGuardTest : public ManagerFixture {
 protected:
  KivResourceRemovalGuardTest() {
    outside_.write("secret.txt", "precious");
    outside_.write("site/index.html", "precious page");
    outside_.write("site/data/more.txt", "precious too");
  }

  /// Restarts with a saved list that contains this item, and expects it to be loaded.
  void startOnList(const kiv::Dictionary& item) {
    write(listPath(), std::string((*kiv::JSON::write(kiv::Array{item})).view()));
    restart();
    ASSERT_THAT(registry(), ElementsAre("a"));
  }

  /// Replaces the resource by a version with another file, so that its old files are removed.
  void replaceByNewBanner() {
    beginLoad({banner("a", 2, "x/new.png")});
    EXPECT_TRUE(client->succeed("/new.png"));
    EXPECT_THAT(takeEvents(), ElementsAre("loaded a", "finished"));
    ASSERT_EQ(manager->loadedResources()->size(), 1U);
    EXPECT_EQ(entry(0)->updated(), 2U);
    EXPECT_EQ(savedList().size(), 1U);
    EXPECT_TRUE(exists(stored("new.png")));
  }

  [[nodiscard]] bool outsideIsWhole() const {
    return read(outside_.path("secret.txt")) == "precious" &&
           read(outside_.path("site/index.html")) == "precious page" &&
           read(outside_.path("site/data/more.txt")) == "precious too";
  }

  const TemporaryDirectory outside_;
};

TEST_F(KivResourceRemovalGuardTest, AFileOutsideTheRootStays) {
  startOnList(banner("a", 1, outside_.path("secret.txt")));
  replaceByNewBanner();
  EXPECT_TRUE(outsideIsWhole());
}

TEST_F(KivResourceRemovalGuardTest, WithoutTheGuardAFileOutsideTheRootIsRemovedLikeAnyOther) {
  const UnguardedRemovals unguarded;
  startOnList(banner("a", 1, outside_.path("secret.txt")));
  replaceByNewBanner();
  EXPECT_FALSE(exists(outside_.path("secret.txt")));
}

TEST_F(KivResourceRemovalGuardTest, TheDirectoryOfAPageOutsideTheRootStays) {
  startOnList(page("a", 1, outside_.path("site/index.html")));
  replaceByNewBanner();
  EXPECT_TRUE(outsideIsWhole());
}

TEST_F(KivResourceRemovalGuardTest, WithoutTheGuardTheDirectoryOfAPageOutsideTheRootIsRemoved) {
  const UnguardedRemovals unguarded;
  startOnList(page("a", 1, outside_.path("site/index.html")));
  replaceByNewBanner();
  EXPECT_FALSE(exists(outside_.path("site")));
  EXPECT_TRUE(exists(outside_.path("secret.txt")));
}

TEST_F(KivResourceRemovalGuardTest, AFileThroughALinkedDirectoryStays) {
  write(stored("kept.png"), "");
  fs::create_directory_symlink(outside_.path(), stored("linked"));
  startOnList(banner("a", 1, stored("linked/secret.txt")));
  replaceByNewBanner();
  EXPECT_TRUE(outsideIsWhole());
  EXPECT_TRUE(exists(stored("linked")));
}

TEST_F(KivResourceRemovalGuardTest, WithoutTheGuardAFileThroughALinkedDirectoryIsRemoved) {
  const UnguardedRemovals unguarded;
  write(stored("kept.png"), "");
  fs::create_directory_symlink(outside_.path(), stored("linked"));
  startOnList(banner("a", 1, stored("linked/secret.txt")));
  replaceByNewBanner();
  EXPECT_FALSE(exists(outside_.path("secret.txt")));
}

TEST_F(KivResourceRemovalGuardTest, AFileThroughDotsStays) {
  write(stored("kept.png"), "");
  startOnList(banner(
      "a", 1, stored("//") + fs::relative(outside_.path("secret.txt"), stored("")).string()));
  replaceByNewBanner();
  EXPECT_TRUE(outsideIsWhole());
}

TEST_F(KivResourceRemovalGuardTest, ALinkedDirectoryOfAPageIsItselfRemoved) {
  write(stored("kept.png"), "");
  fs::create_directory_symlink(outside_.path("site"), stored("linked"));
  for (const bool isGuarded : {true, false}) {
    if (!exists(stored("linked"))) {
      fs::create_directory_symlink(outside_.path("site"), stored("linked"));
    }
    if (!isGuarded) kiv::FileManager::setRemovalRoots(std::nullopt);
    startOnList(page("a", 1, stored("linked/index.html")));
    replaceByNewBanner();
    kiv::FileManager::restoreRemovalRoots();
    EXPECT_FALSE(exists(stored("linked"))) << isGuarded;
    EXPECT_TRUE(outsideIsWhole()) << isGuarded;
    fs::remove(stored("new.png"));
  }
}

TEST_F(KivResourceRemovalGuardTest, AStoredLinkIsItselfRemoved) {
  write(stored("kept.png"), "");
  fs::create_symlink(outside_.path("secret.txt"), stored("link.png"));
  startOnList(banner("a", 1, stored("link.png")));
  replaceByNewBanner();
  EXPECT_FALSE(exists(stored("link.png")));
  EXPECT_TRUE(outsideIsWhole());
}

TEST_F(KivResourceRemovalGuardTest, ADirectoryInPlaceOfAnImageMakesNoResource) {
  auto item = video("a", 1, outside_.path("site"), outside_.path("secret.txt"));
  for (const bool isGuarded : {true, false}) {
    if (!isGuarded) kiv::FileManager::setRemovalRoots(std::nullopt);
    write(listPath(), std::string((*kiv::JSON::write(kiv::Array{item})).view()));
    restart();
    EXPECT_THAT(registry(), testing::IsEmpty());
    replaceByNewBanner();
    kiv::FileManager::restoreRemovalRoots();
    EXPECT_TRUE(outsideIsWhole()) << isGuarded;
    fs::remove(stored("new.png"));
  }
}

TEST_F(KivResourceRemovalGuardTest, WhatLiesUnderTheRootIsRemovedAsEver) {
  write(stored("old.png"), "old");
  startOnList(banner("a", 1, stored("old.png")));
  replaceByNewBanner();
  EXPECT_FALSE(exists(stored("old.png")));
  write(stored("promo/index.html"), "page");
  write(stored("promo/more.css"), "style");
  startOnList(page("a", 1, stored("promo/index.html")));
  fs::remove(stored("new.png"));
  replaceByNewBanner();
  EXPECT_FALSE(exists(stored("promo")));
}

TEST_F(KivResourceRemovalGuardTest, WhatAHostKeepsBesideTheResourcesStays) {
  const std::string beside = root() + "/own/site/index.html";
  write(beside, "precious");
  startOnList(page("a", 1, beside));
  replaceByNewBanner();
  EXPECT_EQ(read(beside), "precious");
}

TEST_F(KivResourceRemovalGuardTest, TheDirectoryOfTheListStays) {
  const std::string beside = root() + "/KivResource/index.html";
  write(beside, "page");
  startOnList(page("a", 1, beside));
  replaceByNewBanner();
  EXPECT_TRUE(exists(beside));
}

TEST_F(KivResourceRemovalGuardTest, TheRootsThatAHostNamesTakeThePlaceOfTheFrameworksOwn) {
  const RemovalGuard guard({outside_.path()});
  write(stored("old.png"), "old");
  startOnList(banner("a", 1, stored("old.png")));
  replaceByNewBanner();
  EXPECT_TRUE(exists(stored("old.png")));
  std::filesystem::remove(stored("new.png"));
  startOnList(banner("a", 1, outside_.path("secret.txt")));
  replaceByNewBanner();
  EXPECT_FALSE(exists(outside_.path("secret.txt")));
}

TEST_F(KivResourceRemovalGuardTest, APackagedFileStays) {
  const std::string packagedFile = packaged() + "/InnerAdResources.bundle/p.png";
  write(packagedFile, "packaged");
  startOnList(banner("a", 1, packagedFile));
  replaceByNewBanner();
  EXPECT_TRUE(exists(packagedFile));
}

}  // namespace
}  // namespace kiv::test
