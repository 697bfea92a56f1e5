// Ends the process while a serial queue runs jobs that read and write JSON, and looks at the very
// end whether that queue still runs any: the libraries that were there first are taken down then.
// Run by SerialQueueExitTest.
//
//     ExitDuringJobs return|exit|job|finish

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

#include "KivPlatform/Foundation/queues/DispatchQueue.h"
#include "KivPlatform/Foundation/values/JSON.h"

namespace {

using kiv::DispatchQueue;

std::atomic<bool> exitHasBegun = false;
std::atomic<int> jobs = 0;
std::atomic<bool> isFinished = false;
bool isToFinish = false;
std::atomic<int> threadsWithJobs = 0;

/// What libraries keep for each thread, and let go of when it ends.
struct KeptForThread {
  KeptForThread() { ++threadsWithJobs; }
  KeptForThread(const KeptForThread&) = delete;
  KeptForThread& operator=(const KeptForThread&) = delete;
  ~KeptForThread() {
    for (int round = 0; round < 1000; ++round)
      std::this_thread::yield();
    --threadsWithJobs;
  }
};

/// Runs last, as the destructor of a library that was there first.
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
  queue->async([queue] { work(queue); });
}

void waitForJobs(int count) {
  while (jobs < count)
    std::this_thread::yield();
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 2) return 2;
  const std::string_view way = arguments[1];
  std::atexit(&expectNoJobs);
  // Held for good, as the manager's is: to let go of them would wait for their jobs.
  static const auto& queue = *new std::shared_ptr(DispatchQueue::serial("work"));
  static const auto& other = *new std::shared_ptr(DispatchQueue::serial("other"));
  std::atexit([] { exitHasBegun = true; });
  queue->async([] { work(queue); });
  other->async([] { work(other); });
  waitForJobs(100);
  if (way == "finish") {
    // A job that runs when the process ends is finished; one that waits is not begun.
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
  if (way == "job") {
    queue->async([] { std::exit(0); });
    DispatchQueue::main()->run();
  }
  if (way == "exit") std::exit(0);
  return 0;
}
