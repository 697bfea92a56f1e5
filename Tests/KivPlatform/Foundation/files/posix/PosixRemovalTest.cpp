#include <string_view>

#include <gtest/gtest.h>

#include "KivPlatform/Foundation/files/posix/PosixRemoval.h"

namespace kiv::posix {
namespace {

// These tests only parse paths: the paths they use must never be passed to a removal.

TEST(PosixRemovalTest, TheFileSystemsRootIsNoItem) {
  for (const std::string_view path : {"/", "//", "///", ""}) {
    EXPECT_FALSE(placeOfItem(path)) << path;
  }
}

TEST(PosixRemovalTest, DotsAtTheEndNameNoItem) {
  for (const std::string_view path : {".", "..", "/.", "/..", "a/.", "a/..", "/a/../", "/a/.//"}) {
    EXPECT_FALSE(placeOfItem(path)) << path;
  }
}

TEST(PosixRemovalTest, AnItemIsANameInADirectory) {
  const auto expectPlace = [](std::string_view path, std::string_view directory,
                              std::string_view name) {
    const auto place = placeOfItem(path);
    ASSERT_TRUE(place) << path;
    EXPECT_EQ(place->directory, directory) << path;
    EXPECT_EQ(place->name, name) << path;
  };
  expectPlace("/a/b", "/a", "b");
  expectPlace("/a", "/", "a");
  expectPlace("/a/b//", "/a", "b");
  expectPlace("/a//b", "/a", "b");
  expectPlace("/a/../b", "/a/..", "b");
  expectPlace("b", ".", "b");
  expectPlace("/a/...", "/a", "...");
}

}  // namespace
}  // namespace kiv::posix
