// Names that differ only in case or Unicode normalization, on file systems that ignore both and on
// those that do not.

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KivResource/KivResourceFactory.h"
#include "KivResource/maintenance/KivResourceMaintenance.h"
#include "Tests/Support/ManagerFixture.h"
#include "Tests/Support/SpellingFileManager.h"
#include "Tests/Support/ZipBuilder.h"

namespace kiv::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Maintenance = KivResourceMaintenance;
using Resolves = SpellingFileManager::Resolves;

class OtherSpellingTest : public ManagerFixture {
 protected:
  /// Expects that every listed file is there, and that every stored one is listed.
  void expectSound() {
    const auto audit = Maintenance::audit(*manager);
    ASSERT_TRUE(audit);
    EXPECT_THAT(audit->missing, IsEmpty());
    EXPECT_THAT(audit->orphaned, IsEmpty());
    EXPECT_THAT(audit->partial, IsEmpty());
    for (const auto& resource : *manager->loadedResources())
      EXPECT_TRUE(resource->filesExist()) << resource->resourceID();
  }

  /// The stamp of the only resource after a restart.
  std::uint64_t stampAfterRestart() {
    restart();
    return manager->loadedResources()->size() == 1 ? entry(0)->updated() : 0;
  }
};

class IgnoredSpellingTest : public OtherSpellingTest, public testing::WithParamInterface<Resolves> {
 private:
  SpellingFileManager files_{GetParam()};
};

INSTANTIATE_TEST_SUITE_P(OtherSpelling, IgnoredSpellingTest,
                         testing::Values(Resolves::toStoredSpelling, Resolves::toAskedSpelling),
                         [](const auto& each) {
                           return each.param == Resolves::toStoredSpelling ? "Stored" : "Asked";
                         });

TEST_P(IgnoredSpellingTest, AReplacedVersionTakesNoFileOfTheNewOneAway) {
  load({banner("a", 1, "v1/Banner.png")});
  load({banner("a", 2, "v2/banner.png")});
  expectSound();
  EXPECT_EQ(stampAfterRestart(), 2U);
  expectSound();
}

TEST_P(IgnoredSpellingTest, SoItIsForThePageOfAnArchive) {
  const std::string archive = ZipBuilder().addFile("index.html", "page").build();
  beginLoad({page("a", 1, "v1/Promo.zip")});
  EXPECT_TRUE(client->succeed("/Promo.zip", archive));
  takeEvents();
  beginLoad({page("a", 2, "v2/promo.zip")});
  client->succeed("/promo.zip", archive);
  takeEvents();
  expectSound();
  EXPECT_EQ(stampAfterRestart(), 2U);
}

TEST_P(IgnoredSpellingTest, AFileThatAnotherResourceSpellsOtherwiseStays) {
  load({banner("a", 1, "x/Shared.png"), banner("b", 1, "x/shared.PNG")});
  load({banner("a", 2, "x/a2.png")});
  expectSound();
  EXPECT_THAT(registry(), ElementsAre("b", "a"));
  load({banner("b", 2, "x/b2.png")});
  expectSound();
  EXPECT_FALSE(exists(stored("Shared.png")));
}

TEST_P(IgnoredSpellingTest, AFileThatIsToBeRemovedIsNotFoundInAnotherSpelling) {
  load({banner("a", 1, "x/Banner.png")});
  beginLoad({banner("a", 2, "x/a2.png"), video("b", 1, "x/b.png", "x/b.mp4")});
  DispatchQueue::main()->async([&] {
    EXPECT_TRUE(client->succeed("/a2.png"));  // "Banner.png" is to be removed
    manager->loadFilesForResource(
        KivResourceFactory::createResourceFromDictionary(banner("c", 1, "x/banner.png")));
  });
  takeEvents();
  EXPECT_TRUE(client->succeed("/banner.png", "new"));
  while (!client->tasks.empty())
    client->succeed("");
  takeEvents();
  expectSound();
  EXPECT_EQ(readFile(stored("banner.png")), "new");
}

TEST_P(IgnoredSpellingTest, AFileInUseIsNoOrphanUnderTheNameThatTheDirectoryLists) {
  write(stored("cafe\u0301.png"), "bytes");
  load({banner("a", 1, stored("caf\u00e9.png")), banner("b", 1, "x/B.png")});
  std::filesystem::rename(stored("B.png"), stored("b.PNG"));
  restart();
  EXPECT_THAT(registry(), ElementsAre("a", "b"));
  expectSound();
  const auto cleanUp = Maintenance::cleanUpOrphans(*manager, Maintenance::Mode::remove);
  ASSERT_TRUE(cleanUp);
  EXPECT_THAT(cleanUp->removed, IsEmpty());
  EXPECT_TRUE(exists(stored("b.PNG")));
}

TEST_F(OtherSpellingTest, WhereItCountsTheOldFileIsRemoved) {
  load({banner("a", 1, "v1/Banner.png")});
  load({banner("a", 2, "v2/banner.png")});
  expectSound();
  EXPECT_FALSE(exists(stored("Banner.png")));
  EXPECT_TRUE(exists(stored("banner.png")));
  EXPECT_EQ(stampAfterRestart(), 2U);
}

TEST_F(OtherSpellingTest, WhereItCountsAnotherSpellingIsAnOrphan) {
  write(stored("caf\u00e9.png"), "bytes");
  load({banner("a", 1, stored("caf\u00e9.png")), page("b", 1, "x/Dir.html")});
  write(stored("cafe\u0301.png"), "other");
  write(stored("dir.html/file"), "other");
  const auto cleanUp = Maintenance::cleanUpOrphans(*manager, Maintenance::Mode::remove);
  ASSERT_TRUE(cleanUp);
  EXPECT_EQ(cleanUp->removed.size(), 2U);
  EXPECT_TRUE(exists(stored("caf\u00e9.png")));
  EXPECT_FALSE(exists(stored("cafe\u0301.png")));
  expectSound();
}

}  // namespace
}  // namespace kiv::test
