// Passes that coroutines await.

#include <coroutine>
#include <exception>
#include <functional>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KivResource/KivResourcePassAwaiting.h"
#include "Tests/KivResource/passes/PassReportFixture.h"
#include "Tests/Support/MainQueue.h"

namespace kiv::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// A coroutine that starts at once, and is destroyed with this object.
class Task {
 public:
  struct promise_type {
    std::exception_ptr error;

    Task get_return_object() {
      return Task(std::coroutine_handle<promise_type>::from_promise(*this));
    }
    std::suspend_never initial_suspend() noexcept { return {}; }
    std::suspend_always final_suspend() noexcept { return {}; }
    void return_void() noexcept {}
    void unhandled_exception() noexcept { error = std::current_exception(); }
  };

  explicit Task(std::coroutine_handle<promise_type> coroutine) noexcept : coroutine_(coroutine) {}
  Task(Task&& other) noexcept : coroutine_(std::exchange(other.coroutine_, nullptr)) {}
  Task& operator=(Task&&) = delete;
  ~Task() {
    if (coroutine_) coroutine_.destroy();
  }

  [[nodiscard]] bool isDone() const { return coroutine_.done(); }
  [[nodiscard]] std::exception_ptr error() const { return coroutine_.promise().error; }

 private:
  std::coroutine_handle<promise_type> coroutine_;
};

class KivResourcePassAwaitingTest : public WithReports<ManagerFixture> {};

Task awaitInto(Names& heard, std::shared_ptr<KivResourceManager> manager, KivResourcePass pass) {
  const KivResourcePassReport report = co_await runPass(std::move(manager), std::move(pass));
  heard.emplace_back(kiv::nameOf(report.outcome));
}

TEST_F(KivResourcePassAwaitingTest, PassesRunOneAfterTheOther) {
  Names heard;
  const auto story = [](std::shared_ptr<KivResourceManager> host, Value first, Value second,
                        Names& lines) -> Task {
    const auto one = co_await kiv::load(host, std::move(first));
    for (const auto& line : entriesOf(one))
      lines.push_back(line);
    const auto two = co_await kiv::update(host, std::move(second));
    for (const auto& line : entriesOf(two))
      lines.push_back(line);
    lines.push_back("dropped " + std::to_string(two.dropped.size()));
  };
  const Task task =
      story(manager, config({plain("a", 1)}), config({banner("b", 1, "b.png")}), heard);
  EXPECT_THAT(heard, IsEmpty()) << "a pass that ends at once resumes the coroutine later, too";
  takeEvents();
  EXPECT_THAT(heard, ElementsAre("a added"));
  EXPECT_FALSE(task.isDone());
  client->succeed("/b.png");
  takeEvents();
  EXPECT_THAT(heard, ElementsAre("a added", "b added", "dropped 1"));
  EXPECT_TRUE(task.isDone());
}

TEST_F(KivResourcePassAwaitingTest, NothingStartsBeforeItIsAwaited) {
  { const auto unused = kiv::load(manager, config({plain("a", 1)})); }
  EXPECT_THAT(takeEvents(), IsEmpty());
  EXPECT_THAT(registry(), IsEmpty());
}

TEST_F(KivResourcePassAwaitingTest, ARefusedAndAStoppedPassResumeTheirCoroutines) {
  Names first;
  Names second;
  const Task running =
      awaitInto(first, manager, KivResourcePass::load(config({banner("a", 1, "a.png")})));
  const Task refused = awaitInto(second, manager, KivResourcePass::load(config({plain("b", 1)})));
  takeEvents();
  EXPECT_THAT(first, IsEmpty());
  EXPECT_THAT(second, ElementsAre("refused"));
  manager->stopLoading();
  takeEvents();
  EXPECT_THAT(first, ElementsAre("stopped"));
}

TEST_F(KivResourcePassAwaitingTest, ACoroutineThatIsDestroyedWhileItWaitsIsNotResumed) {
  Names heard;
  {
    const Task task =
        awaitInto(heard, manager, KivResourcePass::load(config({banner("a", 1, "a.png")})));
    takeEvents();
  }
  client->succeed("/a.png");
  EXPECT_THAT(takeEvents(), ElementsAre("loaded a", "finished"));
  EXPECT_THAT(heard, IsEmpty());
}

TEST_F(KivResourcePassAwaitingTest, AndSoIsOneWhoseReportIsOnItsWay) {
  Names heard;
  { const Task task = awaitInto(heard, manager, KivResourcePass::load(config({plain("a", 1)}))); }
  EXPECT_THAT(takeEvents(), ElementsAre("loaded a", "finished"));
  EXPECT_THAT(heard, IsEmpty());
}

TEST_F(KivResourcePassAwaitingTest, WhatTheCoroutineThrowsGoesToItsPromise) {
  const auto story = [](std::shared_ptr<KivResourceManager> host, Value value) -> Task {
    static_cast<void>(co_await kiv::load(std::move(host), std::move(value)));
    throw std::runtime_error("of the host");
  };
  const Task task = story(manager, config({plain("a", 1)}));
  takeEvents();
  ASSERT_TRUE(task.isDone());
  ASSERT_TRUE(task.error());
  EXPECT_THROW(std::rethrow_exception(task.error()), std::runtime_error);
}

TEST_F(KivResourcePassAwaitingTest, WhatTheStartThrowsIsThrownInTheCoroutine) {
  manager->setLoader(std::make_shared<ThrowingLoader>());
  Names heard;
  {
    const Task task =
        awaitInto(heard, manager, KivResourcePass::load(config({banner("a", 1, "a.png")})));
    ASSERT_TRUE(task.isDone());
    EXPECT_THROW(std::rethrow_exception(task.error()), std::bad_alloc);
    takeEvents();
  }
  manager->stopLoading();
  takeEvents();
  EXPECT_THAT(heard, IsEmpty());
}

TEST_F(KivResourcePassAwaitingTest, OnASerialQueueTheCoroutineResumesThere) {
  const auto queue = DispatchQueue::serial("resources");
  std::promise<std::shared_ptr<DispatchQueue>> place;
  const auto story = [](std::shared_ptr<KivResourceManager> host, Value value,
                        std::promise<std::shared_ptr<DispatchQueue>>& here) -> Task {
    static_cast<void>(co_await kiv::load(std::move(host), std::move(value)));
    here.set_value(DispatchQueue::ofRunningJob());
  };
  const auto value = config({plain("a", 1)});
  std::unique_ptr<Task> task;
  runOn(*queue, [&] {
    task = std::make_unique<Task>(story(KivResourceManager::newInstance(), value, place));
  });
  EXPECT_EQ(place.get_future().get(), queue);
  runOn(*queue, [&] { task.reset(); });
}

}  // namespace
}  // namespace kiv::test
