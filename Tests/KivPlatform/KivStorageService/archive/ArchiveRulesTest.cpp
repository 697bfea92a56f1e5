#include <gtest/gtest.h>

#include "KivPlatform/KivStorageService/archive/ArchiveRules.h"

namespace kiv::storage {
namespace {

TEST(ArchiveRulesTest, OrdinaryNamesAreTaken) {
  for (const std::string name :
       {"index.html", "css/a.css", "a/b/c/", "./a", "././a/", "./", ".hidden", "...", "..a", "a..",
        "a b", "ab:c/d", "1:x", "caf\u00e9", "~", "-", "con"}) {
    EXPECT_EQ(validateEntryName(name, {}), std::nullopt) << name;
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
  EXPECT_TRUE(validateEntryName(".", {}));
  EXPECT_TRUE(validateEntryName("./.", {}));
  EXPECT_TRUE(validateEntryName("..", {}));
  EXPECT_TRUE(validateEntryName("./..", {}));
}

TEST(ArchiveRulesTest, LimitsHoldExactly) {
  EXPECT_FALSE(validateEntryName(std::string(255, 'n'), {}));
  EXPECT_TRUE(validateEntryName(std::string(256, 'n'), {}));
  ArchiveLimits limits;
  limits.levels = 2;
  EXPECT_FALSE(validateEntryName("a/b", limits));
  EXPECT_FALSE(validateEntryName("./a/b/", limits));
  EXPECT_TRUE(validateEntryName("a/b/c", limits));
  limits.pathBytes = 3;
  EXPECT_FALSE(validateEntryName("a/b", limits));
  EXPECT_TRUE(validateEntryName("a/bc", limits));
}

TEST(ArchiveRulesTest, AModeWithoutFileTypeIsTaken) {
  ArchiveEntry entry;
  entry.rawName = "a";
  for (const std::uint32_t mode : {0U, 0644U, 0100644U, 0104755U}) {
    entry.attributes = mode << 16;
    EXPECT_EQ(validateEntryKind(entry, {}), std::nullopt) << mode;
  }
}

TEST(ArchiveRulesTest, ADirectoryMayBearARegularFilesMode) {
  ArchiveEntry entry;
  entry.rawName = "a/";
  entry.attributes = 0100644U << 16;
  EXPECT_EQ(validateEntryKind(entry, {}), std::nullopt);
}

}  // namespace
}  // namespace kiv::storage
