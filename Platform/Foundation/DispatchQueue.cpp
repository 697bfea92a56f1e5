#include "Platform/Foundation/DispatchQueue.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

#include "Platform/Foundation/MainThread.h"

namespace kiv {

/// What a queue's handle and its thread share; it outlives the handle while jobs are left.
struct DispatchQueue::State {
  explicit State(std::string name) : label(std::move(name)) {}

  /// The queue whose job runs on this thread, if any.
  static thread_local State* running;

  const std::string label;
  std::weak_ptr<DispatchQueue> handle;
  std::thread thread;  // of a serial queue only

  std::mutex mutex;
  std::condition_variable changed;
  std::deque<Job> jobs;
  bool stopped = false;

  // Held while the handler runs, so that no call of a removed handler is under way. Recursive,
  // since a handler may add a job.
  std::recursive_mutex wakeUpMutex;
  std::function<void()> wakeUp;

  void add(Job job);
  bool isEmpty();
  bool runNext();
  std::size_t drain();
  void callWakeUp();
  void serve();
};

thread_local DispatchQueue::State* DispatchQueue::State::running = nullptr;

void DispatchQueue::State::add(Job job) {
  bool wasEmpty = false;
  {
    const std::lock_guard lock(mutex);
    wasEmpty = jobs.empty();
    jobs.push_back(std::move(job));
  }
  changed.notify_one();
  if (wasEmpty) callWakeUp();
}

bool DispatchQueue::State::isEmpty() {
  const std::lock_guard lock(mutex);
  return jobs.empty();
}

bool DispatchQueue::State::runNext() {
  Job job;
  {
    const std::lock_guard lock(mutex);
    if (jobs.empty()) return false;
    job = std::move(jobs.front());
    jobs.pop_front();
  }
  State* const outer = std::exchange(running, this);
  job();
  job = nullptr;  // what the job holds is let go of while it still counts as running
  running = outer;
  return true;
}

std::size_t DispatchQueue::State::drain() {
  if (running == this) return 0;
  std::size_t waiting = 0;
  {
    const std::lock_guard lock(mutex);
    waiting = jobs.size();
  }
  std::size_t ran = 0;
  while (ran < waiting && runNext())
    ++ran;
  // Jobs that were added meanwhile came to a queue that was not empty, so nobody heard of them.
  if (!isEmpty()) callWakeUp();
  return ran;
}

void DispatchQueue::State::callWakeUp() {
  const std::lock_guard lock(wakeUpMutex);
  if (wakeUp) wakeUp();
}

void DispatchQueue::State::serve() {
  while (true) {
    while (runNext()) {
    }
    std::unique_lock lock(mutex);
    changed.wait(lock, [this] { return stopped || !jobs.empty(); });
    if (stopped && jobs.empty()) return;
  }
}

std::shared_ptr<DispatchQueue> DispatchQueue::main() {
  // Never destroyed: threads may still add jobs while the process exits.
  static auto& queue = *new std::shared_ptr<DispatchQueue>([] {
    std::shared_ptr<DispatchQueue> made(new DispatchQueue("main"));
    made->state_->handle = made;
    return made;
  }());
  return queue;
}

std::shared_ptr<DispatchQueue> DispatchQueue::serial(std::string label) {
  std::shared_ptr<DispatchQueue> queue(new DispatchQueue(std::move(label)));
  queue->state_->handle = queue;
  queue->state_->thread = std::thread([state = queue->state_] { state->serve(); });
  return queue;
}

std::shared_ptr<DispatchQueue> DispatchQueue::current() {
  if (State::running) return State::running->handle.lock();
  return isMainThread() ? main() : nullptr;
}

DispatchQueue::DispatchQueue(std::string label)
    : state_(std::make_shared<State>(std::move(label))) {}

DispatchQueue::~DispatchQueue() {
  if (!state_->thread.joinable()) return;
  {
    const std::lock_guard lock(state_->mutex);
    state_->stopped = true;
  }
  state_->changed.notify_all();
  if (state_->thread.get_id() == std::this_thread::get_id()) {
    state_->thread.detach();
  } else {
    state_->thread.join();
  }
}

const std::string& DispatchQueue::label() const noexcept {
  return state_->label;
}

void DispatchQueue::async(Job job) {
  state_->add(std::move(job));
}

std::size_t DispatchQueue::drain() {
  return state_->drain();
}

std::size_t DispatchQueue::drainFor(std::chrono::milliseconds timeout) {
  {
    std::unique_lock lock(state_->mutex);
    state_->changed.wait_for(lock, timeout, [this] { return !state_->jobs.empty(); });
  }
  return state_->drain();
}

void DispatchQueue::run() {
  while (true) {
    {
      std::unique_lock lock(state_->mutex);
      state_->changed.wait(lock, [this] { return state_->stopped || !state_->jobs.empty(); });
      if (std::exchange(state_->stopped, false)) return;
    }
    if (!state_->runNext()) return;
  }
}

void DispatchQueue::stop() {
  {
    const std::lock_guard lock(state_->mutex);
    state_->stopped = true;
  }
  state_->changed.notify_all();
}

void DispatchQueue::setWakeUpHandler(std::function<void()> handler) {
  {
    const std::lock_guard lock(state_->wakeUpMutex);
    state_->wakeUp = std::move(handler);
  }
  if (!state_->isEmpty()) state_->callWakeUp();
}

}  // namespace kiv
