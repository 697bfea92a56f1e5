#include <algorithm>
#include <memory>

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

TEST(StringListTest, EveryChangeSetsItsFlags) {
  const auto flag = std::make_shared<kiv::ChangeFlag>();
  StringList list{"a"};
  list.changeFlags().add(flag);
  EXPECT_FALSE(flag->clear());
  list.push_back("b");
  EXPECT_TRUE(flag->clear());
  list.assign({"c"});
  EXPECT_TRUE(flag->clear());
  list.clear();
  EXPECT_TRUE(flag->clear());
}

}  // namespace
