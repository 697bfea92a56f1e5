#include <gtest/gtest.h>

#include "KivPlatform/KivRESTService/policy/CompletionPace.h"

namespace kiv {
namespace {

using std::chrono::hours;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;

class CompletionPaceTest : public testing::Test {
 protected:
  /// A job that took that long has just ended.
  void endJob(std::chrono::steady_clock::duration cost, bool hasMore = false) {
    pace_.jobEnded({cost, {}}, now_, hasMore);
  }
  [[nodiscard]] bool isDueAfter(std::chrono::steady_clock::duration time) const {
    return pace_.isDue({1, 1, 1}, now_ + time);
  }

  const CompletionPace::Time now_{hours(1000)};
  CompletionPace pace_;
};

TEST_F(CompletionPaceTest, TheFirstTaskDoesNotWait) {
  EXPECT_TRUE(isDueAfter({}));
}

TEST_F(CompletionPaceTest, WithoutATaskNothingIsDue) {
  EXPECT_FALSE(pace_.isDue({0, 0, 0}, now_));
  EXPECT_FALSE(pace_.isDue({0, 0, 5}, now_));
}

TEST_F(CompletionPaceTest, ATaskWaitsTwentyTimesWhatTheLastJobTook) {
  endJob(milliseconds(4));
  EXPECT_EQ(pace_.next(), now_ + milliseconds(80));
  EXPECT_FALSE(isDueAfter(milliseconds(80) - microseconds(1)));
  EXPECT_TRUE(isDueAfter(milliseconds(80)));
}

TEST_F(CompletionPaceTest, TheWaitIsNeitherVeryShortNorLong) {
  for (const auto cost : {microseconds(0), microseconds(1), microseconds(150)}) {
    endJob(cost);
    EXPECT_EQ(pace_.next(), now_ + milliseconds(3));
  }
  for (const auto cost : {milliseconds(50), milliseconds(51), milliseconds(3'600'000)}) {
    endJob(cost);
    EXPECT_EQ(pace_.next(), now_ + seconds(1));
  }
  endJob(CompletionPace::Time::duration::max() / 2);
  EXPECT_EQ(pace_.next(), now_ + seconds(1));
}

TEST_F(CompletionPaceTest, ATaskWaitsAHundredTimesTheProcessorTimeOfTheLastJob) {
  pace_.jobEnded({milliseconds(4), milliseconds(2)}, now_, false);
  EXPECT_EQ(pace_.next(), now_ + milliseconds(200));
  pace_.jobEnded({milliseconds(40), milliseconds(1)}, now_, false);
  EXPECT_EQ(pace_.next(), now_ + milliseconds(800));
  pace_.jobEnded({milliseconds(40), CompletionPace::Time::duration::max()}, now_, false);
  EXPECT_EQ(pace_.next(), now_ + seconds(1));
}

TEST_F(CompletionPaceTest, WhatAJobHasLeftDoesNotWait) {
  endJob(milliseconds(25), true);
  EXPECT_TRUE(isDueAfter({}));
}

TEST_F(CompletionPaceTest, TheLastTasksDoNotWait) {
  endJob(milliseconds(50));
  EXPECT_TRUE(pace_.isDue({3, 1000, 0}, now_));
  EXPECT_FALSE(pace_.isDue({3, 1000, 1}, now_));
}

TEST_F(CompletionPaceTest, ManyTasksOrBytesDoNotWait) {
  endJob(milliseconds(50));
  EXPECT_FALSE(
      pace_.isDue({CompletionPace::manyTasks - 1, CompletionPace::manyBytes - 1, 9}, now_));
  EXPECT_TRUE(pace_.isDue({CompletionPace::manyTasks, 0, 9}, now_));
  EXPECT_TRUE(pace_.isDue({1, CompletionPace::manyBytes, 9}, now_));
}

}  // namespace
}  // namespace kiv
