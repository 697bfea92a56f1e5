#include <gtest/gtest.h>

#include "KivPlatform/KivStorageService/archive/ArchiveRules.h"

namespace kiv::storage {
namespace {

TEST(ArchiveRulesTest, OrdinaryNamesAreTaken) {
  for (const std::string name :
       {"index.html", "css/a.css", "a/b/c/", "./a", "././a/", "./", ".hidden", "...", "..a", "a..",
        "a b", "ab:c/d", "1:x", "caf\u00e9", "~", "-", "con"}) {
    EXPECT_EQ(objectionToEntryName(name, {}), std::nullopt) << name;
  }
}

TEST(ArchiveRulesTest, APathIsTheNameWithoutDotAtTheStartAndSlashAtTheEnd) {
  EXPECT_EQ(pathOfEntryName("a/b"), "a/b");
  EXPECT_EQ(pathOfEntryName("./a/b/"), "a/b");
  EXPECT_EQ(pathOfEntryName("././a"), "a");
  EXPECT_EQ(pathOfEntryName("./"), "");
  EXPECT_EQ(pathOfEntryName(".a"), ".a");
}

TEST(ArchiveRulesTest, ADotAloneIsNoName) {
  EXPECT_TRUE(objectionToEntryName(".", {}));
  EXPECT_TRUE(objectionToEntryName("./.", {}));
  EXPECT_TRUE(objectionToEntryName("..", {}));
  EXPECT_TRUE(objectionToEntryName("./..", {}));
}

TEST(ArchiveRulesTest, CeilingsHoldExactly) {
  EXPECT_FALSE(objectionToEntryName(std::string(255, 'n'), {}));
  EXPECT_TRUE(objectionToEntryName(std::string(256, 'n'), {}));
  ArchiveCeilings ceilings;
  ceilings.levels = 2;
  EXPECT_FALSE(objectionToEntryName("a/b", ceilings));
  EXPECT_FALSE(objectionToEntryName("./a/b/", ceilings));
  EXPECT_TRUE(objectionToEntryName("a/b/c", ceilings));
  ceilings.pathBytes = 3;
  EXPECT_FALSE(objectionToEntryName("a/b", ceilings));
  EXPECT_TRUE(objectionToEntryName("a/bc", ceilings));
}

TEST(ArchiveRulesTest, AModeWithoutFileTypeIsTaken) {
  ArchiveEntry entry;
  entry.rawName = "a";
  for (const std::uint32_t mode : {0U, 0644U, 0100644U, 0104755U}) {
    entry.attributes = mode << 16;
    EXPECT_EQ(objectionToEntryKind(entry, {}), std::nullopt) << mode;
  }
}

TEST(ArchiveRulesTest, ADirectoryMayBearARegularFilesMode) {
  ArchiveEntry entry;
  entry.rawName = "a/";
  entry.attributes = 0100644U << 16;
  EXPECT_EQ(objectionToEntryKind(entry, {}), std::nullopt);
}

}  // namespace
}  // namespace kiv::storage
