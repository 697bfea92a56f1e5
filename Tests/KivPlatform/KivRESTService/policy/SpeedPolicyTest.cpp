#include <chrono>
#include <cstdint>
#include <limits>

#include <gtest/gtest.h>

#include "KivPlatform/KivRESTService/policy/SpeedPolicy.h"
#include "KivPlatform/KivRESTService/policy/TransferSettings.h"

namespace {

using namespace std::chrono_literals;
using kiv::SilenceMeter;
using kiv::SpeedMeter;
using kiv::SpeedPolicy;

// --- The minimum speed ---------------------------------------------------------------------------

TEST(SpeedPolicy, AYoungDownloadIsLeftToTheStallTimeout) {
  const SpeedPolicy policy{kiv::TransferSettings()};
  EXPECT_EQ(policy.minimum(0s), 0);
  EXPECT_EQ(policy.minimum(299s), 0);
}

TEST(SpeedPolicy, TheLeastSpeedDoublesWithAgeUpToABound) {
  const SpeedPolicy policy{kiv::TransferSettings()};
  EXPECT_EQ(policy.minimum(5min), 128);
  EXPECT_EQ(policy.minimum(9min), 128);
  EXPECT_EQ(policy.minimum(10min), 256);
  EXPECT_EQ(policy.minimum(15min), 512);
  EXPECT_EQ(policy.minimum(20min), 512);
  EXPECT_EQ(policy.minimum(24h * 365 * 100), 512);
}

TEST(SpeedPolicy, SixTransfersOnALineOfFiveKilobytesASecondAreFastEnoughAtAnyAge) {
  const SpeedPolicy policy{kiv::TransferSettings()};
  EXPECT_LT(policy.minimum(24h), 5000.0 / 6);
}

TEST(SpeedPolicy, NoLeastSpeedWithoutDoublingOrStallTimeout) {
  kiv::TransferSettings settings;
  settings.stallSpeedDoubling = 0s;
  EXPECT_EQ(SpeedPolicy(settings).minimum(24h), 0);
  settings = {};
  settings.stallTimeout = 0s;
  EXPECT_EQ(SpeedPolicy(settings).minimum(24h), 0);
}

TEST(SpeedPolicy, ATransferThatTheBandwidthHoldsBackIsNotSlow) {
  kiv::TransferSettings settings;
  settings.bandwidth = 1400;  // 200 for each of six and for a throttled one
  EXPECT_EQ(SpeedPolicy(settings).minimum(24h), 100);
  EXPECT_FALSE(SpeedPolicy(settings).isSlow(101));
  EXPECT_TRUE(SpeedPolicy(settings).isSlow(99));
}

TEST(SpeedPolicy, SettingsBeyondWhatTheClockCanCountAreTaken) {
  kiv::TransferSettings settings;
  settings.stallTimeout = settings.stallSpeedDoubling = settings.slowTurn = settings.deadline =
      std::chrono::seconds::max();
  settings.stallSpeed = settings.largestStallSpeed = settings.slowSpeed =
      std::numeric_limits<std::int64_t>::max();
  settings.bandwidth = std::numeric_limits<std::int64_t>::max();
  const SpeedPolicy policy(settings);
  EXPECT_EQ(policy.minimum(24h), 0);
  EXPECT_GT(policy.window(), 24h);
  EXPECT_GT(policy.turn(100), 24h);
  EXPECT_GT(policy.deadline(SpeedPolicy::Time()), SpeedPolicy::Time() + 24h);
  settings.stallSpeedDoubling = settings.slowTurn = settings.deadline = -1s;
  EXPECT_EQ(SpeedPolicy(settings).minimum(24h), 0);
  EXPECT_EQ(SpeedPolicy(settings).turn(3), 0s);
  EXPECT_EQ(SpeedPolicy(settings).deadline(SpeedPolicy::Time()), std::nullopt);
}

// --- Giving way ----------------------------------------------------------------------------------

TEST(SpeedPolicy, SlowIsBetweenStalledAndFastEnough) {
  const SpeedPolicy policy{kiv::TransferSettings()};
  EXPECT_FALSE(policy.isSlow(0)) << "a stall is a failed try";
  EXPECT_FALSE(policy.isSlow(63));
  EXPECT_TRUE(policy.isSlow(64));
  EXPECT_TRUE(policy.isSlow(8191));
  EXPECT_FALSE(policy.isSlow(8192));
}

TEST(SpeedPolicy, NothingIsSlowWhereTheSpeedIsZero) {
  kiv::TransferSettings settings;
  settings.slowSpeed = 0;
  EXPECT_FALSE(SpeedPolicy(settings).isSlow(64));
}

TEST(SpeedPolicy, EachTurnIsTwiceAsLongAsTheOneBefore) {
  const SpeedPolicy policy{kiv::TransferSettings()};
  EXPECT_EQ(policy.turn(0), 30s);
  EXPECT_EQ(policy.turn(1), 60s);
  EXPECT_EQ(policy.turn(7), 64min);
  EXPECT_LT(policy.turn(std::numeric_limits<int>::max()), 72h);
}

TEST(SpeedPolicy, TheOlderHalfOfThePlacesIsLeftAlone) {
  EXPECT_FALSE(SpeedPolicy::mayGiveWay(0, 6));
  EXPECT_FALSE(SpeedPolicy::mayGiveWay(2, 6));
  EXPECT_TRUE(SpeedPolicy::mayGiveWay(3, 6));
  EXPECT_TRUE(SpeedPolicy::mayGiveWay(5, 6));
  EXPECT_TRUE(SpeedPolicy::mayGiveWay(1, 3));
  EXPECT_TRUE(SpeedPolicy::mayGiveWay(0, 1)) << "a place that is the only one has to be shared";
  EXPECT_TRUE(SpeedPolicy::mayGiveWay(0, 0));
}

TEST(SpeedPolicy, TheDeadlineCountsFromTheBeginning) {
  kiv::TransferSettings settings;
  settings.deadline = 10s;
  const SpeedPolicy::Time begun{1h};
  EXPECT_EQ(SpeedPolicy(settings).deadline(begun), begun + 10s);
  settings.deadline = 0s;
  EXPECT_EQ(SpeedPolicy(settings).deadline(begun), std::nullopt);
}

// --- Measuring -----------------------------------------------------------------------------------

class SpeedMeterTest : public testing::Test {
 protected:
  std::optional<double> speedAfter(std::int64_t bytes, SpeedPolicy::Duration time) {
    meter_.note(bytes, begun_ + time, 10s);
    return meter_.bytesPerSecond();
  }

