#include <cstring>

#include <gtest/gtest.h>

#include "KivPlatform/KivStorageService/archive/ArchiveRules.h"

namespace kiv::storage {
namespace {

TEST(ArchiveRulesTest, OrdinaryNamesAreTaken) {
  for (const std::string name :
       {"index.html", "css/a.css", "a/b/c/", "./a", "././a/", "./", ".hidden", "..a", "a b",
        "caf\u00e9", "~", "-", "icon", "contents/a"}) {
    EXPECT_EQ(validateEntryName(name, {}), std::nullopt) << name;
  }
}

TEST(ArchiveRulesTest, NamesThatAnotherSystemCannotHoldAreRefused) {
  for (const std::string name : {"...", "a..", "a./b", "a /b", "ab:c/d", "1:x", "css/a?v=1.css",
                                 "con", "a/NUL.txt/b", "tab\t"}) {
    const auto problem = validateEntryName(name, {});
    ASSERT_TRUE(problem) << name;
    EXPECT_TRUE(problem->starts_with("has a part in its path that ")) << *problem;
  }
  EXPECT_EQ(validateEntryName("aux/a", {}),
            "has a part in its path that is the name of a device on Windows");
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

TEST(ArchiveTreeTest, MakesTheDirectoriesAboveAFileOnce) {
  ArchiveTree tree(3);
  EXPECT_FALSE(tree.addFile("a/b", 0));
  EXPECT_FALSE(tree.addDirectory("a"));
  EXPECT_FALSE(tree.addFile("a/c", 1));
  EXPECT_TRUE(tree.addFile("d", 2)) << "a fourth item";
  const ArchiveNode* const directory = tree.top("index.html").child("a");
  ASSERT_TRUE(directory);
  EXPECT_TRUE(directory->isDirectory());
  EXPECT_EQ(directory->child("c")->entry, 1U);
}

TEST(ArchiveTreeTest, TheTopIsASingleFolderThatHoldsThePageAsAFile) {
  const auto top = [](std::initializer_list<const char*> files) {
    ArchiveTree tree(100);
    for (const char* const file : files) {
      EXPECT_FALSE(std::string_view(file).ends_with('/')
                       ? tree.addDirectory(std::string_view(file).substr(0, std::strlen(file) - 1))
                       : tree.addFile(file, 0));
    }
    return tree.top("index.html").name;
  };
  EXPECT_EQ(top({"site/index.html", "site/a"}), "site");
  EXPECT_EQ(top({"site/index.html", "b"}), "");
  EXPECT_EQ(top({"site/index.html", "b/"}), "");
  EXPECT_EQ(top({"site/index.html/a"}), "") << "the page is a directory";
  EXPECT_EQ(top({"site/INDEX.html"}), "");
  EXPECT_EQ(top({"index.html"}), "");
  EXPECT_EQ(top({"a/b/index.html"}), "");
  EXPECT_EQ(top({}), "");
}

TEST(ArchiveTreeTest, AChildIsFoundByItsExactNameOnly) {
  ArchiveTree tree(10);
  EXPECT_FALSE(tree.addFile("Index.html", 0));
  EXPECT_FALSE(tree.top("x").child("index.html"));
  EXPECT_TRUE(tree.top("x").child("Index.html"));
}

}  // namespace
}  // namespace kiv::storage
