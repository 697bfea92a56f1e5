// A pause stops the transfers without a failure. Each is resumed where it stopped, and each task is
// completed exactly once.

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Tests/KivPlatform/KivRESTService/ClientFixture.h"
#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/NginxServer.h"
#include "Tests/Support/RangeServer.h"

namespace {

using namespace std::chrono_literals;
using namespace kiv::test;
using Code = KivRESTServiceErrorCode;
using Ranges = std::vector<std::string>;

class KivRESTServicePause : public ClientFixture {
 protected:
  KivRESTServicePause() { spool(); }

  /// Serves the file so that the first response, and each to a range that begins before `whole`,
  /// stalls after `piece` bytes.
  void serveInPieces(std::size_t piece, std::size_t whole, const std::string& path = "/a") {
    server_.serve(path, [body = body_, piece, whole](const Request& request) {
      auto response = rangeResponse(request, body, "\"a\"");
      return firstByteAsked(request) < whole ? response.stallAt(piece) : response;
    });
  }

  /// Creates the client, whose reports the test then waits for.
  void observe() {
    client().setProgressHandler([this](const KivRESTServiceProgress& last) { progress_ = last; });
  }

  [[nodiscard]] bool waitForBytes(const Load& load, std::int64_t bytes) const {
    return waitUntil([&] { return load.task()->progress().bytesReceived == bytes; });
  }

  /// Waits for a report by which so many tasks wait and none runs.
  [[nodiscard]] bool waitUntilAllWait(std::size_t tasks) const {
    return waitUntil(
        [&] { return progress_.tasksWaiting == tasks && progress_.tasksRunning == 0; });
  }

  /// Queues a file, pauses the client when so many bytes have come, and waits until it is halted.
  [[nodiscard]] Load pausedAt(std::int64_t bytes) {
    observe();
    Load load(client(), url());
    EXPECT_TRUE(waitForBytes(load, bytes));
    client().pause();
    EXPECT_TRUE(server_.waitForNoConnection());
    EXPECT_TRUE(waitUntilAllWait(1));
    return load;
  }

  /// Waits until another client has used up a deadline as long as that of client().
  void letTheDeadlinePass() {
    server_.serve("/late", Response::ok("12345").stallAt(1));
    KivRESTService other(settings_);
    const Load late(other, url("/late"));
    ASSERT_TRUE(late.waitForEnd());
    ASSERT_EQ(late.errorCode(), codeOf(Code::deadlineExceeded)) << late.message();
  }

  [[nodiscard]] Ranges ranges(const std::string& path = "/a") const {
    Ranges ranges;
    for (const auto& request : server_.requests(path))
      ranges.push_back(request.header("Range").value_or(""));
    return ranges;
  }

  void expectWholeInOneTry(const Load& load) const {
    ASSERT_TRUE(load.waitForEnd());
    EXPECT_TRUE(load.body() == body_) << load.message() << load.body().size();
    EXPECT_EQ(load.completions(), 1);
    EXPECT_EQ(load.task()->metrics().tries, 1);
    EXPECT_EQ(load.task()->metrics().timesYielded, 0);
    EXPECT_TRUE(load.task()->metrics().failedTries.empty());
  }

