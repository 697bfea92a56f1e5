#include <chrono>
#include <cmath>
#include <cstdint>
#include <limits>
#include <set>

#include <gtest/gtest.h>

#include "KivResource/configuration/KivConfigurationSchedule.h"

namespace {

using namespace std::chrono_literals;
using kiv::ConfigurationSchedule;
using Milliseconds = ConfigurationSchedule::Milliseconds;

TEST(KivConfigurationSchedule, WithoutJitterTheWaitIsTheInterval) {
  ConfigurationSchedule schedule(600s, 0, 1);
  for (int check = 0; check < 3; ++check)
    EXPECT_EQ(schedule.next(false), Milliseconds(600s));
}

TEST(KivConfigurationSchedule, JitterOnlyLengthensTheWait) {
  ConfigurationSchedule schedule(600s, 0.5, 1);
  std::set<Milliseconds> waits;
  for (int check = 0; check < 1000; ++check) {
    const auto wait = schedule.next(false);
    ASSERT_TRUE(wait);
    EXPECT_GE(*wait, 600s);
    EXPECT_LE(*wait, 900s);
    waits.insert(*wait);
  }
  EXPECT_LT(*waits.begin(), 630s);
  EXPECT_GT(*waits.rbegin(), 870s);
}

TEST(KivConfigurationSchedule, OtherSeedsGiveOtherWaits) {
  EXPECT_NE(ConfigurationSchedule(600s, 1, 1).next(false),
            ConfigurationSchedule(600s, 1, 2).next(false));
}

TEST(KivConfigurationSchedule, FailuresBackOffUpToTheInterval) {
  ConfigurationSchedule schedule(300s, 0, 1);
  EXPECT_EQ(schedule.next(true), Milliseconds(60s));
  EXPECT_EQ(schedule.next(true), Milliseconds(120s));
  EXPECT_EQ(schedule.next(true), Milliseconds(240s));
  EXPECT_EQ(schedule.next(true), Milliseconds(300s));
  for (int failure = 0; failure < 100; ++failure)  // no overflow
    EXPECT_EQ(schedule.next(true), Milliseconds(300s));
  EXPECT_EQ(schedule.next(false), Milliseconds(300s));
  EXPECT_EQ(schedule.next(true), Milliseconds(60s));
}

TEST(KivConfigurationSchedule, AFailureNeverWaitsLongerThanTheInterval) {
  EXPECT_EQ(ConfigurationSchedule(5s, 0, 1).next(true), Milliseconds(5s));
}

TEST(KivConfigurationSchedule, WithoutAnIntervalNothingIsPlanned) {
  for (const auto interval : {0s, -1s, std::chrono::seconds::min()}) {
    EXPECT_FALSE(ConfigurationSchedule(interval, 0.1, 1).next(false));
    EXPECT_FALSE(ConfigurationSchedule(interval, 0.1, 1).next(true));
  }
}

TEST(KivConfigurationSchedule, ALongIntervalIsAYear) {
  for (const auto interval : {std::chrono::seconds::max(), std::chrono::seconds(1LL << 40)}) {
    const auto wait = ConfigurationSchedule(interval, 1, 1).next(false);
    ASSERT_TRUE(wait);
    EXPECT_GE(*wait, ConfigurationSchedule::longestInterval);
    EXPECT_LE(*wait, 2 * ConfigurationSchedule::longestInterval);
  }
}

TEST(KivConfigurationSchedule, AStrangeJitterIsBounded) {
  for (const double jitter :
       {-1.0, std::numeric_limits<double>::quiet_NaN(), -std::numeric_limits<double>::infinity()})
    EXPECT_EQ(ConfigurationSchedule(600s, jitter, 1).next(false), Milliseconds(600s));
  for (int seed = 0; seed < 100; ++seed) {
    ConfigurationSchedule schedule(600s, std::numeric_limits<double>::infinity(),
                                   static_cast<std::uint32_t>(seed));
    EXPECT_LE(*schedule.next(false), 1200s);
  }
}

}  // namespace
