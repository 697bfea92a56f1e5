#include "KivPlatform/Foundation/queues/SerialQueues.h"

#include <algorithm>
#include <cstdlib>

#include "KivPlatform/Foundation/queues/DispatchQueueState.h"
#include "KivPlatform/Foundation/values/JSON.h"

namespace kiv {

std::atomic<bool> DispatchQueue::SerialQueues::areUsed_ = false;

DispatchQueue::SerialQueues& DispatchQueue::SerialQueues::shared() {
  // Never destroyed: queues may come and go while the process exits.
  static auto& queues = *new SerialQueues;
  return queues;
}

DispatchQueue::SerialQueues::SerialQueues() {
  // Handlers run last in, first out: what the JSON library makes when it is first used is to be
  // there before this one is registered, and so is destroyed after the queues have stopped.
  JSON::read("[\"\"]");
  std::atexit(&SerialQueues::stop);
  callInForkedChildren(&SerialQueues::beginAgain);
  areUsed_ = true;
}

bool stopSerialQueuesAtExit() noexcept {
  return std::atexit(&DispatchQueue::SerialQueues::stop) == 0;
}

void DispatchQueue::SerialQueues::add(const std::shared_ptr<State>& queue) {
  SerialQueues& queues = shared();
  const std::lock_guard lock(queues.mutex_);
  std::erase_if(queues.all_, [](const auto& other) { return other.expired(); });
  queues.all_.push_back(queue);
}

std::vector<std::shared_ptr<DispatchQueue::State>> DispatchQueue::SerialQueues::living() {
  const std::lock_guard lock(mutex_);
  std::vector<std::shared_ptr<State>> queues;
  for (const auto& queue : all_) {
    if (auto state = queue.lock()) queues.push_back(std::move(state));
  }
  return queues;
}

/// At the end of the process. A job that waits for the thread that ends the process must not keep
/// it from ending.
void DispatchQueue::SerialQueues::stop() {
  constexpr std::chrono::seconds longestJob{30};
  if (!areUsed_) return;
  const auto queues = shared().living();
  for (const auto& queue : queues)
    queue->close();
  const auto deadline = std::chrono::steady_clock::now() + longestJob;
  for (const auto& queue : queues)
    queue->waitForEnd(deadline);
}

/// In a child of fork. What was there is the parent's: its jobs run there, and what they hold must
/// not be let go of here.
void DispatchQueue::SerialQueues::beginAgain() {
  auto formers = shared().living();
  shared().all_.clear();
  for (auto& former : formers) {
    const auto handle = former->handle.lock();
    if (!handle) continue;
    handle->state_ = std::make_shared<State>(former->label, State::ServedBy::ownThread);
    handle->state_->handle = handle;
    add(handle->state_);
    shared().ofParent_.push_back(std::move(former));
  }
}

}  // namespace kiv
