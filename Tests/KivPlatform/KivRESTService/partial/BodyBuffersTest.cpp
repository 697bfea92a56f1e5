#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "KivPlatform/KivRESTService/partial/BodySink.h"

namespace kiv {
namespace {

constexpr std::size_t size = 50'000;

/// A body in memory from the buffers.
Data body(BodyBuffers& buffers, char fill = 'x') {
  std::string bytes = buffers.take(size);
  bytes.assign(size, fill);
  return buffers.data(std::move(bytes));
}

class BodyBuffersTest : public testing::Test {
 protected:
  std::shared_ptr<BodyBuffers> buffers_ = std::make_shared<BodyBuffers>(250'000);
};

TEST_F(BodyBuffersTest, WhatOneBodyLeavesTheNextOneTakes) {
  const char* former = nullptr;
  {
    const Data data = body(*buffers_);
    former = data.view().data();
  }
  const std::string decoy(size, 'x');  // would reuse the memory if it had been freed
  const std::string next = buffers_->take(size);
  EXPECT_EQ(next.data(), former);
  EXPECT_TRUE(next.empty());
  EXPECT_NE(buffers_->take(size).data(), former) << "it is taken";
}

TEST_F(BodyBuffersTest, TheLastCopyGivesTheMemoryBack) {
  std::optional<Data> first = body(*buffers_, 'a');
  std::optional<Data> copy = first;
  const char* const memory = first->view().data();
  first.reset();
  const std::string other = buffers_->take(size);
  EXPECT_NE(other.data(), memory);
  EXPECT_EQ(copy->view(), std::string(size, 'a'));
  copy.reset();
  const std::string decoy(size, 'x');
  EXPECT_EQ(buffers_->take(size).data(), memory);
}

TEST_F(BodyBuffersTest, ThereIsAlwaysRoomForWhatIsAsked) {
  buffers_->giveBack(buffers_->take(10'000));
  EXPECT_GE(buffers_->take(100'000).capacity(), 100'000U);
}

TEST_F(BodyBuffersTest, NoMoreIsKeptThanMayBe) {
  for (int count = 0; count < 10; ++count)
    buffers_->giveBack(std::string(100'000, 'x'));
  EXPECT_GE(buffers_->take(0).capacity(), 100'000U);
  EXPECT_GE(buffers_->take(0).capacity(), 100'000U);
  EXPECT_LT(buffers_->take(0).capacity(), 100'000U);
}

TEST_F(BodyBuffersTest, NeitherAreLargeOnesNorSmallOnes) {
  buffers_->giveBack(std::string(300'000, 'x'));
  buffers_->giveBack({});
  buffers_->giveBack(std::string(BodyBuffers::leastKept - 1, 'x'));
  EXPECT_LT(buffers_->take(0).capacity(), 100U);
}

TEST_F(BodyBuffersTest, WithoutRoomNothingIsKept) {
  for (const std::int64_t most : {std::int64_t{0}, std::int64_t{-1}}) {
    const auto none = std::make_shared<BodyBuffers>(most);
    none->giveBack(std::string(size, 'x'));
    EXPECT_LT(none->take(0).capacity(), 100U);
  }
}

TEST_F(BodyBuffersTest, ABodyMayOutliveAllWhoUseThem) {
  Data data = body(*buffers_, 'z');
  buffers_.reset();
  EXPECT_EQ(data.view(), std::string(size, 'z'));
  data = Data();
}

TEST_F(BodyBuffersTest, BodiesOfSeveralThreadsAreNeverMixed) {
  std::vector<std::thread> threads;
  for (char fill = 'a'; fill < 'e'; ++fill) {
    threads.emplace_back([this, fill] {
      const std::string expected(size, fill);
      for (int count = 0; count < 500; ++count) {
        const Data data = body(*buffers_, fill);
        if (data.view() != expected) return ADD_FAILURE() << "the bytes of another";
      }
    });
  }
  for (auto& thread : threads)
    thread.join();
}

}  // namespace
}  // namespace kiv
