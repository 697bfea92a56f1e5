// Fetches files in rounds. In round n the nth allocation on a thread of the framework fails, until
// a round completes with fewer allocations. Each file must arrive or its task must fail with the
// error for exhausted resources. Also checks that jobs that are added together are added all or not
// at all. Run by KivRESTServiceMemoryTest.
//
//     FailingAllocations spool url...

#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "KivPlatform/Foundation/queues/DispatchQueue.h"
#include "KivPlatform/KivRESTService/KivRESTService.h"
#include "KivPlatform/KivRESTService/policy/TransferSettings.h"
#include "Tests/KivPlatform/KivRESTService/TransferThreads.h"
#include "Tests/Support/FailingMemory.h"

namespace {

using kiv::test::allocationsLeft;

/// The result of a round.
struct Round {
  int completions = 0;
  int failures = 0;
  bool isRight = true;
};

Round fetch(KivRESTService& client, const std::vector<std::string>& urls) {
  Round round;
  for (const auto& url : urls) {
    auto task = std::make_shared<KivRESTServiceTask>();
    task->setRequest(kiv::URLRequest(kiv::URL::fromString(url).value()));
    task->setCompletionHandler([&round](KivRESTServiceTask& ended) {
      constexpr auto expected = static_cast<std::int64_t>(KivRESTServiceErrorCode::outOfResources);
      ++round.completions;
      if (ended.responseError()) ++round.failures;
      if (ended.responseError() && ended.responseError()->code != expected) round.isRight = false;
      if (!ended.responseError() && !ended.returnedData()) round.isRight = false;
    });
    client.queue(std::move(task));
  }
  while (!client.currentQueue().empty())
    kiv::DispatchQueue::main()->drainFor(std::chrono::milliseconds(100));
  if (round.completions != static_cast<int>(urls.size())) round.isRight = false;
  return round;
}

/// A thread whose last allocation has failed drops all tasks, also those that are queued meanwhile.
void waitForThreadsToEnd() {
  while (kiv::test::transferThreads() > 0)
    kiv::DispatchQueue::main()->drainFor(std::chrono::milliseconds(1));
}

kiv::TransferSettings settingsWith(const std::string& spool) {
  kiv::TransferSettings settings;
  settings.spoolDirectory = spool;
  settings.largestBodyInMemory = 1000;
  settings.triesPerServer = 1;
  settings.idleTime = std::chrono::seconds(0);
  return settings;
}

/// True if every round succeeded. Prints the number of rounds in which a task failed.
bool failEachInTurn(const std::string& spool, const std::vector<std::string>& urls) {
  int failed = 0;
  for (long count = 0; count < 100'000; ++count) {
    KivRESTService client(settingsWith(spool));
    client.setProgressHandler([](const KivRESTServiceProgress&) {});
    allocationsLeft = count;
    const Round round = fetch(client, urls);
    const bool isOver = allocationsLeft >= 0;
    allocationsLeft = -1;
    waitForThreadsToEnd();
    const Round next = fetch(client, urls);
    if (!round.isRight || !next.isRight || next.failures > 0) {
      std::fprintf(stderr, "Allocation %ld: %d and %d of %zu tasks ended, %d and %d failed.\n",
                   count, round.completions, next.completions, urls.size(), round.failures,
                   next.failures);
      return false;
    }
    if (round.failures > 0) ++failed;
    if (isOver) return count > 50 && failed > 0;
  }
  return false;
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 3) return 2;
  return failEachInTurn(arguments[1], {arguments + 2, arguments + count}) ? 0 : 1;
}