  const SpeedPolicy::Time begun_{1h};
  SpeedMeter meter_;
};

TEST_F(SpeedMeterTest, NothingIsKnownBeforeTheFirstWindowHasPassed) {
  meter_.restart(0, begun_);
  EXPECT_EQ(speedAfter(5000, 0s), std::nullopt);
  EXPECT_EQ(speedAfter(5000, 9999ms), std::nullopt);
  EXPECT_EQ(speedAfter(5000, 10s), 500);
}

TEST_F(SpeedMeterTest, EachWindowCountsForItself) {
  meter_.restart(700, begun_);
  EXPECT_EQ(speedAfter(10'700, 10s), 1000);
  EXPECT_EQ(speedAfter(10'700, 19s), 1000) << "until the next has passed";
  EXPECT_EQ(speedAfter(10'720, 20s), 2);
  EXPECT_EQ(speedAfter(10'720, 30s), 0);
}

TEST_F(SpeedMeterTest, NothingIsKnownWhereNobodyHasLooked) {
  meter_.restart(0, begun_);
  EXPECT_EQ(speedAfter(100, 10s), 10);
  EXPECT_EQ(speedAfter(200, 30s), std::nullopt) << "the computer may have been busy";
  EXPECT_EQ(speedAfter(300, 40s), 10);
}

TEST_F(SpeedMeterTest, ARequestBeginsWithoutASpeed) {
  meter_.restart(0, begun_);
  EXPECT_EQ(speedAfter(100, 10s), 10);
  meter_.restart(100, begun_ + 12s);
  EXPECT_EQ(meter_.bytesPerSecond(), std::nullopt);
}

// --- Connections that bring nothing --------------------------------------------------------------

class SilenceMeterTest : public testing::Test {
 protected:
  SpeedPolicy::Duration silenceAfter(std::size_t requests, std::int64_t bytes,
                                     SpeedPolicy::Duration time) {
    meter_.note(requests, bytes, begun_ + time);
    return meter_.silence();
  }

  const SpeedPolicy::Time begun_{1h};
  SilenceMeter meter_;
};

TEST_F(SilenceMeterTest, BeginsWithTheFirstLook) {
  EXPECT_EQ(silenceAfter(2, 0, 0s), 0s);
  EXPECT_EQ(silenceAfter(2, 0, 500ms), 500ms);
  EXPECT_EQ(silenceAfter(2, 0, 1500ms), 1500ms);
}

TEST_F(SilenceMeterTest, EndsWithEachByte) {
  silenceAfter(2, 100, 0s);
  EXPECT_EQ(silenceAfter(2, 100, 1s), 1s);
  EXPECT_EQ(silenceAfter(2, 101, 2s), 0s);
  EXPECT_EQ(silenceAfter(2, 101, 3s), 1s);
}

TEST_F(SilenceMeterTest, EndsWhenARequestEnds) {
  silenceAfter(3, 100, 0s);
  EXPECT_EQ(silenceAfter(2, 60, 1s), 0s);
}

TEST_F(SilenceMeterTest, GoesOnWhenARequestJoins) {
  silenceAfter(2, 100, 0s);
  EXPECT_EQ(silenceAfter(3, 100, 1s), 1s);
}

TEST_F(SilenceMeterTest, IsNoneOfASingleRequest) {
  silenceAfter(1, 0, 0s);
  EXPECT_EQ(silenceAfter(1, 0, 1s), 0s);
  EXPECT_EQ(silenceAfter(2, 0, 2s), 1s) << "since the last look";
}

TEST_F(SilenceMeterTest, ALookThatWasLateCountsLittle) {
  silenceAfter(2, 0, 0s);
  EXPECT_EQ(silenceAfter(2, 0, 60s), 1s);
}

}  // namespace
