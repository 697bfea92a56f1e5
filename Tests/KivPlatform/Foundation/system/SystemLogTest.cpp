#include <atomic>
#include <chrono>
#include <future>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "KivPlatform/Foundation/system/SystemLog.h"

namespace {

using kiv::SystemLog;
using namespace std::string_view_literals;

class SystemLogTest : public testing::Test {
 protected:
  void TearDown() override { SystemLog::setHandler(nullptr); }

  void capture() {
    SystemLog::setHandler([this](std::string_view line) { lines_.emplace_back(line); });
  }

  std::vector<std::string> lines_;
};

struct Line {
  std::string_view given;
  std::string_view written;
};

class SystemLogLineTest : public SystemLogTest, public testing::WithParamInterface<Line> {};

TEST_P(SystemLogLineTest, IsWrittenAsOneLineWithoutControlCharacters) {
  capture();
  SystemLog::write(GetParam().given);
  EXPECT_EQ(lines_, std::vector{std::string(GetParam().written)});
}

INSTANTIATE_TEST_SUITE_P(
    Lines, SystemLogLineTest,
    testing::Values(Line{"", ""},
                    Line{"KivResourceManager (%s): \"%@\" %n",
                         "KivResourceManager (%s): \"%@\" %n"},
                    Line{"a\nb\r\n", "a\\x0ab\\x0d\\x0a"}, Line{"\t", "\\x09"},
                    Line{"a\0b"sv, "a\\x00b"}, Line{"\x1b[31m", "\\x1b[31m"}, Line{"\x7f", "\\x7f"},
                    Line{"\xc2\x9b[31m\xc2\x80\xc2\x85", "\\xc2\\x9b[31m\\xc2\\x80\\xc2\\x85"},
                    Line{"\xc2\xa0\xc3\xa9\xd0\x96\xf0\x9f\x98\x80",
                         "\xc2\xa0\xc3\xa9\xd0\x96\xf0\x9f\x98\x80"},
                    Line{"a\xc2", "a\xc2"}, Line{"\xff", "\xff"}, Line{"\\x0a", "\\x0a"}));

TEST_F(SystemLogTest, OneCallIsOneLineInOrder) {
  capture();
  SystemLog::write("one");
  SystemLog::write("two");
  EXPECT_EQ(lines_, (std::vector<std::string>{"one", "two"}));
}

TEST_F(SystemLogTest, WithoutAHandlerLinesGoToStandardError) {
  testing::internal::CaptureStderr();
  SystemLog::write("a\nb %s");
  SystemLog::write("c");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "a\\x0ab %s\nc\n");
}

TEST_F(SystemLogTest, AHandlerTakesTheLinesUntilItIsRemoved) {
  testing::internal::CaptureStderr();
  capture();
  SystemLog::write("handled");
  SystemLog::setHandler(nullptr);
  SystemLog::write("plain");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "plain\n");
  EXPECT_EQ(lines_, std::vector{std::string("handled")});
}

TEST_F(SystemLogTest, AnotherHandlerTakesThePlaceOfTheFirst) {
  std::vector<std::string> others;
  capture();
  SystemLog::setHandler([&](std::string_view line) { others.emplace_back(line); });
  SystemLog::write("x");
  EXPECT_TRUE(lines_.empty());
  EXPECT_EQ(others.size(), 1U);
}

TEST_F(SystemLogTest, HearsEveryLineOfManyThreads) {
  std::atomic<int> lines = 0;
  SystemLog::setHandler([&](std::string_view line) { lines += line == "line" ? 1 : 0; });
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([] {
      for (int line = 0; line < 250; ++line)
        SystemLog::write("line");
    });
  }
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(lines, 1000);
}

// A log handler may wait for a lock whose owner writes to the log at the same time.
TEST_F(SystemLogTest, NoLockIsHeldWhileTheHandlerRuns) {
  constexpr std::chrono::seconds deadline{30};
  std::promise<void> begun;
  std::promise<void> other;
  bool hasCome = false;
  SystemLog::setHandler([&, come = other.get_future().share()](std::string_view line) {
    if (line == "other") return other.set_value();
    begun.set_value();
    hasCome = come.wait_for(deadline) == std::future_status::ready;
  });
  std::thread writer([] { SystemLog::write("first"); });
  begun.get_future().wait();
  SystemLog::write("other");
  writer.join();
  EXPECT_TRUE(hasCome);
}

TEST_F(SystemLogTest, AHandlerMayWriteItself) {
  capture();
  SystemLog::setHandler([this](std::string_view line) {
    lines_.emplace_back(line);
    if (line == "one") SystemLog::write("two");
  });
  SystemLog::write("one");
  EXPECT_EQ(lines_, (std::vector<std::string>{"one", "two"}));
}

TEST_F(SystemLogTest, WhatAHandlerThrowsStaysThere) {
  SystemLog::setHandler([](std::string_view) { throw std::runtime_error("full"); });
  SystemLog::write("one");
  capture();
  SystemLog::write("two");
  EXPECT_EQ(lines_, std::vector{std::string("two")});
}

TEST_F(SystemLogTest, ALongLineStaysWhole) {
  capture();
  const std::string line(1'000'000, 'x');
  SystemLog::write(line);
  ASSERT_EQ(lines_.size(), 1U);
  EXPECT_EQ(lines_[0], line);
}

}  // namespace
