// Handles that are not open, and what a session leaves behind.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include <climits>
#include <gtest/gtest.h>

#include "KivSession/kivsession.h"
#include "Tests/KivSession/OpenedSession.h"
#include "Tests/Support/LoopbackServer.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace {

using namespace kiv::test;

/// Nothing is done to a handle that is not open, and every result is set all the same.
void expectClosed(kivsession* handle) {
  char* line = nullptr;
  char previous = 'x';
  line = &previous;
  int descriptor = 17;
  EXPECT_EQ(kivsession_send(handle, "{}"), KIVSESSION_CLOSED);
  EXPECT_EQ(kivsession_send(handle, nullptr), KIVSESSION_CLOSED);
  EXPECT_EQ(kivsession_receive(handle, -1, &line), KIVSESSION_CLOSED);
  EXPECT_EQ(line, nullptr);
  EXPECT_EQ(kivsession_receive(handle, 0, nullptr), KIVSESSION_CLOSED);
  EXPECT_EQ(kivsession_descriptor(handle, &descriptor), KIVSESSION_CLOSED);
  EXPECT_EQ(descriptor, -1);
  EXPECT_EQ(kivsession_descriptor(handle, nullptr), KIVSESSION_CLOSED);
  EXPECT_EQ(kivsession_close(handle), KIVSESSION_CLOSED);
}

kivsession* asHandle(std::uintptr_t value) {
  return reinterpret_cast<kivsession*>(value);
}

/// Values near the handle, which a program may have by a mistake, and some that are addresses.
std::vector<kivsession*> strangeHandles(kivsession* open) {
  const auto number = reinterpret_cast<std::uintptr_t>(open);
  auto freed = std::make_unique<int>();
  // volatile, or gcc warns of a use of the freed object.
  const volatile auto former = reinterpret_cast<std::uintptr_t>(freed.get());
  freed.reset();
  static int variable = 0;
  return {nullptr,
          asHandle(number - 1),
          asHandle(number + 1),
          asHandle(~number),
          asHandle(UINTPTR_MAX),
          asHandle(former),
          reinterpret_cast<kivsession*>(&variable),
          reinterpret_cast<kivsession*>(&kivsession_open)};
}

TEST(kivsessionLifeTest, WhatWasNeverAHandleIsClosed) {
  const TemporaryDirectory directory;
  const OpenedSession session(directory.path());
  for (auto* const handle : strangeHandles(session.handle()))
    expectClosed(handle);
  EXPECT_TRUE(session.answers());
}

TEST(kivsessionLifeTest, AHandleThatWasClosedNeverOpensAgain) {
  const TemporaryDirectory directory;
  OpenedSession session(directory.path());
  kivsession* const former = session.handle();
  EXPECT_EQ(session.close(), KIVSESSION_OK);
  expectClosed(former);
  const OpenedSession next(directory.path());
  EXPECT_NE(next.handle(), former);
  expectClosed(former);
  EXPECT_TRUE(next.answers());
}

TEST(kivsessionLifeTest, AFailureToOpenLeavesNoHandleAndOneLineOfText) {
  const TemporaryDirectory directory;
  const std::string valid = R"({"root":")" + directory.path() + "\"}";
  const std::string nothing;
  std::string long10MB = R"({"root":"/)";
  long10MB.resize(10'000'000, 'a');
  long10MB += "\n\"}";
  const std::string deep(1'000'000, '[');
  for (const char* const settings :
       {static_cast<const char*>(nullptr), nothing.c_str(), "{}", "null", "{\"root\":\"\xff\"}",
        R"({"root":"relative"})", R"({"root":"/a","root2":1})", R"({"root":"/a)", "\xef\xbb\xbf{}",
        R"({"root":"/a\n\u0000\u001b[31m"})", R"({"ro\not\"":1})", long10MB.c_str(),
        deep.c_str()}) {
    auto* session = asHandle(17);
    char* message = nullptr;
    EXPECT_EQ(kivsession_open(settings, &session, &message), KIVSESSION_INVALID);
    EXPECT_EQ(session, nullptr);
    ASSERT_NE(message, nullptr);
    EXPECT_STRNE(message, "");
    for (const char* character = message; *character != '\0'; ++character) {
      EXPECT_TRUE(static_cast<unsigned char>(*character) >= ' ') << message;
    }
    kivsession_free(message);
    EXPECT_EQ(kivsession_open(settings, &session, nullptr), KIVSESSION_INVALID);
  }
  char* message = nullptr;
  EXPECT_EQ(kivsession_open(valid.c_str(), nullptr, &message), KIVSESSION_INVALID);
  kivsession_free(message);
  EXPECT_TRUE(OpenedSession(directory.path()).answers()) << "a failure is no open session";
}

