#include <cstdint>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KivResource/maintenance/KivResourceTrimPlan.h"

namespace kiv::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// The items with those sizes, and as many users as the lists say.
std::vector<SharedItem> itemsOf(const std::vector<std::uint64_t>& sizes,
                                const ItemsOfUsers& users) {
  std::vector<SharedItem> items;
  for (const std::uint64_t size : sizes)
    items.push_back({size, 0});
  for (const auto& used : users) {
    for (const std::size_t item : used)
      ++items[item].users;
  }
  return items;
}

std::vector<std::size_t> choose(const std::vector<std::uint64_t>& sizes, const ItemsOfUsers& users,
                                std::uint64_t bytes) {
  auto items = itemsOf(sizes, users);
  return chooseUsers(users, items, bytes);
}

TEST(KivResourceTrimPlanTest, ChoosesTheFirstUntilEnoughIsFreed) {
  const ItemsOfUsers users{{0}, {1}, {2}};
  EXPECT_THAT(choose({10, 10, 10}, users, 0), IsEmpty());
  EXPECT_THAT(choose({10, 10, 10}, users, 1), ElementsAre(0));
  EXPECT_THAT(choose({10, 10, 10}, users, 10), ElementsAre(0));
  EXPECT_THAT(choose({10, 10, 10}, users, 11), ElementsAre(0, 1));
  EXPECT_THAT(choose({10, 10, 10}, users, 1000), ElementsAre(0, 1, 2));
  EXPECT_THAT(choose({}, {}, 1000), IsEmpty());
}

TEST(KivResourceTrimPlanTest, WhatFreesNothingIsLeftOut) {
  EXPECT_THAT(choose({0, 10, 0}, {{0}, {1}, {2}, {}}, 1000), ElementsAre(1));
}

TEST(KivResourceTrimPlanTest, ASharedItemIsFreedWithItsLastUser) {
  // The first and the last share an item.
  const ItemsOfUsers users{{0}, {1}, {0}};
  EXPECT_THAT(choose({10, 5, 0}, users, 15), ElementsAre(0, 1, 2));
  EXPECT_THAT(choose({10, 5, 0}, users, 6), ElementsAre(0, 1, 2));
  // The second is enough, so the first would go in vain.
  EXPECT_THAT(choose({10, 5, 0}, users, 5), ElementsAre(1));
}

TEST(KivResourceTrimPlanTest, AnItemWithAUserThatStaysIsNeverFreed) {
  const ItemsOfUsers users{{0, 1}, {0}};
  auto items = itemsOf({10, 5}, users);
  ++items[0].users;
  EXPECT_THAT(chooseUsers(users, items, 1000), ElementsAre(0));
  EXPECT_EQ(items[0].users, 2);
  EXPECT_EQ(items[1].users, 0);
}

TEST(KivResourceTrimPlanTest, PuttingOneBackKeepsWhatTheOthersFree) {
  // The first shares one item with the second and another with the third, which is not needed.
  const ItemsOfUsers users{{0, 1}, {0}, {1}};
  auto items = itemsOf({10, 20}, users);
  EXPECT_THAT(chooseUsers(users, items, 10), ElementsAre(0, 1));
  EXPECT_EQ(items[0].users, 0);
  EXPECT_EQ(items[1].users, 1);
}

}  // namespace
}  // namespace kiv::test
