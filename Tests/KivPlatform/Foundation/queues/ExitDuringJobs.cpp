// Exits while a serial queue runs jobs that read and write JSON. Checks in the last exit handler
// that the queue runs no jobs any more: libraries that were loaded first are destroyed at that
// point. Run by SerialQueueExitTest.
//
//     ExitDuringJobs return|exit|job|finish|sync

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>

#include "KivPlatform/Foundation/queues/DispatchQueue.h"
#include "KivPlatform/Foundation/values/JSON.h"
#include "KivPlatform/Foundation/values/Result.h"

namespace {

using kiv::DispatchQueue;

std::atomic<bool> exitHasBegun = false;
std::atomic<int> jobs = 0;
std::atomic<bool> isFinished = false;
bool isToFinish = false;
std::atomic<int> threadsWithJobs = 0;

/// Stands for the thread-local state of a library, which is destroyed at the end of the thread.
struct KeptForThread {
  KeptForThread() { ++threadsWithJobs; }
  KeptForThread(const KeptForThread&) = delete;
  KeptForThread& operator=(const KeptForThread&) = delete;
  ~KeptForThread() {
    for (int round = 0; round < 50; ++round)
      std::this_thread::yield();
    --threadsWithJobs;
  }
};

/// Runs last, like the destructors of a library that was loaded first.
void expectNoJobs() {
  if (threadsWithJobs > 0) {
    std::fputs("The queue still runs while the process is taken down.\n", stderr);
    std::_Exit(4);
  }
  if (isToFinish && !isFinished) std::_Exit(5);
}

/// Each job adds the next one.
void work(const std::shared_ptr<DispatchQueue>& queue) {
  static thread_local const KeptForThread kept;
  const auto text = kiv::JSON::write(
      kiv::Dictionary{{"items", kiv::Array{std::string(1000, 'x'), "\xc3\xa4", jobs.load()}}});
  if (!text || !kiv::JSON::read(*text)) std::_Exit(6);
  ++jobs;
  jobs.notify_all();
  queue->async([queue] { work(queue); });
}

void waitForJobs(int count) {
  for (int seen = jobs; seen < count; seen = jobs)
    jobs.wait(seen);
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 2) return 2;
  const std::string_view way = arguments[1];
  std::atexit(&expectNoJobs);
  // Never destroyed, like the manager's queue: their destructors would wait for their jobs.
  static const auto& queue = *new std::shared_ptr(DispatchQueue::serial("work"));
  static const auto& other = *new std::shared_ptr(DispatchQueue::serial("other"));
  std::atexit([] { exitHasBegun = true; });
  queue->async([] { work(queue); });
  other->async([] { work(other); });
  waitForJobs(100);
  if (way == "finish") {
    // At exit, a running job is completed and a waiting job is dropped.
    isToFinish = true;
    std::atomic<bool> runs = false;
    queue->async([&runs] {
      runs = true;
      while (!exitHasBegun)
        std::this_thread::yield();
      for (int round = 0; round < 1000; ++round)
        kiv::JSON::toCompactString(std::string(1000, 'x'));
      isFinished = true;
    });
    while (!runs)
      std::this_thread::yield();
  }
  if (way == "sync") {
    // The job that is awaited waits behind another one and never runs, which ends the wait.
    isToFinish = true;
    static std::atomic<int> running = 0;
    other->async([] {
      ++running;
      while (!isFinished)
        std::this_thread::yield();
    });
    queue->async([] {
      ++running;
      const auto status = other->sync([] { std::_Exit(7); });
      isFinished = !status && kiv::isSystemError(status.error(), std::errc::operation_canceled);
    });
    while (running < 2)
      std::this_thread::yield();
  }
  if (way == "job") {
    queue->async([] { std::exit(0); });
    DispatchQueue::main()->run();
  }
  if (way == "exit") std::exit(0);
  return 0;
}
