// Forks repeatedly while other threads use a client; each child queues tasks with it. The exit code
// is the number of children that did not end as expected. Run by KivRESTServiceForkTest.
//
//     TasksAfterFork main|serial exit|return|destroy url

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "KivPlatform/Foundation/queues/DispatchQueue.h"
#include "KivPlatform/KivRESTService/KivRESTService.h"
#include "KivPlatform/KivRESTService/policy/TransferSettings.h"

namespace {

using kiv::DispatchQueue;

constexpr int forks = 20;
constexpr int tasksEach = 3;
constexpr unsigned longestChild = 30;  // seconds

std::shared_ptr<KivRESTServiceTask> makeTask(const std::string& url) {
  auto task = std::make_shared<KivRESTServiceTask>();
  task->setRequest(kiv::URLRequest(kiv::URL::fromString(url).value()));
  return task;
}

/// The client, the queue on which it was made, and that queue's tasks.
struct Host {
  std::shared_ptr<DispatchQueue> queue;
  std::unique_ptr<KivRESTService> client;

  explicit Host(bool isSerial) {
    kiv::TransferSettings settings;
    if (!isSerial) {
      queue = DispatchQueue::main();
      client = std::make_unique<KivRESTService>(settings);
      return;
    }
    queue = DispatchQueue::serial("host");
    std::atomic<bool> isMade = false;
    queue->async([&] {
      client = std::make_unique<KivRESTService>(settings);
      isMade = true;
    });
    while (!isMade)
      std::this_thread::yield();
  }
};

/// The results of the tasks that a child has queued.
struct Outcome {
  std::atomic<int> completions = 0;
  std::atomic<bool> isRight = true;
};

/// True if each task was completed once, with the error for a forked process, on the client's
/// queue.
bool tasksEnd(Host& host, const std::string& url) {
  auto& outcome = *new Outcome;
  for (int count = 0; count < tasksEach; ++count) {
    auto task = makeTask(url + "?child" + std::to_string(count));
    task->setCompletionHandler([&outcome, queue = host.queue](KivRESTServiceTask& ended) {
      constexpr auto expected = static_cast<std::int64_t>(KivRESTServiceErrorCode::forkedProcess);
      if (DispatchQueue::current() != queue || !ended.responseError() || ended.response() ||
          ended.responseError()->code != expected) {
        outcome.isRight = false;
      }
      ++outcome.completions;
    });
    host.client->queue(std::move(task));
  }
  while (outcome.completions < tasksEach)
    DispatchQueue::main()->drainFor(std::chrono::milliseconds(1));
  // Run one more job of the queue to check that nothing is completed twice.
  std::atomic<bool> isOver = false;
  host.queue->async([&] { isOver = true; });
  while (!isOver)
    DispatchQueue::main()->drainFor(std::chrono::milliseconds(1));
  return outcome.isRight && outcome.completions == tasksEach;
}

/// True if a cancelled task is not completed in the child either.
bool cancelledTasksDoNotEnd(Host& host, const std::string& url) {
  auto isCompleted = std::make_shared<std::atomic<bool>>(false);
  std::atomic<bool> isOver = false;
  host.queue->async([&] {
    auto task = makeTask(url);
    task->setCompletionHandler([isCompleted](KivRESTServiceTask&) { *isCompleted = true; });
    host.client->queue(std::move(task));
    host.client->cancelAllTasks();
    host.queue->async([&] { isOver = true; });
  });
  while (!isOver)
    DispatchQueue::main()->drainFor(std::chrono::milliseconds(1));
  return !*isCompleted && host.client->currentQueue().empty();
}

[[noreturn]] void beChild(Host& host, std::string_view way, const std::string& url) {
  alarm(longestChild);
  const bool isWell = tasksEnd(host, url) && cancelledTasksDoNotEnd(host, url);
  if (way == "destroy") host.client.reset();
  std::exit(isWell ? 0 : 3);
}

/// Uses the client without pause, so that a fork often happens while its locks are held.
void useUntil(const std::atomic<bool>& isOver, KivRESTService& client, const std::string& url) {
  for (int count = 0; !isOver; ++count) {
    client.queue(makeTask(url + "?" + std::to_string(count % 7)));
    static_cast<void>(client.currentQueue());
    if (count % 50 == 49) client.cancelAllTasks();
  }
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 4) return 100;
  const std::string_view way = arguments[2];
  const std::string url = arguments[3];
  alarm(100);
  Host host(std::string_view(arguments[1]) == "serial");
  std::atomic<bool> isOver = false;
  std::vector<std::thread> users;
  for (int user = 0; user < 2; ++user)
    users.emplace_back([&] { useUntil(isOver, *host.client, url); });
  int failures = 0;
  bool isChild = false;
  for (int round = 0; round < forks && !isChild; ++round) {
    const pid_t child = fork();
    if (child == 0 && way == "return") {
      isChild = true;
      alarm(longestChild);
      if (!tasksEnd(host, url)) failures = 1;
    } else if (child == 0) {
      beChild(host, way, url);
    } else {
      int status = 0;
      waitpid(child, &status, 0);
      if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) ++failures;
    }
    DispatchQueue::main()->drain();
  }
  if (isChild) {
    // Leaked: the threads do not exist in the child, so destroying the vector would terminate.
    new std::vector<std::thread>(std::move(users));
    static_cast<void>(host.client.release());
    return failures;
  }
  isOver = true;
  for (auto& user : users)
    user.join();
  // The parent's client still works.
  std::atomic<bool> hasEnded = false;
  auto task = makeTask(url);
  task->setCompletionHandler([&](KivRESTServiceTask& ended) {
    if (!ended.returnedData()) ++failures;
    hasEnded = true;
  });
  host.client->cancelAllTasks();
  host.client->queue(std::move(task));
  while (!hasEnded)
    DispatchQueue::main()->drainFor(std::chrono::milliseconds(1));
  return failures;
}
