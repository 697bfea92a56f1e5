#include <gtest/gtest.h>

#include "KivPlatform/KivRESTService/policy/HTTP2Trust.h"

namespace {

using kiv::HTTP2Trust;

const std::string server = "https://ads.example";

/// A point in time, in seconds.
HTTP2Trust::Time at(int seconds) {
  return HTTP2Trust::Time(std::chrono::seconds(seconds));
}

TEST(HTTP2Trust, EveryServerHasItAtFirst) {
  EXPECT_TRUE(HTTP2Trust().isTrusted(server));
}

TEST(HTTP2Trust, ThreeFailuresInARowEndIt) {
  HTTP2Trust trust;
  trust.noteFailure(server, at(0), at(1));
  trust.noteFailure(server, at(2), at(3));
  EXPECT_TRUE(trust.isTrusted(server));
  trust.noteFailure(server, at(4), at(5));
  EXPECT_FALSE(trust.isTrusted(server));
  EXPECT_TRUE(trust.isTrusted("https://mirror.example"));
}

TEST(HTTP2Trust, StreamsThatFailTogetherAreOneFailure) {
  HTTP2Trust trust;
  for (int stream = 0; stream < 100; ++stream)
    trust.noteFailure(server, at(0), at(1));
  EXPECT_TRUE(trust.isTrusted(server));
}

TEST(HTTP2Trust, ASuccessMakesUpForFailures) {
  HTTP2Trust trust;
  for (int time = 0; time < 20; time += 2) {
    trust.noteFailure(server, at(time), at(time + 1));
    trust.noteSuccess(server);
  }
  EXPECT_TRUE(trust.isTrusted(server));
}

TEST(HTTP2Trust, OneStallEndsIt) {
  HTTP2Trust trust;
  trust.noteStall(server);
  EXPECT_FALSE(trust.isTrusted(server));
}

TEST(HTTP2Trust, OneRefusalEndsIt) {
  HTTP2Trust trust;
  trust.noteRefusal(server);
  EXPECT_FALSE(trust.isTrusted(server));
  EXPECT_TRUE(trust.isTrusted("https://mirror.example"));
}

TEST(HTTP2Trust, ALateSuccessDoesNotRestoreIt) {
  HTTP2Trust trust;
  trust.noteStall(server);
  trust.noteSuccess(server);
  EXPECT_FALSE(trust.isTrusted(server));
}

}  // namespace
