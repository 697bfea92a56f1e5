#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "KivPlatform/KivRESTService/policy/HostHealth.h"

namespace {

using namespace std::chrono_literals;
using kiv::HostHealth;
using kiv::ServerState;

class HostHealthTest : public testing::Test {
 protected:
  HostHealth health_{30s};
  HostHealth::Time now_{1h};
  const std::string a_ = "http://a.test";
  const std::string b_ = "http://b.test";
};

TEST_F(HostHealthTest, AServerIsGoodUntilItFails) {
  health_.noteTry(a_, 1);
  EXPECT_EQ(health_.state(a_, now_), ServerState::good);
  EXPECT_FALSE(health_.isUnreachable(a_));
  EXPECT_FALSE(health_.isProbe(a_, 1));
}

TEST_F(HostHealthTest, OneThatCannotBeReachedIsAvoidedForAPause) {
  health_.noteUnreachable(a_, 1, now_);
  EXPECT_EQ(health_.state(a_, now_), ServerState::avoided);
  EXPECT_EQ(health_.state(a_, now_ + 29s), ServerState::avoided);
  EXPECT_EQ(health_.state(a_, now_ + 30s), ServerState::good);
  EXPECT_TRUE(health_.isUnreachable(a_)) << "until it is reached";
  EXPECT_EQ(health_.state(b_, now_), ServerState::good);
}

TEST_F(HostHealthTest, OneTryProbesForAll) {
  health_.noteUnreachable(a_, 1, now_);
  for (const auto wait : {1s, 31s}) {
    health_.noteTry(a_, 2);
    EXPECT_EQ(health_.state(a_, now_ + wait), ServerState::probed);
    EXPECT_TRUE(health_.isProbe(a_, 2));
    EXPECT_EQ(health_.probed(), std::vector{a_});
    health_.noteUnreachable(a_, 2, now_ + wait);
    EXPECT_EQ(health_.state(a_, now_ + wait + 29s), ServerState::avoided);
    EXPECT_TRUE(health_.probed().empty());
  }
}

TEST_F(HostHealthTest, TriesThatRanAlreadyAreNoProbes) {
  health_.noteTry(a_, 1);
  health_.noteTry(a_, 2);
  health_.noteUnreachable(a_, 1, now_);
  health_.noteTry(a_, 3);
  health_.noteUnreachable(a_, 2, now_);
  EXPECT_TRUE(health_.isProbe(a_, 3));
  EXPECT_FALSE(health_.isProbe(a_, 2));
  EXPECT_EQ(health_.state(a_, now_), ServerState::probed);
}

TEST_F(HostHealthTest, AProbeThatSaysNothingLeavesThingsAsTheyWere) {
  health_.noteUnreachable(a_, 1, now_);
  health_.noteTry(a_, 2);
  health_.noteEnd(a_, 1);
  EXPECT_EQ(health_.state(a_, now_), ServerState::probed);
  health_.noteEnd(a_, 2);
  EXPECT_EQ(health_.state(a_, now_), ServerState::avoided);
  health_.noteTry(a_, 3);
  EXPECT_TRUE(health_.isProbe(a_, 3));
}

TEST_F(HostHealthTest, ProbesThatWereDroppedAreForgotten) {
  health_.noteUnreachable(a_, 1, now_);
  health_.noteTry(a_, 2);
  health_.forgetProbes();
  EXPECT_EQ(health_.state(a_, now_), ServerState::avoided);
}

TEST_F(HostHealthTest, AnAnswerEndsThePause) {
  health_.noteUnreachable(a_, 1, now_);
  health_.noteTry(a_, 2);
  EXPECT_TRUE(health_.noteReached(a_));
  EXPECT_FALSE(health_.noteReached(a_));
  EXPECT_EQ(health_.state(a_, now_), ServerState::good);
  health_.noteTry(a_, 3);
  EXPECT_EQ(health_.state(a_, now_), ServerState::good);
}

}  // namespace