TEST(kivsessionLifeTest, ASecondSessionIsRefusedAndTheFirstOneGoesOn) {
  const TemporaryDirectory directory;
  const OpenedSession session(directory.path());
  auto* second = asHandle(17);
  char* message = nullptr;
  EXPECT_EQ(kivsession_open((R"({"root":")" + directory.path() + "\"}").c_str(), &second, &message),
            KIVSESSION_BUSY);
  EXPECT_EQ(second, nullptr);
  ASSERT_NE(message, nullptr);
  kivsession_free(message);
  EXPECT_TRUE(session.answers());
}

TEST(kivsessionLifeTest, NullArgumentsAreRefusedAndNoLineIsLost) {
  const TemporaryDirectory directory;
  const OpenedSession session(directory.path());
  EXPECT_EQ(kivsession_send(session.handle(), nullptr), KIVSESSION_INVALID);
  EXPECT_EQ(kivsession_descriptor(session.handle(), nullptr), KIVSESSION_INVALID);
  EXPECT_EQ(session.send(R"({"call":"state","tag":"t"})"), KIVSESSION_OK);
  EXPECT_EQ(kivsession_receive(session.handle(), -1, nullptr), KIVSESSION_INVALID);
  EXPECT_EQ(kivsession_receive(session.handle(), 0, nullptr), KIVSESSION_INVALID);
  EXPECT_EQ(session.receiveUpTo("t").size(), 1u);
  kivsession_free(nullptr);
}

TEST(kivsessionLifeTest, TimeoutsDoNotOverflow) {
  const TemporaryDirectory directory;
  const OpenedSession session(directory.path());
  for (const int timeout : {INT_MIN, -1, INT_MAX}) {
    ASSERT_EQ(session.send(R"({"call":"stopLoading","tag":1})"), KIVSESSION_OK);
    EXPECT_TRUE(session.receive(timeout)) << timeout;
    EXPECT_TRUE(session.receive(timeout)) << timeout;
  }
}

// --- What is left behind -------------------------------------------------------------------------

std::ptrdiff_t entriesOf(const char* directory) {
  return std::distance(std::filesystem::directory_iterator(directory), {});
}

/// One pass over the network, which starts the client's threads, and another one that closing cuts
/// off.
void loadAndCutOff(const TemporaryDirectory& directory, const std::string& url, int round) {
  const OpenedSession session(directory.path(), R"(,"main":")" + url + "\"");
  const auto load = [&](const std::string& name) {
    return R"({"call":"loadResourcesForConfig","config":{"items":[{"engine":"eco_standard",)"
           R"("name":"n","type":"t","banner_id":")" +
           name + R"(","priority":1,"updated":1,"market_url":"m","image_728x90":")" + name +
           R"(.png"}]}})";
  };
  ASSERT_EQ(session.send(load("a" + std::to_string(round))), KIVSESSION_OK);
  ASSERT_EQ(session.send(R"({"call":"waitForFinish","tag":"over"})"), KIVSESSION_OK);
  const auto lines = session.receiveUpTo("over");
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_TRUE(lines[0].starts_with(R"({"event":"didLoadResource")")) << lines[0];
  ASSERT_EQ(session.send(load("never" + std::to_string(round))), KIVSESSION_OK);
  ASSERT_TRUE(session.answers());
}

