#include <gtest/gtest.h>

#include "KivPlatform/KivStorageService/store/StoredPath.h"

namespace kiv::storage {
namespace {

TEST(StoredPathTest, AnArchiveIsKnownByItsEndingInLowerCase) {
  EXPECT_TRUE(isArchiveName("a.zip"));
  EXPECT_TRUE(isArchiveName(".zip"));
  EXPECT_FALSE(isArchiveName("a.ZIP"));
  EXPECT_FALSE(isArchiveName("azip"));
  EXPECT_FALSE(isArchiveName("zip"));
  EXPECT_EQ(archiveStem("a.b.zip"), "a.b");
  EXPECT_EQ(archiveStem(".zip"), "");
}

TEST(StoredPathTest, RelativePathsAreMadeOfHarmlessNames) {
  for (const char* const path :
       {"", "a", "KivResource/Resources", "a/..b", "x/.KivStorageService"}) {
    EXPECT_FALSE(validateRelativePath(path)) << path;
  }
  for (const char* const path :
       {"/", "/a", "a/", "a//b", ".", "..", "a/..", "a/./b", "a\\b", "a/...", "a/nul", "a:b",
        ".KivStorageService", ".KivStorageService/x"}) {
    EXPECT_TRUE(validateRelativePath(path)) << path;
  }
}

TEST(StoredPathTest, AStemMattersOnlyForSaving) {
  EXPECT_TRUE(checkPlace("..zip", "a"));
  EXPECT_FALSE(checkSaving("..zip", "a"));
  EXPECT_TRUE(checkSaving("a.zip", "a"));
}

}  // namespace
}  // namespace kiv::storage
