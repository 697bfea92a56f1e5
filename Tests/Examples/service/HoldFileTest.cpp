#include <filesystem>
#include <memory>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Examples/service/HoldFile.h"
#include "Tests/Support/LogCapture.h"
#include "Tests/Support/ManualTimers.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace {

using namespace kiv::test;
using testing::ElementsAre;
using testing::StartsWith;

class HoldFileTest : public testing::Test {
 protected:
  void pass(std::chrono::seconds time) {
    timers_->advance(time);
    kiv::DispatchQueue::main()->drain();
  }

  const TemporaryDirectory scratch_;
  const LogCapture log_;
  const std::shared_ptr<ManualTimers> timers_ = std::make_shared<ManualTimers>();
  int looks_ = 0;
  std::shared_ptr<HoldFile> hold_ =
      std::make_shared<HoldFile>(scratch_.path("hold"), timers_, [this] { ++looks_; });
};

TEST_F(HoldFileTest, HoldsAsLongAsItExists) {
  EXPECT_TRUE(hold_->allowsStart());
  scratch_.write("hold", "");
  EXPECT_FALSE(hold_->allowsStart());
  EXPECT_FALSE(hold_->allowsStart());
  std::filesystem::remove(scratch_.path("hold"));
  EXPECT_TRUE(hold_->allowsStart());
  EXPECT_THAT(log_.lines(),
              ElementsAre(StartsWith("<6>downloads are held, since " + scratch_.path()),
                          "<6>downloads are no longer held"));
}

TEST_F(HoldFileTest, ADirectoryAndABrokenLinkHoldToo) {
  std::filesystem::create_symlink("nothing", scratch_.path("hold"));
  EXPECT_FALSE(hold_->allowsStart());
  std::filesystem::remove(scratch_.path("hold"));
  std::filesystem::create_directory(scratch_.path("hold"));
  EXPECT_FALSE(hold_->allowsStart());
}

TEST_F(HoldFileTest, LooksAgainEachMinuteOnceForAllThatWait) {
  scratch_.write("hold", "");
  EXPECT_FALSE(hold_->allowsStart());
  EXPECT_FALSE(hold_->allowsStart());
  EXPECT_EQ(timers_->count(), 1U);
  pass(std::chrono::seconds(59));
  EXPECT_EQ(looks_, 0);
  pass(std::chrono::seconds(1));
  EXPECT_EQ(looks_, 1);
  EXPECT_EQ(timers_->count(), 0U);  // until the clients have asked again
  EXPECT_FALSE(hold_->allowsStart());
  pass(std::chrono::seconds(60));
  EXPECT_EQ(looks_, 2);
}

TEST_F(HoldFileTest, DoesNotLookWhenItIsGone) {
  scratch_.write("hold", "");
  EXPECT_FALSE(hold_->allowsStart());
  timers_->advance(std::chrono::seconds(60));  // the job is on the queue
  hold_.reset();
  kiv::DispatchQueue::main()->drain();
  EXPECT_EQ(looks_, 0);
}

}  // namespace
