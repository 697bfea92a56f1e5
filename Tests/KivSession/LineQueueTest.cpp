#include <chrono>
#include <optional>
#include <poll.h>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KivSession/LineQueue.h"

namespace {

using namespace std::chrono_literals;
using kiv::session::LineQueue;
using Outcome = LineQueue::Outcome;
using testing::ElementsAre;
using testing::IsEmpty;

class LineQueueTest : public testing::Test {
 protected:
  /// The next line, or nothing if none waits.
  std::optional<std::string> next() {
    LineQueue::Text line;
    if (queue_->pop(0ms, line) != Outcome::line) return std::nullopt;
    return std::string(line.get());
  }
  std::vector<std::string> rest() {
    std::vector<std::string> lines;
    while (auto line = next())
      lines.push_back(*line);
    return lines;
  }
  [[nodiscard]] bool isReadable() const {
    pollfd awaited{queue_->descriptor(), POLLIN, 0};
    return ::poll(&awaited, 1, 0) == 1;
  }

  const std::unique_ptr<LineQueue> queue_ = LineQueue::create();
};

TEST_F(LineQueueTest, KeepsTheOrder) {
  for (const char* const line : {"a", "", "c"})
    queue_->push(line);
  EXPECT_THAT(rest(), ElementsAre("a", "", "c"));
}

TEST_F(LineQueueTest, OfProgressOnlyTheNewestWaits) {
  queue_->pushProgress("10 %");
  queue_->push("a");
  queue_->pushProgress("20 %");
  queue_->push("b");
  queue_->pushProgress("30 %");
  EXPECT_THAT(rest(), ElementsAre("a", "b", "30 %"));
}

TEST_F(LineQueueTest, TheDescriptorIsReadableWhileLinesWait) {
  EXPECT_FALSE(isReadable());
  queue_->push("a");
  queue_->push("b");
  EXPECT_TRUE(isReadable());
  next();
  EXPECT_TRUE(isReadable());
  next();
  EXPECT_FALSE(isReadable());
  queue_->pushProgress("c");
  queue_->pushProgress("d");
  EXPECT_TRUE(isReadable());
  next();
  EXPECT_FALSE(isReadable());
}

TEST_F(LineQueueTest, MoreLinesThanAPipeHoldsBytesWait) {
  constexpr int many = 200'000;
  for (int line = 0; line < many; ++line)
    queue_->push(std::to_string(line));
  for (int line = 0; line < many; ++line)
    ASSERT_EQ(next(), std::to_string(line));
  EXPECT_FALSE(isReadable());
}

TEST_F(LineQueueTest, WithoutALineTheTimeEnds) {
  LineQueue::Text line;
  EXPECT_EQ(queue_->pop(1ms, line), Outcome::timeout);
  EXPECT_EQ(line, nullptr);
}

TEST_F(LineQueueTest, ClosingEndsAllWaitsAndNoLineIsLeft) {
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([this] {
      LineQueue::Text line;
      EXPECT_EQ(queue_->pop(std::nullopt, line), Outcome::closed);
    });
  }
  queue_->close();
  for (auto& thread : threads)
    thread.join();
  queue_->push("late");
  queue_->pushProgress("late");
  EXPECT_THAT(rest(), IsEmpty());
  EXPECT_FALSE(isReadable());
}

TEST_F(LineQueueTest, EachLineIsReceivedOnce) {
  constexpr int writers = 4;
  constexpr int each = 500;
  std::vector<std::vector<std::string>> received(4);
  std::vector<std::thread> readers;
  for (auto& mine : received) {
    readers.emplace_back([&] {
      LineQueue::Text line;
      while (queue_->pop(std::nullopt, line) == Outcome::line && std::string(line.get()) != "end")
        mine.emplace_back(line.get());
    });
  }
  std::vector<std::thread> threads;
  for (int writer = 0; writer < writers; ++writer) {
    threads.emplace_back([this, writer] {
      for (int line = 0; line < each; ++line)
        queue_->push(std::to_string(writer * each + line));
    });
  }
  for (auto& thread : threads)
    thread.join();
  for (std::size_t reader = 0; reader < readers.size(); ++reader)
    queue_->push("end");
  for (auto& reader : readers)
    reader.join();
  std::vector<int> counts(writers * each);
  for (const auto& mine : received) {
    for (const auto& line : mine)
      ++counts.at(static_cast<std::size_t>(std::stoi(line)));
  }
  EXPECT_THAT(counts, testing::Each(1));
}

}  // namespace
