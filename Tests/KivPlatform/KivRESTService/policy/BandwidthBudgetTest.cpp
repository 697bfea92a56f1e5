#include <algorithm>
#include <chrono>
#include <cstdint>
#include <limits>

#include <gtest/gtest.h>

#include "KivPlatform/KivRESTService/policy/SpeedPolicy.h"

namespace {

using kiv::BandwidthBudget;
using Time = BandwidthBudget::Time;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr std::int64_t megabyte = 1'000'000;

class BandwidthBudgetTest : public testing::Test {
 protected:
  /// A transfer that starts as soon as it may and receives that many bytes at once.
  void transfer(std::int64_t bytes) {
    now_ = std::max(now_, budget_.paidAt());
    budget_.spend(bytes, now_);
  }

  const Time start_ = Time() + seconds(1000);
  Time now_ = start_;
  BandwidthBudget budget_{megabyte};
};

TEST_F(BandwidthBudgetTest, ManySmallTransfersTakeAsLongAsOneLarge) {
  for (int count = 0; count < 1000; ++count)
    transfer(20'000);
  const auto expected = milliseconds(19'980);  // without the wait after the last one
  EXPECT_GE(now_ - start_, expected - BandwidthBudget::burst);
  EXPECT_LE(now_ - start_, expected);
}

TEST_F(BandwidthBudgetTest, TransfersAtOneTimeArePaidForTogether) {
  for (int count = 0; count < 6; ++count)
    budget_.spend(megabyte, now_);
  EXPECT_EQ(budget_.paidAt() - now_, seconds(6) - BandwidthBudget::burst);
}

TEST_F(BandwidthBudgetTest, WhatNeverCameIsNotSavedUp) {
  transfer(megabyte);
  now_ += std::chrono::hours(24);
  budget_.spend(megabyte, now_);
  EXPECT_EQ(budget_.paidAt() - now_, seconds(1) - BandwidthBudget::burst);
}

TEST_F(BandwidthBudgetTest, ALittleAtATimeIsPaidForAtOnce) {
  for (int count = 0; count < 1000; ++count) {
    budget_.spend(megabyte / 100, now_);
    now_ += milliseconds(10);
    EXPECT_LE(budget_.paidAt(), now_);
  }
}

TEST_F(BandwidthBudgetTest, NothingIsFree) {
  transfer(megabyte);
  const auto paidAt = budget_.paidAt();
  budget_.spend(0, now_);
  EXPECT_EQ(budget_.paidAt(), paidAt);
}

TEST_F(BandwidthBudgetTest, WithoutALimitNothingIsOwed) {
  for (const std::int64_t none : {0, -1}) {
    BandwidthBudget budget(none);
    EXPECT_FALSE(budget.isLimited());
    budget.spend(std::numeric_limits<std::int64_t>::max(), now_);
    EXPECT_LE(budget.paidAt(), now_);
  }
}

TEST_F(BandwidthBudgetTest, ADebtBeyondAllTimesStaysInTheFuture) {
  BandwidthBudget budget(1);
  for (int count = 0; count < 1000; ++count) {
    budget.spend(std::numeric_limits<std::int64_t>::max(), now_);
    EXPECT_GT(budget.paidAt(), now_ + std::chrono::hours(24));
  }
}

TEST_F(BandwidthBudgetTest, NothingIsOwedBeforeAnythingHasCome) {
  EXPECT_TRUE(budget_.isLimited());
  EXPECT_LE(budget_.paidAt(), now_);
}

}  // namespace
