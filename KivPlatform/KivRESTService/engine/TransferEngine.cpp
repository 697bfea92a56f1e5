// Two locks, so that a thread of the host never waits for a transfer thread: mutex_ guards what
// other threads ask for and is held only briefly; schedulerMutex_ is locked by transfer threads
// only.

#include "KivPlatform/KivRESTService/engine/TransferEngine.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "KivPlatform/Foundation/Mutex.h"
#include "KivPlatform/Foundation/system/OperatingSystem.h"
#include "KivPlatform/KivRESTService/engine/TransferScheduler.h"

namespace kiv {

using Clock = std::chrono::steady_clock;

TransferEngine::TransferEngine(TransferSettings settings,
                               std::shared_ptr<PendingBytes> pendingBytes, TaskResultHandler ended,
                               ProgressHandler progressed, FailureHandler failed, DueHandler due,
                               StartQuestionHandler asked, RequestQuestionHandler preparing)
    : settings_(std::move(settings)),
      pendingBytes_(std::move(pendingBytes)),
      ended_(std::move(ended)),
      progressed_(std::move(progressed)),
      failed_(std::move(failed)),
      due_(std::move(due)),
      asked_(std::move(asked)),
      preparing_(std::move(preparing)),
      threads_(TransferScheduler::workerCount(settings_)),
      controls_{.bandwidth = settings_.bandwidth} {
  pendingBytes_->setWakeUp([this] { wakeUpIfRunning(0); });
  exitHook_.emplace([this] { stop(); });
}

TransferEngine::~TransferEngine() {
  exitHook_.reset();
  pendingBytes_->setWakeUp(nullptr);
  stop();
}

// --- Orders --------------------------------------------------------------------------------------

void TransferEngine::setSpoolDirectory(std::string path) {
  if (isInherited()) return;
  const MutexLock lock(mutex_);
  const bool isServing =
      std::any_of(threads_.begin(), threads_.end(),
                  [](const TransferThread& state) { return static_cast<bool>(state.handles); });
  if (!isServing) settings_.spoolDirectory = std::move(path);
}

KivRESTServiceSettings TransferEngine::settings() const {
  // Without the lock: in a forked child, a thread that no longer exists may hold it.
  if (isInherited()) return settings_;
  const MutexLock lock(mutex_);
  KivRESTServiceSettings settings = settings_;
  settings.bandwidth = controls_.bandwidth;
  return settings;
}

void TransferEngine::setPaused(bool isPaused) {
  if (isInherited()) return;
  const MutexLock lock(mutex_);
  if (std::exchange(controls_.isPaused, isPaused) != isPaused) wakeUpAll();
}

bool TransferEngine::isPaused() const {
  if (isInherited()) return false;
  const MutexLock lock(mutex_);
  return controls_.isPaused;
}

void TransferEngine::setBandwidth(std::int64_t bytesPerSecond) {
  if (isInherited()) return;
  const MutexLock lock(mutex_);
  controls_.bandwidth = std::max<std::int64_t>(0, bytesPerSecond);
  wakeUpAll();
}

void TransferEngine::setStartCondition(bool isSet, std::uint64_t version) {
  if (isInherited()) return;
  const MutexLock lock(mutex_);
  if (version <= controls_.conditionVersion) return;
  controls_.hasStartCondition = isSet;
  controls_.conditionVersion = version;
  wakeUp(0);
}

void TransferEngine::answerStarts(std::vector<StartAnswer> answers) {
  if (isInherited()) return;
  const MutexLock lock(mutex_);
  if (stopped_) return;
  answers_.insert(answers_.end(), answers.begin(), answers.end());
  wakeUp(0);
}

void TransferEngine::setRequestHandler(bool isSet, std::uint64_t version) {
  if (isInherited()) return;
  const MutexLock lock(mutex_);
  if (version <= controls_.handlerVersion) return;
  controls_.hasRequestHandler = isSet;
  controls_.handlerVersion = version;
  wakeUp(0);
}

void TransferEngine::answerRequests(RequestAnswers answers) {
  if (isInherited()) return;
  const MutexLock lock(mutex_);
  if (stopped_) return;
  requestAnswers_.splice(requestAnswers_.end(), answers);
  wakeUp(0);
}

void TransferEngine::reportProgress(bool isWanted) {
  if (isInherited()) return;
  const MutexLock lock(mutex_);
  reportsProgress_ = isWanted;
  wakeUp(0);
}

bool TransferEngine::add(TransferJob job) {
  if (isInherited()) return false;
  const MutexLock lock(mutex_);
  if (stopped_) return false;
  if (!threads_.front().handles && !startThread(0)) return false;
  added_.push_back(std::move(job));
  wakeUp(0);
  return true;
}

void TransferEngine::cancelAll() {
  if (isInherited()) return;
  const MutexLock lock(mutex_);
  added_.clear();
  cancelled_ = true;
  wakeUpAll();
}

/// Allocates nothing, since destructors call it.
void TransferEngine::stop() {
  if (isInherited()) return;
  std::size_t count = 0;
  {
    const MutexLock lock(mutex_);
    stopped_ = true;
    added_.clear();
    wakeUpAll();
    count = threads_.size();
  }
  for (std::size_t index = 0; index < count; ++index) {
    std::thread thread;
    {
      const MutexLock lock(mutex_);
      thread.swap(threads_[index].thread);
    }
    if (thread.joinable()) thread.join();
  }
}

/// The join is short: a former thread that ended because it was idle takes no lock any more.
bool TransferEngine::startThread(std::size_t index) {
  TransferThread& state = threads_[index];
  if (stopped_ || !prepareCurlLibrary()) return false;
  if (state.thread.joinable()) state.thread.join();
  try {
    WorkerHandles handles{std::make_unique<MultiHandle>(), std::make_unique<WakeUpPipe>()};
    if (!handles) return false;
    // Set before the thread starts, since it reads them without this lock.
    state.handles = std::move(handles);
    state.thread = std::thread([this, index] { serve(index, threads_[index].handles); });
  } catch (const std::exception&) {  // no memory, or no thread left
    state.handles = {};
    return false;
  }
  state.isCalled = false;
  return true;
}

/// False if the thread does not run.
bool TransferEngine::wakeUp(std::size_t index) {
  TransferThread& state = threads_[index];
  if (!state.handles) return false;
  // Once is enough until the thread has reacted: a host may queue a thousand tasks at a time.
  if (!std::exchange(state.isCalled, true)) state.handles.wakeUp->wakeUp();
  return true;
}

void TransferEngine::wakeUpAll() {
  for (std::size_t index = 0; index < threads_.size(); ++index)
    wakeUp(index);
}

/// Wakes the thread up if it runs.
void TransferEngine::wakeUpIfRunning(std::size_t index) {
  if (isInherited()) return;
  const MutexLock lock(mutex_);
  wakeUp(index);
}

// --- The transfer threads ------------------------------------------------------------------------

void TransferEngine::serve(std::size_t index, const WorkerHandles& handles) {
  system::nameThisThread("KivRESTService");
  system::blockBrokenPipeSignalOnThisThread();
  // Destroyed last, without a lock, since closing the connections takes time.
  WorkerHandles owned;
  Lock lock(schedulerMutex_);
  ++serving_;
  threads_[index].idleUntil = Clock::now() + settings_.idleTime;
  while (!owned) {
    try {
      owned = takeTurn(index, handles, lock);
    } catch (const std::exception&) {  // out of memory
      owned = recover(index, lock);
    }
  }
  leave(index);
}

/// The thread's handles if it has to end now; otherwise nothing.
WorkerHandles TransferEngine::takeTurn(std::size_t index, const WorkerHandles& handles,
                                       Lock& lock) {
  begin(index, handles);
  doWhatIsDue(index, lock);
  auto owned = leaveIfDone(index);
  if (!owned) transfer(index, lock);
  return owned;
}

/// The exception may have left any job in an inconsistent state, so all are dropped.
WorkerHandles TransferEngine::recover(std::size_t index, Lock& lock) noexcept {
  constexpr std::chrono::milliseconds pause{10};
  if (!lock.ownsLock()) lock.lock();
  while (true) {
    if (auto owned = leaveIfStopped(index)) return owned;
    try {
      if (scheduler_) scheduler_->dropAll();
      lock.unlock();
      failed_();
      lock.lock();
      return {};
    } catch (const std::exception&) {
      if (lock.ownsLock()) lock.unlock();
      std::this_thread::sleep_for(pause);
      lock.lock();
    }
  }
}

void TransferEngine::begin(std::size_t index, const WorkerHandles& handles) {
  if (!scheduler_) {
    scheduler_ =
        std::make_unique<TransferScheduler>(settings_, ended_, asked_, preparing_, *pendingBytes_);
  }
  scheduler_->worker(index).open(handles);
}

void TransferEngine::doWhatIsDue(std::size_t index, Lock& lock) {
  TransferWorker& worker = scheduler_->worker(index);
  // New jobs come first, so that a free slot goes to the best of all waiting jobs.
  takeRequests(index);
  worker.releaseDropped();
  scheduler_->haltIfAsked(worker);
  scheduler_->startWaiting();
  scheduler_->runAssigned(worker);
  callUpOthers(index);
  scheduler_->reportEnded(lock);
  scheduler_->reportQuestions(lock);
  scheduler_->reportRequests(lock);
  if (isBusy(index)) threads_[index].idleUntil = Clock::now() + settings_.idleTime;
  // The first thread reports progress, and ends when all jobs are done.
  if (index > 0 && scheduler_->isIdle()) wakeUpIfRunning(0);
}

/// The lock is not held while the thread waits and moves bytes.
void TransferEngine::transfer(std::size_t index, Lock& lock) {
  TransferWorker& worker = scheduler_->worker(index);
  worker.applySpeedLimit();
  const auto longest = longestWait(index);
  lock.unlock();
  const bool succeeded = worker.wait(doDue(longest)) && worker.move();
  lock.lock();
  // Before ended transfers are handled, so that a new job for the same file shares the transfer.
  takeRequests(index);
  if (!succeeded) scheduler_->failRunning(worker);
  scheduler_->finishEnded(worker);
  scheduler_->endSlow(worker);
  reportProgress(lock);
}

void TransferEngine::takeRequests(std::size_t index) {
  std::vector<TransferJob> jobs;
  std::vector<StartAnswer> answers;
  RequestAnswers requestAnswers;
  TransferControls controls;
  bool isCancelled = false;
  {
    const MutexLock lock(mutex_);
    threads_[index].isCalled = false;
    jobs.swap(added_);
    answers.swap(answers_);
    requestAnswers.swap(requestAnswers_);
    controls = controls_;
    isCancelled = std::exchange(cancelled_, false);
  }
  if (isCancelled) {
    scheduler_->dropAll();
    for (TransferThread& state : threads_)
      state.idleUntil = Clock::now();
  }
  scheduler_->apply(controls);
  scheduler_->take(answers);
  scheduler_->take(requestAnswers);
  for (auto& job : jobs)
    scheduler_->add(std::move(job));
}

/// Wakes up the threads that have assigned or dropped transfers.
void TransferEngine::callUpOthers(std::size_t self) {
  for (std::size_t index = 0; index < threads_.size(); ++index) {
    const TransferWorker& worker = scheduler_->worker(index);
    if (index == self) continue;
    if (worker.hasAssigned()) {
      if (wakeUpOrStart(index)) continue;
      scheduler_->replaceWorker(index, scheduler_->worker(self));
      scheduler_->runAssigned(scheduler_->worker(self));
    } else if (worker.hasDropped()) {
      wakeUpIfRunning(index);
    }
  }
}

/// Wakes the thread up, or starts it; false if it cannot be started.
bool TransferEngine::wakeUpOrStart(std::size_t index) {
  const MutexLock lock(mutex_);
  return wakeUp(index) || startThread(index);
}

/// The first thread runs while there are jobs. Others may end earlier, but not while there is a
/// deadline that only they may be waiting for.
bool TransferEngine::isBusy(std::size_t index) {
  if (index == 0) return !scheduler_->isIdle();
  const TransferWorker& worker = scheduler_->worker(index);
  return worker.load() > 0 || scheduler_->nextDeadline().has_value();
}

/// The thread's handles if it has to end now; otherwise nothing.
WorkerHandles TransferEngine::leaveIfDone(std::size_t index) {
  const MutexLock lock(mutex_);
  const bool hasOrders = !added_.empty() || cancelled_;
  const bool isDone = !hasOrders && !isBusy(index) && Clock::now() >= threads_[index].idleUntil;
  if (!stopped_ && !isDone) return {};
  if (index > 0) wakeUp(0);  // this thread may have been the one that waits for `due`
  return std::exchange(threads_[index].handles, {});
}

WorkerHandles TransferEngine::leaveIfStopped(std::size_t index) {
  const MutexLock lock(mutex_);
  return stopped_ ? std::exchange(threads_[index].handles, {}) : WorkerHandles{};
}

/// Must not lock mutex_: a thread that starts the successor of this one holds it while it joins
/// this one.
void TransferEngine::leave(std::size_t index) {
  if (!scheduler_) return static_cast<void>(--serving_);
  if (isBusy(index)) scheduler_->dropAll();
  scheduler_->worker(index).close();
  // Not while there are jobs: the thread that was started for them may not run yet.
  if (--serving_ == 0 && scheduler_->isIdle()) scheduler_.reset();
}

// --- Reports -------------------------------------------------------------------------------------

bool TransferEngine::progressIsWanted() {
  const MutexLock lock(mutex_);
  return reportsProgress_;
}

void TransferEngine::reportProgress(Lock& lock) {
  if (!progressIsWanted()) return;
  const auto next = scheduler_->nextReport();
  if (!next || *next > Clock::now()) return;
  auto report = scheduler_->takeReport();
  lock.unlock();
  progressed_(std::move(report));
  lock.lock();
}

std::chrono::milliseconds TransferEngine::longestWait(std::size_t index) {
  using std::chrono::milliseconds;
  constexpr milliseconds longest{60'000};  // libcurl wakes up by itself for its own deadlines
  auto until = isBusy(index) ? Clock::now() + longest : threads_[index].idleUntil;
  if (const auto next = scheduler_->nextDeadline()) until = std::min(until, *next);
  const auto report = scheduler_->nextReport();
  if (report && progressIsWanted()) until = std::min(until, *report);
  return std::clamp(std::chrono::ceil<milliseconds>(until - Clock::now()), milliseconds{0},
                    longest);
}

/// Returns the time until more is due, at most `longestWait`.
std::chrono::milliseconds TransferEngine::doDue(std::chrono::milliseconds longestWait) {
  const auto next = due_();
  if (!next) return longestWait;
  using std::chrono::milliseconds;
  return std::clamp(std::chrono::ceil<milliseconds>(*next - Clock::now()), milliseconds{0},
                    longestWait);
}

}  // namespace kiv
