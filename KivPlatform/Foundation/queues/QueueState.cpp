// One lock guards the jobs, and none is held while a job or the host's wake-up handler runs.
// Different threads may set, call and remove the handler at the same time; setWakeUp() and
// callWakeUp() ensure that it is never called after its removal.

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

void QueueState::add(Job job) {
  bool wasEmpty = false;
  {
    const MutexLock lock(mutex);
    wasEmpty = jobs.empty();
    jobs.push_back(std::move(job));
    // In a forked child the thread is started with the first job.
    if (servedBy == ServedBy::ownThread && server == std::thread::id() && !isClosed) startThread();
  }
  changed.notify_one();
  if (wasEmpty) callWakeUp();
}

bool QueueState::isEmpty() {
  const MutexLock lock(mutex);
  return jobs.empty();
}

bool QueueState::runNext() {
  Job next;
  {
    const MutexLock lock(mutex);
    if (jobs.empty() || isClosed) return false;
    next = std::move(jobs.front());
    jobs.pop_front();
  }
  run(std::move(next));
  endJob();
  return true;
}

void QueueState::run(Job job) {
  outer = std::exchange(running, this);
  call(job, "A job", label);
  job = nullptr;  // destroys its captures while it still counts as running
  running = outer;
}

/// Each function counts as a job of the queue, and may add more.
void QueueState::endJob() {
  while (!jobEnds.empty()) {
    for (Job& function : std::exchange(jobEnds, {}))
      run(std::move(function));
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

/// When jobs were added while others ran, the queue was not empty, so the handler was not called
/// for them.
void QueueState::callWakeUpForLeftJobs() {
  if (!isEmpty()) callWakeUp();
}

void QueueState::forgetOtherThreads() {
  // Not destroyed first: their destructors would wait for the parent's threads.
  new (&changed) std::condition_variable;
  new (&wakeUpEnded) std::condition_variable;
  new (&awaitedJobEnded) std::condition_variable;
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
  awaitedJobEnded.notify_all();
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
