// The host's condition decides which transfers start. What it refuses waits, without a time limit,
// and what it allows is transferred.

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "KivPlatform/Foundation/queues/DispatchQueue.h"
#include "Tests/KivPlatform/KivRESTService/ClientFixture.h"

namespace {

using namespace std::chrono_literals;
using namespace kiv::test;
using Code = KivRESTServiceErrorCode;
using Answer = std::function<bool(const std::string& path)>;

class KivRESTServiceStartCondition : public ClientFixture {
 protected:
  KivRESTServiceStartCondition() {
    settings_.firstRetryDelay = settings_.longestRetryDelay = 0ms;
    server_.serve("/a", Response::ok("x"));
    server_.serve("/b", Response::ok("x"));
  }

  /// Sets a condition that notes the path and gives that answer.
  void answer(Answer answer) {
    client().setStartCondition(
        [this, answer = std::move(answer)](const KivRESTServiceTask&, const kiv::URL& url) {
          const std::string& text = url.absoluteString();
          asked_.push_back(text.substr(text.find('/', sizeof "http://")));
          return answer(asked_.back());
        });
  }
  void answer(bool mayStart) {
    answer([mayStart](const std::string&) { return mayStart; });
  }

  [[nodiscard]] bool waitUntilAsked(std::size_t times) const {
    return waitUntil([this, times] { return asked_.size() >= times; });
  }

