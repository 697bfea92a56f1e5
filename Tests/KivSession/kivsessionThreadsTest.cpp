// Many threads use one session at once. ThreadSanitizer sees these tests too.

#include <array>
#include <atomic>
#include <map>
#include <mutex>
#include <poll.h>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "KivSession/kivsession.h"
#include "Tests/KivSession/OpenedSession.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace {

using namespace kiv::test;

std::string taggedCall(const std::string& tag) {
  return R"({"call":"setDomains","tag":")" + tag + "\"}";
}

TEST(kivsessionThreadsTest, EachOfManyLinesIsReceivedOnceByOneOfManyThreads) {
  constexpr int senders = 10;
  constexpr int receivers = 10;
  constexpr int callsEach = 200;
  const TemporaryDirectory directory;
  OpenedSession session(directory.path());
  std::mutex mutex;
  std::map<std::string, int> received;
  std::atomic<int> count = 0;
  std::atomic<int> failures = 0;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < receivers; ++thread) {
    threads.emplace_back([&] {
      char* line = nullptr;
      int result = KIVSESSION_OK;
      while ((result = kivsession_receive(session.handle(), -1, &line)) == KIVSESSION_OK) {
        const std::lock_guard lock(mutex);
        // Closing stops the pass, which those that wait may still hear of.
        if (std::string_view(line) != R"({"event":"didFinishLoading"})") {
          ++received[line];
          ++count;
          count.notify_one();
        }
        kivsession_free(line);
      }
      if (result != KIVSESSION_CLOSED || line) ++failures;
    });
  }
  std::vector<std::thread> sending;
  for (int sender = 0; sender < senders; ++sender) {
    sending.emplace_back([&, sender] {
      for (int call = 0; call < callsEach; ++call) {
        const auto tag = std::to_string(sender) + "-" + std::to_string(call);
        if (session.send(taggedCall(tag)) != KIVSESSION_OK) ++failures;
      }
    });
  }
  for (auto& thread : sending)
    thread.join();
  for (int now = count; now < senders * callsEach; now = count)
    count.wait(now);
  kivsession* const handle = session.handle();
  EXPECT_EQ(kivsession_close(handle), KIVSESSION_OK);
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(session.close(), KIVSESSION_CLOSED);

  EXPECT_EQ(failures, 0);
  EXPECT_EQ(received.size(), std::size_t{senders * callsEach});
  for (const auto& [line, times] : received) {
    EXPECT_EQ(times, 1) << line;
    EXPECT_TRUE(line.starts_with(R"({"result":"setDomains","tag":")")) << line;
  }
}

TEST(kivsessionThreadsTest, CallsOfOneThreadAreAnsweredInTheirOrder) {
  constexpr int calls = 2000;
  const TemporaryDirectory directory;
  const OpenedSession session(directory.path());
  std::thread sender([&] {
    for (int call = 0; call < calls; ++call)
      EXPECT_EQ(session.send(taggedCall(std::to_string(call))), KIVSESSION_OK);
  });
  for (int call = 0; call < calls; ++call) {
    const auto line = session.receive();
    ASSERT_TRUE(line) << call;
    ASSERT_EQ(*line, R"({"result":"setDomains","tag":")" + std::to_string(call) + "\"}");
  }
  sender.join();
}

TEST(kivsessionThreadsTest, TheDescriptorIsReadableExactlyWhileLinesWait) {
  constexpr int calls = 500;
  const TemporaryDirectory directory;
  const OpenedSession session(directory.path());
  pollfd lines{-1, POLLIN, 0};
  ASSERT_EQ(kivsession_descriptor(session.handle(), &lines.fd), KIVSESSION_OK);
  EXPECT_EQ(poll(&lines, 1, 0), 0);
  std::thread sender([&] {
    for (int call = 0; call < calls; ++call)
      EXPECT_EQ(session.send(taggedCall(std::to_string(call))), KIVSESSION_OK);
  });
  int received = 0;
  while (received < calls && poll(&lines, 1, longestWait) == 1) {
    EXPECT_TRUE(session.receive(0)) << "readable, with nothing to receive";
    ++received;
  }
  sender.join();
  EXPECT_EQ(received, calls);
  EXPECT_EQ(poll(&lines, 1, 0), 0);
  EXPECT_FALSE(session.receive(0));
}

TEST(kivsessionThreadsTest, ClosingReleasesEveryThreadThatWaits) {
  const TemporaryDirectory directory;
  OpenedSession session(directory.path());
  kivsession* const handle = session.handle();
  std::atomic<int> released = 0;
  std::atomic<int> begun = 0;
  std::vector<std::thread> threads;
  for (int number = 0; number < 20; ++number) {
    threads.emplace_back([&, number] {
      ++begun;
      begun.notify_one();
      char* line = nullptr;
      const int timeout = number % 2 == 0 ? -1 : longestWait * 10;
      int result = KIVSESSION_OK;
      while ((result = kivsession_receive(handle, timeout, &line)) == KIVSESSION_OK)
        kivsession_free(line);  // of the pass that closing stops
      if (result == KIVSESSION_CLOSED && !line) ++released;
    });
  }
  for (int now = begun; now < 20; now = begun)
    begun.wait(now);
  EXPECT_EQ(session.close(), KIVSESSION_OK);
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(released, 20);
}

