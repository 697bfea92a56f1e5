#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "KivPlatform/Foundation/files/Path.h"

namespace {

using namespace std::string_view_literals;

struct Parts {
  std::string_view path;
  std::string_view last;
  std::string_view parent;
  std::string_view extension;
  std::string_view stem;
};

constexpr Parts splitPaths[] = {
    {"", "", "", "", ""},
    {"/", "", "/", "", "/"},
    {"//", "", "/", "", "//"},
    {"a", "a", "", "", "a"},
    {"a/", "", "a", "", "a/"},
    {"a//", "", "a", "", "a//"},
    {"/a", "a", "/", "", "/a"},
    {"//a", "a", "/", "", "//a"},
    {"/a/b", "b", "/a", "", "/a/b"},
    {"/a//b", "b", "/a", "", "/a//b"},
    {"a/b/c.png", "c.png", "a/b", "png", "a/b/c"},
    {"page.zip", "page.zip", "", "zip", "page"},
    {"a.b.zip", "a.b.zip", "", "zip", "a.b"},
    {".zip", ".zip", "", "zip", ""},
    {"x/.zip", ".zip", "x", "zip", "x/"},
    {"..zip", "..zip", "", "zip", "."},
    {"...zip", "...zip", "", "zip", ".."},
    {"a.", "a.", "", "", "a"},
    {"a..", "a..", "", "", "a."},
    {".", ".", "", "", ""},
    {"..", "..", "", "", "."},
    {"x/..", "..", "x", "", "x/."},
    {"v1.2/page", "page", "v1.2", "", "v1.2/page"},
    {"v1.2/", "", "v1.2", "", "v1.2/"},
    {"a\\b.png", "a\\b.png", "", "png", "a\\b"},
    {"http://ads.example/a.png?x=1/2", "2", "http://ads.example/a.png?x=1", "",
     "http://ads.example/a.png?x=1/2"},
    {"\xd0\xba\xd0\xb8\xd0\xb2/\xd1\x84.png", "\xd1\x84.png", "\xd0\xba\xd0\xb8\xd0\xb2", "png",
     "\xd0\xba\xd0\xb8\xd0\xb2/\xd1\x84"},
    {"a\0/b\0.c"sv, "b\0.c"sv, "a\0"sv, "c", "a\0/b\0"sv},
};

class PathSplitTest : public testing::TestWithParam<Parts> {};

TEST_P(PathSplitTest, SplitsByTheFinalSeparatorAndTheFinalDot) {
  const Parts& parts = GetParam();
  EXPECT_EQ(kiv::path::lastPathComponent(parts.path), parts.last);
  EXPECT_EQ(kiv::path::deletingLastPathComponent(parts.path), parts.parent);
  EXPECT_EQ(kiv::path::pathExtension(parts.path), parts.extension);
  EXPECT_EQ(kiv::path::deletingPathExtension(parts.path), parts.stem);
}

INSTANTIATE_TEST_SUITE_P(Paths, PathSplitTest, testing::ValuesIn(splitPaths));

struct Join {
  std::string_view path;
  std::string_view component;
  std::string_view joined;
};

constexpr Join joins[] = {
    {"a", "b", "a/b"},
    {"a/", "b", "a/b"},
    {"a", "/b", "a/b"},
    {"a/", "/b", "a/b"},
    {"a//", "//b", "a/b"},
    {"/", "b", "/b"},
    {"//", "/b", "/b"},
    {"", "b", "b"},
    {"", "/b", "b"},
    {"", "", ""},
    {"a", "", "a/"},
    {"a/", "", "a/"},
    {"a", "/", "a/"},
    {"a", "b/", "a/b/"},
    {"a", "b//c", "a/b//c"},
    {"a", "..", "a/.."},
    {"http://ads.example", "promo/a.png", "http://ads.example/promo/a.png"},
    {"http://ads.example/", "/promo/a.png", "http://ads.example/promo/a.png"},
    {"http://ads.example/files", "a.png", "http://ads.example/files/a.png"},
    {"http://ads.example", "@evil.test/a", "http://ads.example/@evil.test/a"},
    {"http://ads.example", ":80@evil.test/a", "http://ads.example/:80@evil.test/a"},
    {"http://ads.example", ".evil.test/a", "http://ads.example/.evil.test/a"},
    {"http://ads.example", "//evil.test/a", "http://ads.example/evil.test/a"},
    {"a\0"sv, "\0b"sv, "a\0/\0b"sv},
};

class PathJoinTest : public testing::TestWithParam<Join> {};

TEST_P(PathJoinTest, JoinsByExactlyOneSeparator) {
  const Join& join = GetParam();
  EXPECT_EQ(kiv::path::appendingPathComponent(join.path, join.component), join.joined);
}

INSTANTIATE_TEST_SUITE_P(Joins, PathJoinTest, testing::ValuesIn(joins));

TEST(PathTest, WhatWasAppendedIsTheLastComponentAgain) {
  for (const std::string_view directory : {"", "/", "a", "a/b/", "//x"}) {
    for (const std::string_view name : {"n", "n.zip", ".zip", "..", "a."}) {
      const std::string joined = kiv::path::appendingPathComponent(directory, name);
      EXPECT_EQ(kiv::path::lastPathComponent(joined), name);
    }
  }
}

}  // namespace
