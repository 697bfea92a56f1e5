#include "Benchmarks/host/QueueProbe.h"

#include <algorithm>
#include <utility>

namespace kiv::bench {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds pause{5};

double millisecondsSince(Clock::time_point begin) {
  return std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
}

}  // namespace

/// Shared with the waiting job, which may still be in the queue when the probe is gone.
struct QueueProbe::State {
  std::shared_ptr<DispatchQueue> queue;
  mutable std::mutex mutex;
  std::condition_variable changed;
  bool ended = false;
  bool waiting = false;
  Clock::time_point added;
  double longest = 0;
};

QueueProbe::QueueProbe(std::shared_ptr<DispatchQueue> queue) : state_(std::make_shared<State>()) {
  state_->queue = std::move(queue);
  thread_ = std::thread([state = state_] { run(state); });
}

QueueProbe::~QueueProbe() {
  {
    const std::lock_guard lock(state_->mutex);
    state_->ended = true;
  }
  state_->changed.notify_all();
  thread_.join();
}

double QueueProbe::longestWait() const {
  const std::lock_guard lock(state_->mutex);
  // The job that waits when the host asks counts as well.
  return state_->waiting ? std::max(state_->longest, millisecondsSince(state_->added))
                         : state_->longest;
}

void QueueProbe::run(const std::shared_ptr<State>& state) {
  std::unique_lock lock(state->mutex);
  while (!state->ended) {
    state->waiting = true;
    state->added = Clock::now();
    state->queue->async([state] {
      const std::lock_guard jobLock(state->mutex);
      state->longest = std::max(state->longest, millisecondsSince(state->added));
      state->waiting = false;
      state->changed.notify_all();
    });
    state->changed.wait(lock, [&] { return !state->waiting || state->ended; });
    state->changed.wait_for(lock, pause, [&] { return state->ended; });
  }
}

StopProbe::StopProbe(std::shared_ptr<DispatchQueue> queue, std::chrono::milliseconds delay,
                     std::function<void()> stop)
    : thread_([queue = std::move(queue), delay, stop = std::move(stop), took = took_] {
        std::this_thread::sleep_for(delay);
        queue->async([stop, took, begin = Clock::now()] {
          stop();
          *took = millisecondsSince(begin);
        });
      }) {}

StopProbe::~StopProbe() {
  thread_.join();
}

}  // namespace kiv::bench
