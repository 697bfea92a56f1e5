#include <algorithm>

#include <gtest/gtest.h>

#include "KivPlatform/Foundation/values/StringList.h"

namespace {

using kiv::StringList;
using Strings = std::vector<std::string>;

TEST(StringListTest, KeepsOrderAndDuplicates) {
  StringList list{"b", "a"};
  list.push_back("b");
  EXPECT_EQ(list, (Strings{"b", "a", "b"}));
  EXPECT_EQ(list.size(), 3U);
  EXPECT_EQ(list[1], "a");
  EXPECT_EQ(list[3], "");
  EXPECT_TRUE(list.contains("a"));
  EXPECT_FALSE(list.contains("A"));
  EXPECT_EQ(std::count(list.begin(), list.end(), "b"), 2);
}

TEST(StringListTest, HoldsNothingButStrings) {
  StringList list;
  list.push_back(7);
  EXPECT_EQ(list, Strings{""});
}

TEST(StringListTest, SharesTheCharactersOfAValue) {
  const kiv::Value path("/a/path/that/is/too/long/to/be/held/in/place");
  StringList list;
  list.push_back(path);
  EXPECT_EQ(list[0].data(), path.stringView().data());
}

TEST(StringListTest, CountsEveryChangeFromWhenItIsToldTo) {
  std::atomic<std::uint64_t> count = 0;
  StringList list{"a"};
  list.countChangesIn(&count);
  EXPECT_EQ(count, 0U);
  list.push_back("b");
  list.assign({"c"});
  list.clear();
  EXPECT_EQ(count, 3U);
  list.countChangesIn(nullptr);
  list.push_back("d");
  EXPECT_EQ(count, 3U);
}

}  // namespace
