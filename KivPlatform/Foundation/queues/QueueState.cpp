// One lock guards the jobs, and none is held while a job or the host's wake-up handler runs. The
// handler may be set, called and removed on different threads at one time; setWakeUp() and
// callWakeUp() see to it that it is never called after its removal.

#include "KivPlatform/Foundation/queues/QueueState.h"

#include <exception>
#include <new>
#include <string_view>
#include <system_error>

#include "KivPlatform/Foundation/Mutex.h"
#include "KivPlatform/Foundation/system/SystemLog.h"

namespace kiv {

namespace {

void logException(std::string_view source, const std::string& label, const char* what) noexcept {
  try {
    SystemLog::write(std::string(source) + " of the queue \"" + label + "\" has thrown: " + what);
  } catch (const std::exception&) {  // out of memory
  }
}

/// Calls the host's code. An exception must not end the queue.
void call(const std::function<void()>& code, std::string_view source, const std::string& label) {
  try {
    code();
  } catch (const std::exception& exception) {
    logException(source, label, exception.what());
  } catch (...) {
    logException(source, label, "something that is no std::exception");
  }
}

}  // namespace

thread_local QueueState* QueueState::running = nullptr;

void QueueState::add(std::vector<Job> added, const void* itsTurn) {
  bool wasEmpty = false;
  {
    const MutexLock lock(mutex);
    wasEmpty = jobs.empty();
    append(added, itsTurn);
    // In a forked child the thread is started with the first job.
    if (servedBy == ServedBy::ownThread && server == std::thread::id() && !isClosed) startThread();
  }
  changed.notify_one();
  if (wasEmpty) callWakeUp();
}

/// Adds all or, if memory runs out, none.
void QueueState::append(std::vector<Job>& added, const void* itsTurn) {
  const std::size_t before = jobs.size();
  try {
    for (std::size_t index = 0; index < added.size(); ++index) {
      jobs.emplace_back();
      jobs.back() = {std::move(added[index]), itsTurn, ++lastNumber};
    }
  } catch (const std::exception&) {
    for (; jobs.size() > before; jobs.pop_back())
      added[jobs.size() - before - 1] = std::move(jobs.back().job);
    throw;
  }
}

bool QueueState::isEmpty() {
  const MutexLock lock(mutex);
  return jobs.empty();
}

bool QueueState::runNext() {
  Entry next;
  {
    const MutexLock lock(mutex);
    if (jobs.empty() || isClosed) return false;
    next = std::move(jobs.front());
    jobs.pop_front();
  }
  turn = next.turn;
  run(std::move(next.job));
  if (!turnEnds.empty() && !turnContinues()) endTurn();
  return true;
}

void QueueState::run(Job job) {
  QueueState* const outer = std::exchange(running, this);
  call(job, "A job", label);
  job = nullptr;  // its captures are destroyed while it still counts as running
  running = outer;
}

// --- Turns ---------------------------------------------------------------------------------------

/// Jobs that are added later do not continue the turn; otherwise it might never end.
void QueueState::addTurnEnd(Job job) {
  if (turnEnds.empty()) {
    const MutexLock lock(mutex);
    lastOfTurn = lastNumber;
  }
  turnEnds.push_back(std::move(job));
}

/// True if the next job belongs to the current turn.
bool QueueState::turnContinues() {
  const MutexLock lock(mutex);
  const bool returnsToHost = stopped && servedBy == ServedBy::host;
  if (!turn || returnsToHost || isClosed || jobs.empty()) return false;
  return jobs.front().turn == turn && jobs.front().number <= lastOfTurn;
}

void QueueState::endTurn() {
  while (!turnEnds.empty()) {
    for (Job& job : std::exchange(turnEnds, {}))
      run(std::move(job));
  }
}

// --- The host's loop -----------------------------------------------------------------------------

std::size_t QueueState::drain() {
  std::size_t waiting = 0;
  {
    const MutexLock lock(mutex);
    waiting = jobs.size();
  }
  std::size_t ran = 0;
  while (ran < waiting && runNext())
    ++ran;
  endTurn();
  callWakeUpForLeftJobs();
  return ran;
}

void QueueState::runUntilStopped() {
  while (true) {
    {
      MutexLock lock(mutex);
      while (!stopped && jobs.empty())
        lock.wait(changed);
      if (std::exchange(stopped, false)) break;
    }
    runNext();
  }
  endTurn();
  callWakeUpForLeftJobs();
}

// --- The wake-up handler -------------------------------------------------------------------------

void QueueState::setWakeUp(std::shared_ptr<const Handler> next) {
  MutexLock lock(wakeUpMutex);
  wakeUp.swap(next);
  // `next` is the former handler now.
  while (next && called == next && caller != std::this_thread::get_id())
    lock.wait(wakeUpEnded);
}

void QueueState::callWakeUp() {
  MutexLock lock(wakeUpMutex);
  isToBeCalledAgain = true;
  if (isCalling || !wakeUp) return;
  isCalling = true;
  caller = std::this_thread::get_id();
  while (std::exchange(isToBeCalledAgain, false) && wakeUp) {
    auto handler = called = wakeUp;
    lock.unlock();
    call(*handler, "The wake-up handler", label);
    lock.lock();
    called.reset();
    wakeUpEnded.notify_all();
    lock.unlock();
    handler.reset();  // this may destroy the handler, so without the lock
    lock.lock();
  }
  isCalling = false;
  caller = {};
}

/// Jobs that were added while others ran met a queue that was not empty, so the handler has not
/// been called for them.
void QueueState::callWakeUpForLeftJobs() {
  if (!isEmpty()) callWakeUp();
}

void QueueState::forgetOtherThreads() {
  // Their destructors would wait for the parent's threads.
  new (&changed) std::condition_variable;
  new (&wakeUpEnded) std::condition_variable;
  isCalling = false;
  caller = {};
  called.reset();
}

// --- Serial queues -------------------------------------------------------------------------------

bool QueueState::startThread() {
  try {
    thread = std::thread([self = shared_from_this()] { self->serve(); });
    server = thread.get_id();
  } catch (const std::system_error&) {
    return false;
  }
  return true;
}

void QueueState::serve() {
  while (true) {
    while (runNext()) {
    }
    endTurn();  // if the queue was closed in the middle of a turn
    MutexLock lock(mutex);
    while (!stopped && !isClosed && jobs.empty())
      lock.wait(changed);
    if (!isClosed && !(stopped && jobs.empty())) continue;
    hasEnded = true;
    changed.notify_all();
    return;
  }
}

void QueueState::close() {
  {
    const MutexLock lock(mutex);
    isClosed = true;
  }
  changed.notify_all();
}

void QueueState::waitForEnd(Time deadline) {
  std::thread ended;
  {
    MutexLock lock(mutex);
    if (server == std::thread::id() || server == std::this_thread::get_id()) return;
    while (!hasEnded) {
      const auto status = lock.waitUntil(changed, deadline);
      if (status == std::cv_status::timeout && !hasEnded) return;
    }
    ended.swap(thread);
  }
  // Destructors of thread-local objects run after the last job.
  if (ended.joinable()) ended.join();
}

}  // namespace kiv
