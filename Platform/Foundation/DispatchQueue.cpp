#include "Platform/Foundation/DispatchQueue.h"

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include "Platform/Foundation/MainThread.h"

namespace kiv {

/// What a queue's handle and its thread share; it outlives the handle while jobs are left.
struct DispatchQueue::State {
  enum class ServedBy { host, ownThread };

  struct Entry {
    Job job;
    const void* turn;
    std::uint64_t number;  // grows with every job
  };

  State(std::string name, ServedBy server) : label(std::move(name)), servedBy(server) {}

  /// The queue whose job runs on this thread, if any.
  static thread_local State* running;

  const std::string label;
  const ServedBy servedBy;
  std::weak_ptr<DispatchQueue> handle;
  std::thread thread;  // of a serial queue only

  std::mutex mutex;
  std::condition_variable changed;
  std::deque<Entry> jobs;
  bool stopped = false;
  std::uint64_t lastNumber = 0;

  // The turn of the job that ran last. Used only by the thread that runs the jobs.
  const void* turn = nullptr;
  std::uint64_t lastOfTurn = 0;  // no later job continues the turn
  std::vector<Job> turnEnds;

  // Held while the handler runs, so that no call of a removed handler is under way. Recursive,
  // since a handler may add a job.
  std::recursive_mutex wakeUpMutex;
  std::shared_ptr<const std::function<void()>> wakeUp;

  void add(std::vector<Job> added, const void* itsTurn);
  bool isEmpty();
  /// True where the host may run jobs here and now.
  bool letsHostRunJobs() const { return servedBy == ServedBy::host && running != this; }
  bool runNext();
  void run(Job job);
  void addTurnEnd(Job job);
  bool turnContinues();
  void endTurn();
  std::size_t drain();
  void runUntilStopped();
  void callWakeUp();
  void callWakeUpForLeftJobs();
  void serve();
};

thread_local DispatchQueue::State* DispatchQueue::State::running = nullptr;

void DispatchQueue::State::add(std::vector<Job> added, const void* itsTurn) {
  bool wasEmpty = false;
  {
    const std::lock_guard lock(mutex);
    wasEmpty = jobs.empty();
    for (Job& job : added)
      jobs.push_back({std::move(job), itsTurn, ++lastNumber});
  }
  changed.notify_one();
  if (wasEmpty) callWakeUp();
}

bool DispatchQueue::State::isEmpty() {
  const std::lock_guard lock(mutex);
  return jobs.empty();
}

bool DispatchQueue::State::runNext() {
  Entry next;
  {
    const std::lock_guard lock(mutex);
    if (jobs.empty()) return false;
    next = std::move(jobs.front());
    jobs.pop_front();
  }
  turn = next.turn;
  run(std::move(next.job));
  if (!turnEnds.empty() && !turnContinues()) endTurn();
  return true;
}

void DispatchQueue::State::run(Job job) {
  State* const outer = std::exchange(running, this);
  job();
  job = nullptr;  // what the job holds is let go of while it still counts as running
  running = outer;
}

/// Jobs that come later do not continue the turn: what waits for its end would wait for as long as
/// they keep coming.
void DispatchQueue::State::addTurnEnd(Job job) {
  if (turnEnds.empty()) {
    const std::lock_guard lock(mutex);
    lastOfTurn = lastNumber;
  }
  turnEnds.push_back(std::move(job));
}

bool DispatchQueue::State::turnContinues() {
  const std::lock_guard lock(mutex);
  const bool returnsToHost = stopped && servedBy == ServedBy::host;
  if (!turn || returnsToHost || jobs.empty()) return false;
  return jobs.front().turn == turn && jobs.front().number <= lastOfTurn;
}

void DispatchQueue::State::endTurn() {
  while (!turnEnds.empty()) {
    for (Job& job : std::exchange(turnEnds, {}))
      run(std::move(job));
  }
}

std::size_t DispatchQueue::State::drain() {
  std::size_t waiting = 0;
  {
    const std::lock_guard lock(mutex);
    waiting = jobs.size();
  }
  std::size_t ran = 0;
  while (ran < waiting && runNext())
    ++ran;
  endTurn();
  callWakeUpForLeftJobs();
  return ran;
}

void DispatchQueue::State::runUntilStopped() {
  while (true) {
    {
      std::unique_lock lock(mutex);
      changed.wait(lock, [this] { return stopped || !jobs.empty(); });
      if (std::exchange(stopped, false)) break;
    }
    runNext();
  }
  endTurn();
  callWakeUpForLeftJobs();
}

void DispatchQueue::State::callWakeUp() {
  const std::lock_guard lock(wakeUpMutex);
  // Held here too, since the handler may put another in its own place.
  if (const auto handler = wakeUp) (*handler)();
}

/// Jobs left behind, as those that came while others ran, met a queue that was not empty: nobody
/// has heard of them, nor will of any that follow.
void DispatchQueue::State::callWakeUpForLeftJobs() {
  if (!isEmpty()) callWakeUp();
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
    const auto state = std::make_shared<State>("main", State::ServedBy::host);
    std::shared_ptr<DispatchQueue> made(new DispatchQueue(state));
    state->handle = made;
    return made;
  }());
  return queue;
}