TEST(kivsessionThreadsTest, AfterACloseOnAnyOfSeveralThreadsTheNextSessionOpens) {
  constexpr int closers = 8;
  const TemporaryDirectory directory;
  for (int round = 0; round < 10; ++round) {
    OpenedSession session(directory.path());
    kivsession* const handle = session.handle();
    std::atomic<int> closed = 0;
    std::atomic<int> wrong = 0;
    std::atomic<int> opened = 0;
    std::vector<std::thread> threads;
    for (int number = 0; number < closers; ++number) {
      threads.emplace_back([&] {
        const int result = kivsession_close(handle);
        if (result == KIVSESSION_OK) ++closed;
        if (result != KIVSESSION_OK && result != KIVSESSION_CLOSED) ++wrong;
        // Only another thread's session may be in the way, and it stays until all have tried.
        kivsession* next = nullptr;
        const std::string settings = R"({"root":")" + directory.path() + "\"}";
        const int result2 = kivsession_open(settings.c_str(), &next, nullptr);
        if (result2 == KIVSESSION_OK) ++opened;
        if (result2 != KIVSESSION_OK && result2 != KIVSESSION_BUSY) ++wrong;
        if (next && kivsession_close(next) != KIVSESSION_OK) ++wrong;
      });
    }
    for (auto& thread : threads)
      thread.join();
    EXPECT_GE(closed, 1);
    EXPECT_GE(opened, 1);
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(session.close(), KIVSESSION_CLOSED);
  }
}

/// Any function at any time: whatever comes is one of the documented results.
void useAtRandom(std::atomic<kivsession*>& shared, const std::string& settings, unsigned seed,
                 std::atomic<int>& wrong) {
  std::minstd_rand random(seed);
  for (int step = 0; step < 150; ++step) {
    kivsession* const session = shared;
    switch (random() % 8) {
      case 0: {
        kivsession* opened = nullptr;
        char* message = nullptr;
        const int result = kivsession_open(settings.c_str(), &opened, &message);
        if ((result == KIVSESSION_OK) != (opened != nullptr)) ++wrong;
        if (result != KIVSESSION_OK && (result != KIVSESSION_BUSY || !message)) ++wrong;
        if (opened) shared = opened;
        kivsession_free(message);
        break;
      }
      case 1: {
        const int result = kivsession_close(session);
        if (result != KIVSESSION_OK && result != KIVSESSION_CLOSED) ++wrong;
        if (kivsession_send(session, "{}") != KIVSESSION_CLOSED) ++wrong;
        break;
      }
      case 2: {
        int descriptor = 0;
        const int result = kivsession_descriptor(session, &descriptor);
        if ((result == KIVSESSION_OK) != (descriptor >= 0)) ++wrong;
        break;
      }
      case 3:
      case 4: {
        char* line = nullptr;
        const int result = kivsession_receive(session, static_cast<int>(random() % 3), &line);
        if ((result == KIVSESSION_OK) != (line != nullptr)) ++wrong;
        if (result > KIVSESSION_CLOSED) ++wrong;
        kivsession_free(line);
        break;
      }
      default: {
        constexpr std::array calls{R"({"call":"state","tag":1})",
                                   R"({"call":"audit"})",
                                   "{",
                                   R"({"call":"reportProgress","enabled":true})",
                                   R"({"call":"reportPasses","enabled":true})",
                                   R"({"call":"pause"})",
                                   R"({"call":"resume"})",
                                   R"({"call":"setSettings","settings":{"threads":1}})"};
        const int result = kivsession_send(session, calls[random() % calls.size()]);
        if (result != KIVSESSION_OK && result != KIVSESSION_CLOSED) ++wrong;
      }
    }
  }
}

TEST(kivsessionThreadsTest, TwentyThreadsUseEverythingAtOnce) {
  const TemporaryDirectory directory;
  const std::string settings = R"({"root":")" + directory.path() + "\"}";
  std::atomic<kivsession*> shared = nullptr;
  std::atomic<int> wrong = 0;
  std::vector<std::thread> threads;
  for (unsigned number = 0; number < 20; ++number)
    threads.emplace_back([&, number] { useAtRandom(shared, settings, number + 1, wrong); });
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(wrong, 0);
  // The one that is open still, if any, was the last that was opened.
  const int result = kivsession_close(shared);
  EXPECT_TRUE(result == KIVSESSION_OK || result == KIVSESSION_CLOSED);
  EXPECT_TRUE(OpenedSession(directory.path()).answers());
}

}  // namespace
