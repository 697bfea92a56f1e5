// The queue's handle. The state is a separate object for two reasons: a thread may still run the
// last jobs of a queue that has been released, and a forked child gives its serial queues a new
// state.

#include "KivPlatform/Foundation/queues/DispatchQueue.h"

#include <utility>

#include "KivPlatform/Foundation/Mutex.h"
#include "KivPlatform/Foundation/queues/QueueState.h"
#include "KivPlatform/Foundation/queues/SerialQueues.h"
#include "KivPlatform/Foundation/system/ForkGuard.h"
#include "KivPlatform/Foundation/system/OperatingSystem.h"
#include "KivPlatform/Foundation/values/Result.h"

namespace kiv {

std::shared_ptr<DispatchQueue> DispatchQueue::main() {
  // Never destroyed: threads may still add jobs while the process exits.
  static auto& queue = *new std::shared_ptr<DispatchQueue>([] {
    const auto state = std::make_shared<QueueState>("main", QueueState::ServedBy::host);
    std::shared_ptr<DispatchQueue> made(new DispatchQueue(state));
    state->handle = made;
    callInForkedChildren([] { main()->state_->forgetOtherThreads(); });
    return made;
  }());
  return queue;
}

std::shared_ptr<DispatchQueue> DispatchQueue::serial(std::string label) {
  const auto state =
      std::make_shared<QueueState>(std::move(label), QueueState::ServedBy::ownThread);
  std::shared_ptr<DispatchQueue> queue(new DispatchQueue(state));
  state->handle = queue;
  state->renew = [former = std::weak_ptr(queue)]() -> std::shared_ptr<QueueState> {
    const auto handle = former.lock();
    if (!handle) return nullptr;
    const auto next =
        std::make_shared<QueueState>(handle->label(), QueueState::ServedBy::ownThread);
    next->handle = handle;
    next->renew = handle->state_->renew;
    return handle->state_ = next;
  };
  {
    const MutexLock lock(state->mutex);
    if (!state->startThread()) return nullptr;
  }
  addSerialQueue(state);
  return queue;
}

std::shared_ptr<DispatchQueue> DispatchQueue::ofRunningJob() {
  return QueueState::running ? QueueState::running->handle.lock() : nullptr;
}

std::shared_ptr<DispatchQueue> DispatchQueue::current() {
  if (QueueState::running) return ofRunningJob();
  return system::isMainThread() ? main() : nullptr;
}

DispatchQueue::DispatchQueue(std::shared_ptr<QueueState> state) : state_(std::move(state)) {}

DispatchQueue::~DispatchQueue() {
  std::thread thread;
  bool isStuck = false;
  {
    const MutexLock lock(state_->mutex);
    state_->stopped = true;
    isStuck = state_->isClosed && !state_->hasEnded;
    thread.swap(state_->thread);
  }
  if (!thread.joinable()) return;
  state_->changed.notify_all();
  if (isStuck || thread.get_id() == std::this_thread::get_id()) {
    thread.detach();
  } else {
    thread.join();
  }
}

const std::string& DispatchQueue::label() const noexcept {
  return state_->label;
}

void DispatchQueue::async(Job job) {
  if (job) state_->add(std::move(job));
}

/// The main thread counts as running a job of the main queue, which it serves.
Status DispatchQueue::sync(Job job) {
  if (!job) return {};
  QueueChain callers;
  for (const auto* queue = QueueState::running; queue; queue = queue->outer)
    callers.push_back(queue);
  if (callers.empty() && system::isMainThread()) callers.push_back(main()->state_.get());
  const auto state = state_;
  return state->runAndWait(std::move(job), callers);
}

void DispatchQueue::atEndOfJob(Job function) {
  if (!function) return;
  if (QueueState::running) {
    QueueState::running->jobEnds.push_back(std::move(function));
  } else {
    function();
  }
}

std::size_t DispatchQueue::drain() {
  return state_->letsHostRunJobs() ? state_->drain() : 0;
}

std::size_t DispatchQueue::drainFor(std::chrono::milliseconds timeout) {
  if (!state_->letsHostRunJobs()) return 0;
  {
    MutexLock lock(state_->mutex);
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (state_->jobs.empty()) {
      if (lock.waitUntil(state_->changed, deadline) == std::cv_status::timeout) break;
    }
  }
  return state_->drain();
}

void DispatchQueue::run() {
  if (state_->letsHostRunJobs()) state_->runUntilStopped();
}

void DispatchQueue::stop() {
  if (state_->servedBy != QueueState::ServedBy::host) return;
  {
    const MutexLock lock(state_->mutex);
    state_->stopped = true;
  }
  state_->changed.notify_all();
}

void DispatchQueue::setWakeUpHandler(std::function<void()> handler) {
  if (state_->servedBy != QueueState::ServedBy::host) return;
  std::shared_ptr<const std::function<void()>> next;
  if (handler) next = std::make_shared<const std::function<void()>>(std::move(handler));
  state_->setWakeUp(std::move(next));
  state_->callWakeUpForLeftJobs();
}

}  // namespace kiv