std::shared_ptr<DispatchQueue> DispatchQueue::serial(std::string label) {
  const auto state = std::make_shared<State>(std::move(label), State::ServedBy::ownThread);
  std::shared_ptr<DispatchQueue> queue(new DispatchQueue(state));
  state->handle = queue;
  try {
    state->thread = std::thread([state] { state->serve(); });
  } catch (const std::system_error&) {
    return nullptr;
  }
  return queue;
}

std::shared_ptr<DispatchQueue> DispatchQueue::ofRunningJob() {
  return State::running ? State::running->handle.lock() : nullptr;
}

std::shared_ptr<DispatchQueue> DispatchQueue::current() {
  if (State::running) return ofRunningJob();
  return isMainThread() ? main() : nullptr;
}

DispatchQueue::DispatchQueue(std::shared_ptr<State> state) : state_(std::move(state)) {}

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
  std::vector<Job> jobs;
  jobs.push_back(std::move(job));
  async(std::move(jobs));
}

void DispatchQueue::async(std::vector<Job> jobs, const void* turn) {
  std::erase(jobs, nullptr);
  if (!jobs.empty()) state_->add(std::move(jobs), turn);
}

void DispatchQueue::atEndOfTurn(Job job) {
  if (!job) return;
  if (State::running) {
    State::running->addTurnEnd(std::move(job));
  } else {
    job();
  }
}

std::size_t DispatchQueue::drain() {
  return state_->letsHostRunJobs() ? state_->drain() : 0;
}

std::size_t DispatchQueue::drainFor(std::chrono::milliseconds timeout) {
  if (!state_->letsHostRunJobs()) return 0;
  {
    std::unique_lock lock(state_->mutex);
    state_->changed.wait_for(lock, timeout, [this] { return !state_->jobs.empty(); });
  }
  return state_->drain();
}

void DispatchQueue::run() {
  if (state_->letsHostRunJobs()) state_->runUntilStopped();
}

void DispatchQueue::stop() {
  if (state_->servedBy != State::ServedBy::host) return;
  {
    const std::lock_guard lock(state_->mutex);
    state_->stopped = true;
  }
  state_->changed.notify_all();
}

void DispatchQueue::setWakeUpHandler(std::function<void()> handler) {
  if (state_->servedBy != State::ServedBy::host) return;
  std::shared_ptr<const std::function<void()>> next;
  if (handler) next = std::make_shared<const std::function<void()>>(std::move(handler));
  {
    const std::lock_guard lock(state_->wakeUpMutex);
    state_->wakeUp.swap(next);
  }
  state_->callWakeUpForLeftJobs();
}

}  // namespace kiv
