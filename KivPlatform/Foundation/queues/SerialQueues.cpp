// All serial queues of the process, for the two moments that concern them together: at exit, their
// threads must end before the libraries that jobs use are cleaned up, and in a forked child they
// have no threads.

#include "KivPlatform/Foundation/queues/SerialQueues.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <vector>

#include "KivPlatform/Foundation/Mutex.h"
#include "KivPlatform/Foundation/queues/QueueState.h"
#include "KivPlatform/Foundation/system/ForkGuard.h"
#include "KivPlatform/Foundation/values/JSON.h"

namespace kiv {

namespace {

class SerialQueues {
 public:
  static void add(const std::shared_ptr<QueueState>& queue);
  static void stop();

 private:
  static SerialQueues& shared();
  SerialQueues();

  static void beginAgain() KIV_UNCHECKED_LOCKING;  // a forked child has one thread
  std::vector<std::shared_ptr<QueueState>> living();

  static std::atomic<bool> areUsed_;
  Mutex mutex_;
  const ForkGuard forkGuard_{mutex_, ForkGuard::Rank::queues};
  std::vector<std::weak_ptr<QueueState>> all_ KIV_GUARDED_BY(mutex_);
  std::vector<std::shared_ptr<QueueState>> ofParent_;  // in a forked child: never destroyed
};

std::atomic<bool> SerialQueues::areUsed_ = false;

SerialQueues& SerialQueues::shared() {
  // Never destroyed: queues may be created while the process exits.
  static auto& queues = *new SerialQueues;
  return queues;
}

SerialQueues::SerialQueues() {
  // atexit handlers run in reverse order: the JSON library is initialised first, so that it is
  // cleaned up after the queues have stopped.
  static_cast<void>(JSON::read("[\"\"]"));
  std::atexit(&SerialQueues::stop);
  callInForkedChildren(&SerialQueues::beginAgain);
  areUsed_ = true;
}

void SerialQueues::add(const std::shared_ptr<QueueState>& queue) {
  SerialQueues& queues = shared();
  const MutexLock lock(queues.mutex_);
  std::erase_if(queues.all_, [](const auto& other) { return other.expired(); });
  queues.all_.push_back(queue);
}

std::vector<std::shared_ptr<QueueState>> SerialQueues::living() {
  const MutexLock lock(mutex_);
  std::vector<std::shared_ptr<QueueState>> queues;
  for (const auto& queue : all_) {
    if (auto state = queue.lock()) queues.push_back(std::move(state));
  }
  return queues;
}

/// Called at exit. The wait is bounded, since a job may be waiting for the exiting thread.
void SerialQueues::stop() {
  constexpr std::chrono::seconds longestJob{30};
  if (!areUsed_) return;
  const auto queues = shared().living();
  for (const auto& queue : queues)
    queue->close();
  const auto deadline = std::chrono::steady_clock::now() + longestJob;
  for (const auto& queue : queues)
    queue->waitForEnd(deadline);
}

/// Called in a forked child. The former states belong to the parent: its jobs run there, and what
/// they own must not be released here.
void SerialQueues::beginAgain() {
  auto formers = shared().living();
  shared().all_.clear();
  for (auto& former : formers) {
    const auto next = former->renew();
    if (!next) continue;
    add(next);
    shared().ofParent_.push_back(std::move(former));
  }
}

}  // namespace

void addSerialQueue(const std::shared_ptr<QueueState>& queue) {
  SerialQueues::add(queue);
}

bool stopSerialQueuesAtExit() noexcept {
  return std::atexit(&SerialQueues::stop) == 0;
}

}  // namespace kiv