TEST(kivsessionLifeTest, AHundredSessionsLeaveNoThreadAndNoDescriptor) {
  const TemporaryDirectory directory;
  const auto pass = [&](int first, int rounds) {
    LoopbackServer server;
    for (int round = first; round < first + rounds; ++round) {
      server.serve("/a" + std::to_string(round) + ".png", Response::ok("a"));
      server.serve("/never" + std::to_string(round) + ".png", Response::ok("b").after(Gate()));
      loadAndCutOff(directory, server.url(), round);
    }
  };
  pass(0, 1);  // what libraries open once and keep
  const auto descriptors = entriesOf("/proc/self/fd");
  const auto threads = entriesOf("/proc/self/task");
  pass(1, 100);
  EXPECT_EQ(entriesOf("/proc/self/fd"), descriptors);
  EXPECT_EQ(entriesOf("/proc/self/task"), threads);
}

TEST(kivsessionLifeTest, ASessionWithoutATraceOfACallLeavesNothingEither) {
  const TemporaryDirectory directory;
  OpenedSession(directory.path()).close();
  const auto descriptors = entriesOf("/proc/self/fd");
  const auto threads = entriesOf("/proc/self/task");
  for (int round = 0; round < 100; ++round)
    OpenedSession(directory.path()).close();
  EXPECT_EQ(entriesOf("/proc/self/fd"), descriptors);
  EXPECT_EQ(entriesOf("/proc/self/task"), threads);
}

// --- The log -------------------------------------------------------------------------------------

/// What a log function sees when it uses the library itself.
struct LogCalls {
  kivsession* session = nullptr;
  std::atomic<int> lines = 0;
  std::atomic<int> closed = 0;
  std::atomic<int> wrong = 0;
};

void logAndUseEverything(void* context, const char* line) {
  auto& calls = *static_cast<LogCalls*>(context);
  ++calls.lines;
  if (!line || *line == '\0') ++calls.wrong;
  if (kivsession_close(calls.session) != KIVSESSION_INVALID) ++calls.closed;
  int descriptor = -1;
  if (kivsession_descriptor(calls.session, &descriptor) == KIVSESSION_CLOSED) ++calls.wrong;
  if (kivsession_send(calls.session, R"({"call":"sleep","ms":0})") != KIVSESSION_OK) ++calls.wrong;
  if (kivsession_set_log(logAndUseEverything, context) != KIVSESSION_OK) ++calls.wrong;
  kivsession* other = nullptr;
  if (kivsession_open("{}", &other, nullptr) != KIVSESSION_INVALID) ++calls.wrong;
}

TEST(kivsessionLifeTest, TheLogFunctionMayUseTheLibraryButNotClose) {
  const TemporaryDirectory directory;
  OpenedSession session(directory.path());
  LogCalls calls{session.handle()};
  ASSERT_EQ(kivsession_set_log(logAndUseEverything, &calls), KIVSESSION_OK);
  // A loader without a server has something to say.
  ASSERT_EQ(session.send(R"({"call":"loadResourcesForConfig","config":{"items":[{"engine":)"
                         R"("eco_standard","name":"n","type":"t"},5,{"engine":"eco_web"}]}})"),
            KIVSESSION_OK);
  ASSERT_EQ(session.send(R"({"call":"waitForFinish","tag":"over"})"), KIVSESSION_OK);
  EXPECT_FALSE(session.receiveUpTo("over").empty());
  EXPECT_GT(calls.lines, 0);
  EXPECT_EQ(calls.closed, 0);
  EXPECT_EQ(calls.wrong, 0);
  EXPECT_TRUE(session.answers());
  ASSERT_EQ(kivsession_set_log(nullptr, nullptr), KIVSESSION_OK);
  EXPECT_EQ(session.close(), KIVSESSION_OK);
}

}  // namespace
