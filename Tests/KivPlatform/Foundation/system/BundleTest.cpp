#include <filesystem>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "KivPlatform/Foundation/system/Bundle.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace {

using kiv::Bundle;
using kiv::test::TemporaryDirectory;

Bundle bundle() {
  return Bundle::frameworkBundleWithDirectory("InnerAdResources.bundle");
}

class BundleTest : public testing::Test {
 protected:
  void SetUp() override { Bundle::setFrameworkResourcesPath(directory_.path()); }
  void TearDown() override { Bundle::setFrameworkResourcesPath(std::nullopt); }

  static std::optional<std::string> find(std::string_view name, std::string_view type,
                                         std::string_view directory = "b") {
    return bundle().pathForResource_ofType_inDirectory(name, type, directory);
  }

  TemporaryDirectory directory_;
};

TEST_F(BundleTest, IsTheDirectoryThatTheHostNamed) {
  EXPECT_EQ(bundle().resourcePath(), directory_.path());
}

TEST_F(BundleTest, TheDefaultComesBack) {
  Bundle::setFrameworkResourcesPath(std::nullopt);
  const std::string found = bundle().resourcePath();
  EXPECT_NE(found, directory_.path());
  Bundle::setFrameworkResourcesPath(directory_.path());
  Bundle::setFrameworkResourcesPath(std::nullopt);
  EXPECT_EQ(bundle().resourcePath(), found);
}

TEST_F(BundleTest, ABundleThatWasTakenEarlierKeepsItsDirectory) {
  const std::string file = directory_.write("b/a.png");
  const Bundle taken = bundle();
  const TemporaryDirectory other;
  Bundle::setFrameworkResourcesPath(other.path());
  EXPECT_EQ(taken.pathForResource_ofType_inDirectory("a", "png", "b"), file);
  EXPECT_EQ(find("a", "png"), std::nullopt);
}

TEST_F(BundleTest, ARelativePathIsTakenFromTheCurrentDirectory) {
  const std::string file = directory_.write("b/a.png");
  Bundle::setFrameworkResourcesPath(std::filesystem::relative(directory_.path()).string());
  const auto found = find("a", "png");
  ASSERT_TRUE(found);
  EXPECT_TRUE(std::filesystem::path(*found).is_absolute());
  EXPECT_TRUE(std::filesystem::equivalent(*found, file));
}

TEST_F(BundleTest, WithoutADirectoryNothingIsFound) {
  Bundle::setFrameworkResourcesPath("");
  EXPECT_EQ(find("bin", "", ""), std::nullopt);
  EXPECT_EQ(find("passwd", "", "etc"), std::nullopt);
  Bundle::setFrameworkResourcesPath(directory_.path("missing"));
  EXPECT_EQ(find("a", "png"), std::nullopt);
}

TEST_F(BundleTest, FindsFilesByNameTypeAndDirectory) {
  const std::string inner = directory_.write("b/a.png");
  const std::string page = directory_.write("b/promo/index.html");
  const std::string outer = directory_.write("top.txt");
  EXPECT_EQ(find("a", "png"), inner);
  EXPECT_EQ(find("index", "html", "b/promo"), page);
  EXPECT_EQ(find("index", "html", "b/promo/"), page);
  EXPECT_EQ(find("top", "txt", ""), outer);
  EXPECT_EQ(find("a", "jpg"), std::nullopt);
  EXPECT_EQ(find("A", "png"), std::nullopt);
  EXPECT_EQ(find("a", "png", "c"), std::nullopt);
  EXPECT_EQ(find("a.b", "png"), std::nullopt);
}

TEST_F(BundleTest, ANameWithoutTypeIsThatOfExactlyThisFile) {
  const std::string plain = directory_.write("b/plain");
  directory_.write("b/a.png");
  EXPECT_EQ(find("plain", ""), plain);
  EXPECT_EQ(find("a", ""), std::nullopt);
  EXPECT_EQ(find("a.png", ""), directory_.path("b/a.png"));
}

TEST_F(BundleTest, ADotAtTheEndBelongsToTheName) {
  directory_.write("b/a");
  EXPECT_EQ(find("a.", ""), std::nullopt);
  const std::string dotted = directory_.write("b/a.");
  EXPECT_EQ(find("a.", ""), dotted);
}

TEST_F(BundleTest, NamesOfSeveralDotsAndOfNothingButAType) {
  const std::string dots = directory_.write("b/a.b.c");
  const std::string hidden = directory_.write("b/.hidden");
  EXPECT_EQ(find("a.b", "c"), dots);
  EXPECT_EQ(find("", "hidden"), hidden);
  EXPECT_EQ(find("", ""), std::nullopt);
}

TEST_F(BundleTest, DirectoriesAreNoFiles) {
  directory_.write("b/dir.d/x");
  EXPECT_EQ(find("dir", "d"), std::nullopt);
  EXPECT_EQ(find("dir.d", ""), std::nullopt);
  EXPECT_EQ(find(".", ""), std::nullopt);
  EXPECT_EQ(find("..", ""), std::nullopt);
}

TEST_F(BundleTest, ANulInANameEndsNothing) {
  directory_.write("b/a");
  EXPECT_EQ(find(std::string_view("a\0.png", 6), ""), std::nullopt);
  EXPECT_EQ(find(std::string_view("a\0", 2), "png"), std::nullopt);
}

}  // namespace