  const std::string body_ = patternedBytes(100'000);
  KivRESTServiceProgress progress_;
};

TEST_F(KivRESTServicePause, ARunningTransferGoesOnWhereItWas) {
  serveInPieces(60'000, 1);
  const Load load = pausedAt(60'000);
  EXPECT_TRUE(client().isPaused());
  EXPECT_FALSE(load.hasEnded());
  EXPECT_EQ(ranges(), Ranges{""});
  client().resume();
  EXPECT_FALSE(client().isPaused());
  expectWholeInOneTry(load);
  EXPECT_EQ(ranges(), (Ranges{"", "bytes=60000-"}));
  EXPECT_EQ(server_.requests("/a").back().header("If-Range"), "\"a\"");
  EXPECT_EQ(load.task()->metrics().resumedBytes, 60'000);
}

TEST_F(KivRESTServicePause, ABodyInMemoryGoesOnWhereItWas) {
  settings_.largestBodyInMemory = 1'000'000;
  serveInPieces(60'000, 1);
  const Load load = pausedAt(60'000);
  client().resume();
  expectWholeInOneTry(load);
  EXPECT_EQ(ranges(), (Ranges{"", "bytes=60000-"}));
}

TEST_F(KivRESTServicePause, ABodyWithoutAValidatorStartsOver) {
  server_.serve("/a", std::vector{Response::ok(body_).stallAt(60'000), Response::ok(body_)});
  const Load load = pausedAt(60'000);
  client().resume();
  expectWholeInOneTry(load);
  EXPECT_EQ(ranges(), (Ranges{"", ""}));
}

TEST_F(KivRESTServicePause, ARequestWithoutAnAnswerIsRepeated) {
  server_.serve("/a", std::vector{Response::nothing().stallAt(0), Response::ok(body_)});
  observe();
  const Load load(client(), url());
  ASSERT_TRUE(server_.waitForRequests(1));
  client().pause();
  ASSERT_TRUE(server_.waitForNoConnection());
  client().resume();
  expectWholeInOneTry(load);
}

TEST_F(KivRESTServicePause, AFailedRangeRequestIsStillRememberedAfterwards) {
  serveInPieces(60'000, 1);
  { const Load load = pausedAt(60'000); }
  // The continuation is halted too, before its answer. Its range has not failed.
  server_.serve("/a", Response::nothing().stallAt(0));
  client().resume();
  ASSERT_TRUE(server_.waitForRequests("/a", 2));
  client().pause();
  ASSERT_TRUE(server_.waitForNoConnection());
  server_.serve("/a",
                [&](const Request& request) { return rangeResponse(request, body_, "\"a\""); });
  client().resume();
  ASSERT_TRUE(waitUntil([&] { return client().currentQueue().empty(); }));
  EXPECT_EQ(ranges(), (Ranges{"", "bytes=60000-", "bytes=60000-"}));
}

TEST_F(KivRESTServicePause, NothingStartsUntilItEnds) {
  server_.serve("/a", Response::ok("x"));
  observe();
  client().pause();
  auto loads = makeLoads(client(), url(), 5);
  ASSERT_TRUE(waitUntilAllWait(5));
  // By the report with the sixth, the thread has looked for work with the other five.
  loads.emplace_back(client(), url("/a?last"));
  ASSERT_TRUE(waitUntilAllWait(6));
  EXPECT_TRUE(server_.requests().empty());
  EXPECT_EQ(client().currentQueue().size(), 6U);
  client().resume();
  expectBodies(loads, "x");
}

TEST_F(KivRESTServicePause, StartsByPriorityWhenItEnds) {
  settings_.parallelTransfers = 1;
  for (const char* const path : {"/low", "/middle", "/high"})
    server_.serve(path, Response::ok("x"));
  client().pause();
  const std::vector<Load> loads{Load(client(), url("/low"), 1), Load(client(), url("/high"), 3),
                                Load(client(), url("/middle"), 2)};
  client().resume();
  expectBodies(loads, "x");
  std::vector<std::string> order;
  for (const auto& request : server_.requests())
    order.push_back(request.path);
  EXPECT_EQ(order, (std::vector<std::string>{"/high", "/middle", "/low"}));
}

TEST_F(KivRESTServicePause, TwiceIsOnceAndAResumeWithoutAPauseIsNone) {
  serveInPieces(60'000, 1);
  client().resume();
  EXPECT_FALSE(client().isPaused());
  const Load load = pausedAt(60'000);
  client().pause();
  client().resume();
  client().resume();
  expectWholeInOneTry(load);
  EXPECT_EQ(ranges().size(), 2U);
}

TEST_F(KivRESTServicePause, ManyTransfersOnAllThreadsGoOn) {
  settings_.threads = 3;
  serveInPieces(60'000, 1);
  observe();
  const auto loads = makeLoads(client(), url(), 6);
  ASSERT_TRUE(waitUntil([&] { return progress_.bytesReceived == 6 * 60'000; }));
  client().pause();
  ASSERT_TRUE(server_.waitForNoConnection());
  ASSERT_TRUE(waitUntilAllWait(6));
  client().resume();
  for (const Load& load : loads) {
    expectWholeInOneTry(load);
    EXPECT_EQ(load.task()->metrics().resumedBytes, 60'000);
  }
}

TEST_F(KivRESTServicePause, OverHTTP2StreamsGoOn) {
  NginxServer server("limit_rate 40k;");
  server.addFile("file", body_);
  settings_.certificateAuthoritiesPath = server.certificatePath();
  observe();
  const auto loads = makeLoads(client(), server.secureURL("/file"), 4);
  ASSERT_TRUE(
      waitUntil([&] { return progress_.running.size() == 4 && progress_.bytesReceived > 0; }));
  client().pause();
  ASSERT_TRUE(waitUntilAllWait(4));
  client().resume();
  for (const Load& load : loads)
    expectWholeInOneTry(load);
}

TEST_F(KivRESTServicePause, ATaskThatIsQueuedMeanwhileSharesTheTransfer) {
  serveInPieces(60'000, 1);
  const Load load = pausedAt(60'000);
  const Load other(client(), url());
  client().resume();
  expectWholeInOneTry(load);
  expectWholeInOneTry(other);
  EXPECT_EQ(ranges().size(), 2U);
}

// --- What does not run meanwhile -----------------------------------------------------------------

TEST_F(KivRESTServicePause, IsNoTryHoweverOften) {
  settings_.triesPerServer = settings_.triesInAll = 1;
  serveInPieces(5'000, 60'000);
  observe();
  const Load load(client(), url());
  for (std::int64_t bytes = 5'000; bytes <= 60'000; bytes += 5'000) {
    ASSERT_TRUE(waitForBytes(load, bytes));
    client().pause();
    ASSERT_TRUE(server_.waitForNoConnection());
    client().resume();
  }
  expectWholeInOneTry(load);
  EXPECT_EQ(ranges().size(), 13U);
}

TEST_F(KivRESTServicePause, TheDeadlineDoesNotRun) {
  settings_.deadline = 3s;
  serveInPieces(60'000, 1);
  const Load load = pausedAt(60'000);
  letTheDeadlinePass();
  EXPECT_FALSE(load.hasEnded());
  client().resume();
  expectWholeInOneTry(load);
}

TEST_F(KivRESTServicePause, TheDeadlineRunsOnAfterwards) {
  settings_.deadline = 2s;
  server_.serve("/a", Response::ok(body_).header("ETag", "\"a\"").stallAt(60'000));
  const Load load = pausedAt(60'000);
  client().resume();
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(load.errorCode(), codeOf(Code::deadlineExceeded)) << load.message();
}

TEST_F(KivRESTServicePause, ARetryComesAfterwards) {
  settings_.firstRetryDelay = settings_.longestRetryDelay = 0ms;
  server_.serve("/a", std::vector{Response::status(503), Response::ok(body_)});
  observe();
  client().pause();
  const Load load(client(), url());
  client().resume();
  ASSERT_TRUE(server_.waitForRequests(1));
  client().pause();
  client().resume();
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_TRUE(load.body() == body_);
}

/// Until a server that was unreachable is reached, all wait for the end of its probe.
TEST_F(KivRESTServicePause, AHaltedProbeIsFollowedByAnother) {
  settings_.connectTimeout = 2s;
  settings_.threads = 1;
  const UnreachableServer swallowing;
  observe();
  ASSERT_TRUE(loaded(swallowing.url("/a")).hasEnded());
  const auto loads = makeLoads(client(), swallowing.url("/a"), 3);
  ASSERT_TRUE(
      waitUntil([&] { return progress_.tasksRunning == 1 && progress_.tasksWaiting == 2; }));
  client().pause();
  ASSERT_TRUE(waitUntil([&] { return progress_.tasksRunning == 0; }));
  client().resume();
  expectErrors(loads, Code::timedOut);
}

// --- Ends ----------------------------------------------------------------------------------------

TEST_F(KivRESTServicePause, CancelledTasksAreGone) {
  serveInPieces(60'000, 1);
  const Load load = pausedAt(60'000);
  client().cancelAllTasks();
  EXPECT_TRUE(client().currentQueue().empty());
  EXPECT_TRUE(client().isPaused());
  const Load next(client(), url());
  client().resume();
  ASSERT_TRUE(next.waitForEnd());
  EXPECT_TRUE(next.body() == body_);
  EXPECT_EQ(load.completions(), 0);
  EXPECT_EQ(ranges(), (Ranges{"", "bytes=60000-"})) << "the part was kept";
}

TEST_F(KivRESTServicePause, WhatAClientLeavesThatIsDestroyedIsGoneOnWith) {
  serveInPieces(60'000, 1);
  const Load load = pausedAt(60'000);
  endClient();
  EXPECT_EQ(load.completions(), 0);
  EXPECT_TRUE(loaded().body() == body_);
  EXPECT_EQ(ranges(), (Ranges{"", "bytes=60000-"}));
}

/// A process that ends, or is killed, while its client is paused.
class PausedProcess : public KivRESTServicePause,
                      public testing::WithParamInterface<const char*> {};

TEST_P(PausedProcess, LeavesWhatTheNextOneGoesOnWith) {
  serveInPieces(60'000, 1);
  ChildProcess child(PAUSED_DOWNLOAD, {settings_.spoolDirectory, url(), "60000"});
  ASSERT_TRUE(child.hasStarted());
  ASSERT_TRUE(server_.waitForRequests(1));
  ASSERT_TRUE(server_.waitForNoConnection()) << "it has paused";
  if (std::string(GetParam()) == "killed") {
    child.sendSignal(SIGKILL);
    EXPECT_EQ(child.waitForExit(), std::nullopt);
  } else {
    child.closeInput();
    EXPECT_EQ(child.waitForExit(), 0);
  }
  EXPECT_TRUE(loaded().body() == body_);
  EXPECT_EQ(ranges(), (Ranges{"", "bytes=60000-"}));
}

INSTANTIATE_TEST_SUITE_P(All, PausedProcess, testing::Values("killed", "ended"),
                         [](const auto& testCase) { return std::string(testCase.param); });

// --- Many threads --------------------------------------------------------------------------------

class ControlledByManyThreads : public KivRESTServicePause {
 protected:
  ControlledByManyThreads() {
    settings_.threads = 3;
    // The server may still answer a cancelled request when the test has ended.
    server_.serve("/a", [body = body_](const Request& request) {
      return rangeResponse(request, body, "\"a\"").drip(40'000, 1ms);
    });
  }

  [[nodiscard]] int asked() const { return asked_; }

  /// Has threads use the client until `isOver`, then resumes it without a limit.
  template <class Predicate>
  void control(const Predicate& isOver, bool cancels) {
    static_cast<void>(client());  // which no thread may create
    std::atomic<bool> stops = false;
    std::vector<std::thread> threads;
    for (unsigned number = 0; number < 4; ++number) {
      threads.emplace_back([&, number] {
        for (unsigned round = number; !stops; ++round)
          controlOnce(round % (cancels ? 8 : 7));
      });
    }
    const bool isDone = waitUntil(isOver);
    stops = true;
    for (auto& thread : threads)
      thread.join();
    client().setBandwidth(0);
    client().setStartCondition(nullptr);
    client().resume();
    EXPECT_TRUE(isDone);
  }

 private:
  void controlOnce(unsigned choice) {
    constexpr std::array<std::int64_t, 3> limits{0, 20'000'000, 5'000'000};
    switch (choice) {
      case 0:
        return client().pause();
      case 3:
        return client().setBandwidth(limits[changes_++ % limits.size()]);
      case 5:
        return client().setStartCondition(
            [this](const KivRESTServiceTask&, const kiv::URL&) { return asked_++ % 3 != 0; });
      case 6:
        return client().startConditionChanged();
      case 7:
        return client().cancelAllTasks();
      default:
        client().resume();
        static_cast<void>(client().isPaused());
        static_cast<void>(client().settings());
        std::this_thread::yield();
    }
  }

  std::atomic<std::size_t> changes_ = 0;
  std::atomic<int> asked_ = 0;
};

TEST_F(ControlledByManyThreads, EveryTaskIsCompletedOnce) {
  const auto loads = makeLoads(client(), url(), 60);
  control([&] { return asked() > 200; }, false);
  expectBodies(loads, body_);
  EXPECT_TRUE(client().currentQueue().empty());
}

TEST_F(ControlledByManyThreads, ACancelledTaskIsCompletedAtMostOnce) {
  std::vector<Load> loads;
  control(
      [&] {
        loads.emplace_back(client(), url("/a?" + std::to_string(loads.size())));
        return loads.size() == 300;
      },
      true);
  ASSERT_TRUE(waitUntil([&] { return client().currentQueue().empty(); }));
  for (const Load& load : loads) {
    EXPECT_LE(load.completions(), 1);
    EXPECT_TRUE(!load.hasEnded() || load.body() == body_) << load.message();
  }
}

}  // namespace
