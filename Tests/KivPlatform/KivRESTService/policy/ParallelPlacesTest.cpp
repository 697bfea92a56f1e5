#include <gtest/gtest.h>

#include "KivPlatform/KivRESTService/policy/ParallelPlaces.h"

namespace {

using kiv::ParallelPlaces;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using Version = ParallelPlaces::Version;

/// The places of a server with a round trip of 50 ms.
class ParallelPlacesTest : public testing::Test {
 protected:
  ParallelPlaces& places() {
    if (!places_) {
      places_.emplace(settings_);
      places_->noteHandshake(roundTrip_);
    }
    return *places_;
  }

  /// As many transfers as run at one time, of that time each.
  void transferAll(microseconds time, Version version = Version::http1) {
    for (std::size_t left = places().count(); left > 0; --left)
      places().noteTransfer(time, version);
  }

  /// The same over HTTP/2, where so many of them need a connection of their own.
  void transferAllOver(std::size_t connections) {
    for (std::size_t made = 0; made < connections; ++made)
      places().noteHandshake(roundTrip_);
    transferAll(milliseconds(60), Version::http2);
  }

  /// A point in time, in seconds.
  static ParallelPlaces::Time at(int seconds) {
    return ParallelPlaces::Time(std::chrono::seconds(seconds));
  }

  kiv::TransferSettings settings_;
  microseconds roundTrip_ = milliseconds(50);

 private:
  std::optional<ParallelPlaces> places_;
};

TEST_F(ParallelPlacesTest, AreSixAtFirst) {
  EXPECT_EQ(places().count(), 6U);
  places().noteTransfer(milliseconds(60), Version::http1);
  EXPECT_EQ(places().count(), 6U);
}

TEST_F(ParallelPlacesTest, AreMoreWhereTransfersTakeFewRoundTrips) {
  transferAll(milliseconds(60));
  EXPECT_EQ(places().count(), 12U);
  transferAll(milliseconds(60));
  EXPECT_EQ(places().count(), 24U);
  transferAll(milliseconds(60));
  EXPECT_EQ(places().count(), 24U) << "enough connections for a server";
}

TEST_F(ParallelPlacesTest, AreMoreStillOverHTTP2) {
  transferAll(milliseconds(60), Version::http2);
  EXPECT_EQ(places().count(), 24U);
  transferAll(milliseconds(60), Version::http2);
  EXPECT_EQ(places().count(), 96U);
  transferAll(milliseconds(60), Version::http2);
  EXPECT_EQ(places().count(), 96U);
}

TEST_F(ParallelPlacesTest, AreSixWhereTheBytesTakeTheTime) {
  transferAll(milliseconds(500));
  EXPECT_EQ(places().count(), 6U);
}

TEST_F(ParallelPlacesTest, AreSixOnAShortLine) {
  roundTrip_ = microseconds(100);
  transferAll(microseconds(100));
  EXPECT_EQ(places().count(), 6U);
}

TEST_F(ParallelPlacesTest, AreSixWithoutAHandshake) {
  ParallelPlaces unknown(settings_);
  for (int transfer = 0; transfer < 100; ++transfer)
    unknown.noteTransfer(milliseconds(60), Version::http1);
  EXPECT_EQ(unknown.count(), 6U);
}

TEST_F(ParallelPlacesTest, TheShortestHandshakeIsTheRoundTrip) {
  places().noteHandshake(microseconds(100));
  places().noteHandshake(milliseconds(50));
  transferAll(milliseconds(60));
  EXPECT_EQ(places().count(), 6U);
}

TEST_F(ParallelPlacesTest, TheMeanOfTheTransfersCounts) {
  for (int transfer = 0; transfer < 5; ++transfer)
    places().noteTransfer(milliseconds(60), Version::http1);
  places().noteTransfer(milliseconds(10'000), Version::http1);
  EXPECT_EQ(places().count(), 6U);
}

TEST_F(ParallelPlacesTest, AreFewerAgainWhenTheLineIsFull) {
  transferAll(milliseconds(60));
  transferAll(milliseconds(60));
  ASSERT_EQ(places().count(), 24U);
  transferAll(milliseconds(300));
  EXPECT_EQ(places().count(), 24U) << "between the limits nothing changes";
  transferAll(milliseconds(500));
  EXPECT_EQ(places().count(), 12U);
  transferAll(milliseconds(500));
  transferAll(milliseconds(500));
  EXPECT_EQ(places().count(), 6U);
}

TEST_F(ParallelPlacesTest, TroubleEndsTheGrowthAndInTheEndForGood) {
  for (int trouble = 0; trouble < 3; ++trouble) {
    transferAll(milliseconds(60));
    EXPECT_EQ(places().count(), 12U);
    places().noteTrouble(at(2 * trouble), at(2 * trouble + 1));
    EXPECT_EQ(places().count(), 6U);
  }
  transferAll(milliseconds(60));
  EXPECT_EQ(places().count(), 6U);
}

TEST_F(ParallelPlacesTest, TransfersThatFailTogetherAreOneTrouble) {
  for (int transfer = 0; transfer < 24; ++transfer)
    places().noteTrouble(at(0), at(1));
  transferAll(milliseconds(60));
  EXPECT_EQ(places().count(), 12U);
}

TEST_F(ParallelPlacesTest, OneConnectionForFewerThanFourStreamsIsNoMoreThanHTTP1Gets) {
  transferAllOver(6);
  ASSERT_EQ(places().count(), 24U);
  transferAllOver(6);
  EXPECT_EQ(places().count(), 24U);
  transferAllOver(0);
  EXPECT_EQ(places().count(), 24U) << "idle connections are used again";
}

TEST_F(ParallelPlacesTest, AConnectionForMoreStreamsIsShared) {
  transferAllOver(6);
  ASSERT_EQ(places().count(), 24U);
  transferAllOver(5);
  EXPECT_EQ(places().count(), 96U);
}

TEST_F(ParallelPlacesTest, AHostThatWantsFewerGetsThem) {
  settings_.parallelTransfers = 2;
  transferAll(milliseconds(60));
  EXPECT_EQ(places().count(), 2U);
}

TEST_F(ParallelPlacesTest, AreSixWithABandwidth) {
  settings_.bandwidth = 1'000'000;
  transferAll(milliseconds(60));
  EXPECT_EQ(places().count(), 6U);
}

}  // namespace