  std::vector<std::string> asked_;
};

TEST_F(KivRESTServiceStartCondition, WhatItAllowsIsLoadedAndAskedForOnce) {
  answer(true);
  const auto loads = makeLoads(client(), url(), 500);
  expectBodies(loads, "x");
  EXPECT_EQ(asked_.size(), 500U);
}

TEST_F(KivRESTServiceStartCondition, WhatItRefusesWaitsWhileOthersGoOn) {
  bool isMetered = true;
  answer([&](const std::string& path) { return path != "/a" || !isMetered; });
  const Load waits(client(), url("/a"), 9);
  expectBodies(makeLoads(client(), url("/b"), 50), "x");
  EXPECT_FALSE(waits.hasEnded());
  EXPECT_TRUE(server_.requests("/a").empty());
  EXPECT_EQ(client().currentQueue().size(), 1U);
  isMetered = false;
  client().startConditionChanged();
  expectBodies({waits}, "x");
}

TEST_F(KivRESTServiceStartCondition, IsAskedOnTheClientsQueueWithTheTaskAndTheURL) {
  server_.serve("/a", Response::status(404));
  mirror_.serve("/a", Response::ok("mirror"));
  std::vector<std::string> asked;
  const KivRESTServiceTask* task = nullptr;
  client().setStartCondition([&](const KivRESTServiceTask& one, const kiv::URL& url) {
    EXPECT_EQ(kiv::DispatchQueue::current(), kiv::DispatchQueue::main());
    task = &one;
    asked.push_back(url.absoluteString());
    return true;
  });
  const Load load = loaded(urls());
  EXPECT_EQ(load.body(), "mirror");
  EXPECT_EQ(task, load.task().get());
  EXPECT_EQ(asked, urls());
}

TEST_F(KivRESTServiceStartCondition, IsAskedAgainBeforeARetry) {
  server_.serve("/a", std::vector{Response::status(503), Response::ok("x")});
  answer([&](const std::string&) { return asked_.size() != 2; });
  const Load load(client(), url());
  ASSERT_TRUE(waitUntilAsked(2));
  expectBodies({loaded(url("/b"))}, "x");
  EXPECT_FALSE(load.hasEnded());
  client().startConditionChanged();
  expectBodies({load}, "x");
  EXPECT_EQ(load.task()->metrics().tries, 2);
}

TEST_F(KivRESTServiceStartCondition, IsNotAskedForARedirect) {
  server_.serve("/a", Response::redirect(302, "/b"));
  answer(true);
  EXPECT_EQ(loaded().body(), "x");
  EXPECT_EQ(asked_, std::vector<std::string>{"/a"});
}

TEST_F(KivRESTServiceStartCondition, IsAskedOnceForTasksThatShareATransfer) {
  answer(false);
  const std::vector<Load> loads{Load(client(), url()), Load(client(), url())};
  ASSERT_TRUE(waitUntilAsked(1));
  const Load third(client(), url());
  answer(true);
  expectBodies(loads, "x");
  expectBodies({third}, "x");
  EXPECT_EQ(asked_.size(), 2U);
  EXPECT_EQ(server_.requests().size(), 1U);
}

TEST_F(KivRESTServiceStartCondition, KeepsThePriorities) {
  settings_.parallelTransfers = 1;
  answer(true);
  client().pause();
  const std::vector<Load> loads{Load(client(), url("/a?1"), 1), Load(client(), url("/a?3"), 3),
                                Load(client(), url("/a?2"), 2)};
  client().resume();
  expectBodies(loads, "x");
  EXPECT_EQ(asked_, (std::vector<std::string>{"/a?3", "/a?2", "/a?1"}));
}

// --- Changes -------------------------------------------------------------------------------------

TEST_F(KivRESTServiceStartCondition, AnotherConditionIsAskedAboutThoseThatWait) {
  answer(false);
  const Load load(client(), url());
  ASSERT_TRUE(waitUntilAsked(1));
  answer(true);
  expectBodies({load}, "x");
}

TEST_F(KivRESTServiceStartCondition, AnEmptyOneAllowsEverything) {
  answer(false);
  const auto loads = makeLoads(client(), url(), 10);
  ASSERT_TRUE(waitUntilAsked(10));
  client().setStartCondition(nullptr);
  expectBodies(loads, "x");
}

/// The answer is on its way while the host announces that it would be another one now.
TEST_F(KivRESTServiceStartCondition, AChangeWhileItIsAskedIsNotLost) {
  answer([&](const std::string&) {
    if (asked_.size() > 1) return true;
    client().startConditionChanged();
    return false;
  });
  expectBodies({loaded()}, "x");
  EXPECT_EQ(asked_.size(), 2U);
}

TEST_F(KivRESTServiceStartCondition, AChangeWithoutAConditionHasNoEffect) {
  client().startConditionChanged();
  expectBodies({loaded()}, "x");
}

TEST_F(KivRESTServiceStartCondition, AnAnswerFromBeforeAPauseIsAskedForAgain) {
  bool mayStart = true;
  std::size_t waiting = 0;
  answer([&](const std::string& path) {
    if (asked_.size() == 1) client().pause();
    return mayStart || path != "/a";
  });
  client().setProgressHandler(
      [&](const KivRESTServiceProgress& progress) { waiting = progress.tasksWaiting; });
  const Load load(client(), url());
  ASSERT_TRUE(waitUntilAsked(1));
  // By the report with this one, the thread has had the answer.
  const Load other(client(), url("/b"));
  ASSERT_TRUE(waitUntil([&] { return waiting == 2; }));
  mayStart = false;
  client().resume();
  expectBodies({other}, "x");
  EXPECT_EQ(asked_, (std::vector<std::string>{"/a", "/a", "/b"}));
  EXPECT_FALSE(load.hasEnded());
  mayStart = true;
  client().startConditionChanged();
  expectBodies({load}, "x");
}

// --- Time limits ---------------------------------------------------------------------------------

TEST_F(KivRESTServiceStartCondition, TheDeadlineDoesNotRunWhileATaskIsRefused) {
  settings_.deadline = 3s;
  server_.serve("/a", std::vector{Response::status(503), Response::ok("x")});
  server_.serve("/late", Response::ok("12345").stallAt(1));
  answer([&](const std::string& path) { return path != "/a" || asked_.size() == 1; });
  const Load load(client(), url());
  ASSERT_TRUE(waitUntilAsked(2));
  const Load late = loaded(url("/late"));
  ASSERT_EQ(late.errorCode(), codeOf(Code::deadlineExceeded)) << late.message();
  EXPECT_FALSE(load.hasEnded()) << load.message();
  answer(true);
  expectBodies({load}, "x");
}

// --- What the condition does ---------------------------------------------------------------------

TEST_F(KivRESTServiceStartCondition, OneThatThrowsHasRefused) {
  bool throws = true;
  answer([&](const std::string& path) -> bool {
    if (throws && path == "/a") throw std::runtime_error("no");
    return true;
  });
  const Load load(client(), url());
  const Load other(client(), url("/b"));
  expectBodies({other}, "x");
  EXPECT_FALSE(load.hasEnded());
  throws = false;
  client().startConditionChanged();
  expectBodies({load}, "x");
}

TEST_F(KivRESTServiceStartCondition, ItMayCancelAllTasks) {
  answer([&](const std::string&) {
    client().cancelAllTasks();
    return true;
  });
  const auto loads = makeLoads(client(), url(), 5);
  ASSERT_TRUE(waitUntilAsked(1));
  EXPECT_TRUE(client().currentQueue().empty());
  client().setStartCondition(nullptr);
  expectBodies({loaded(url("/b"))}, "x");
  for (const Load& load : loads)
    EXPECT_EQ(load.completions(), 0);
  EXPECT_TRUE(server_.requests("/a").empty());
}

TEST_F(KivRESTServiceStartCondition, ItMayDestroyTheClient) {
  answer([&](const std::string&) {
    endClient();
    return true;
  });
  const auto loads = makeLoads(client(), url(), 5);
  ASSERT_TRUE(waitUntilAsked(1));
  expectBodies({loaded(url("/b"))}, "x");
  EXPECT_EQ(asked_.size(), 1U);
  EXPECT_TRUE(server_.requests("/a").empty());
}

TEST_F(KivRESTServiceStartCondition, ItMayQueueTasks) {
  std::vector<Load> further;
  answer([&](const std::string& path) {
    if (path == "/a") further.emplace_back(client(), url("/b"));
    return true;
  });
  expectBodies({loaded()}, "x");
  ASSERT_EQ(further.size(), 1U);
  expectBodies(further, "x");
}

TEST_F(KivRESTServiceStartCondition, RefusedTasksAreCancelledAndDestroyedWithTheClient) {
  answer(false);
  const auto cancelled = makeLoads(client(), url(), 20);
  ASSERT_TRUE(waitUntilAsked(20));
  client().cancelAllTasks();
  EXPECT_TRUE(client().currentQueue().empty());
  const auto left = makeLoads(client(), url(), 20);
  ASSERT_TRUE(waitUntilAsked(40));
  endClient();
  expectBodies({loaded(url("/b"))}, "x");
  for (const auto* loads : {&cancelled, &left}) {
    for (const Load& load : *loads)
      EXPECT_EQ(load.completions(), 0);
  }
}

/// The job that asks is left on the queue, and the client is gone when it runs.
TEST_F(KivRESTServiceStartCondition, AQuestionAfterTheEndOfTheClientIsNotAsked) {
  answer(true);
  client().setProgressHandler([](const KivRESTServiceProgress&) {});
  {
    const Load load(client(), url());
    endClient();
  }
  expectBodies({loaded(url("/b"))}, "x");
  EXPECT_TRUE(asked_.empty());
}

}  // namespace
