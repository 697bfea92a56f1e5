#include <cerrno>

#include <gmock/gmock.h>

#include "KivResource/KivResourceStorageModule.h"
#include "KivResource/KivResourceUpkeep.h"
#include "Tests/Support/FaultyFileManager.h"
#include "Tests/Support/ManagerFixture.h"
#include "Tests/Support/ZipBuilder.h"

namespace kiv::test {
namespace {

using testing::ElementsAre;

class KivResourceArchiveRemovalTest : public ManagerFixture {
 protected:
  KivResourceArchiveRemovalTest() {
    write(stored("promo/a.css"), "a");
    write(stored("promo/index.html"), "page");
  }

  [[nodiscard]] Names removals() const {
    Names paths;
    for (const auto& operation : files_.operations()) {
      if (operation.name == "remove") paths.push_back(operation.path);
    }
    return paths;
  }

  void expectThePageGoesFirst() const {
    EXPECT_THAT(removals(), ElementsAre(stored("promo/index.html"), stored("promo")));
    EXPECT_FALSE(exists(stored("promo")));
  }

  void expectTheWholeArchive() const {
    EXPECT_EQ(read(stored("promo/index.html")), "page");
    EXPECT_EQ(read(stored("promo/a.css")), "a");
  }

  FaultyFileManager files_;
};

// Removed in any other order, the rest of an archive whose removal a kill cut short was found by
// its name and taken for whole.
TEST_F(KivResourceArchiveRemovalTest, ThePageOfAReplacedArchiveGoesFirst) {
  KivResourceStorageModule::removeResourceFileWithPath_error(stored("promo/index.html"));
  expectThePageGoesFirst();
}

TEST_F(KivResourceArchiveRemovalTest, ThePageOfAnOrphanedArchiveGoesFirst) {
  EXPECT_TRUE(KivResourceUpkeep::cleanUpOrphans(*manager, KivResourceUpkeep::Mode::remove));
  expectThePageGoesFirst();
}

TEST_F(KivResourceArchiveRemovalTest, AnArchiveWhosePageStaysKeepsItsOtherFiles) {
  files_.setFailingOperation("remove", EIO);
  std::optional<Error> error;
  KivResourceStorageModule::removeResourceFileWithPath_error(stored("promo/index.html"), &error);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, EIO);
  EXPECT_THAT(removals(), ElementsAre(stored("promo/index.html")));
  expectTheWholeArchive();
}

TEST_F(KivResourceArchiveRemovalTest, OfALinkToAnArchiveOnlyTheLinkGoes) {
  std::filesystem::create_directory_symlink(stored("promo"), stored("link"));
  KivResourceStorageModule::removeResourceFileWithPath_error(stored("link/index.html"));
  EXPECT_FALSE(exists(stored("link")));
  expectTheWholeArchive();
}

TEST_F(KivResourceArchiveRemovalTest, WhatIsLeftOfAnArchiveIsFoundByNoNameAndReplaced) {
  std::filesystem::remove(stored("promo/index.html"));
  EXPECT_EQ(KivResourceStorageModule::pathToResourceFileWithName("promo.zip"), std::nullopt);
  manager->loadResourcesForConfig(config({page("p", 1, "promo.zip")}));
  EXPECT_TRUE(client->succeed("promo.zip", ZipBuilder().addFile("index.html", "new").build()));
  EXPECT_THAT(takeEvents(), ElementsAre("loaded p", "finished"));
  EXPECT_EQ(read(stored("promo/index.html")), "new");
  EXPECT_FALSE(exists(stored("promo/a.css")));
}

TEST_F(KivResourceArchiveRemovalTest, WhatIsLeftOfAnArchiveCanBeRemovedByItsPagesPath) {
  std::filesystem::remove(stored("promo/index.html"));
  KivResourceStorageModule::removeResourceFileWithPath_error(stored("promo/index.html"));
  EXPECT_FALSE(exists(stored("promo")));
}

}  // namespace
}  // namespace kiv::test
