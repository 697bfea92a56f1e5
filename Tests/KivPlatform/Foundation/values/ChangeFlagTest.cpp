#include <gtest/gtest.h>

#include "KivPlatform/Foundation/values/ChangeFlag.h"

namespace {

using kiv::ChangeFlag;
using kiv::ChangeFlags;

TEST(ChangeFlagTest, IsSetUntilItIsCleared) {
  ChangeFlag flag;
  EXPECT_FALSE(flag.clear());
  flag.set();
  flag.set();
  EXPECT_TRUE(flag.clear());
  EXPECT_FALSE(flag.clear());
}

TEST(ChangeFlagTest, AllFlagsOfAnObjectAreSet) {
  const auto first = std::make_shared<ChangeFlag>();
  const auto second = std::make_shared<ChangeFlag>();
  const auto third = std::make_shared<ChangeFlag>();
  ChangeFlags flags;
  flags.set();
  for (const auto& flag : {first, second, first, third, second})
    flags.add(flag);
  flags.set();
  EXPECT_TRUE(first->clear());
  EXPECT_TRUE(second->clear());
  EXPECT_TRUE(third->clear());
}

TEST(ChangeFlagTest, TakesOverTheFlagsOfAnotherObject) {
  const auto first = std::make_shared<ChangeFlag>();
  const auto second = std::make_shared<ChangeFlag>();
  const auto own = std::make_shared<ChangeFlag>();
  ChangeFlags others;
  others.add(first);
  others.add(second);
  ChangeFlags flags;
  flags.add(own);
  flags.add(others);
  flags.set();
  EXPECT_TRUE(first->clear());
  EXPECT_TRUE(second->clear());
  EXPECT_TRUE(own->clear());
  others.set();
  EXPECT_FALSE(own->clear());
}

TEST(ChangeFlagTest, AFlagThatNobodyElseHoldsIsForgotten) {
  ChangeFlags flags;
  const auto kept = std::make_shared<ChangeFlag>();
  std::weak_ptr<ChangeFlag> gone;
  {
    const auto flag = std::make_shared<ChangeFlag>();
    gone = flag;
    flags.add(flag);
  }
  EXPECT_TRUE(gone.expired());
  flags.set();
  flags.add(kept);
  flags.set();
  EXPECT_TRUE(kept->clear());
}

}  // namespace
