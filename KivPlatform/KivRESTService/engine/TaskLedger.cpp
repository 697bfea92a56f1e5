// The lock is never held while the host's code runs: completion handlers, observers, and the
// wake-up handler that async() may call. A task is taken out of the ledger before its completion
// handler is called, so the handler cannot run twice or after a cancellation.

#include "KivPlatform/KivRESTService/engine/TaskLedger.h"

#include <algorithm>
#include <exception>
#include <new>
#include <string>
#include <utility>

#include "KivPlatform/Foundation/Mutex.h"
#include "KivPlatform/Foundation/system/OperatingSystem.h"
#include "KivPlatform/KivRESTService/http/TransferErrors.h"

namespace kiv {

namespace {

constexpr std::chrono::milliseconds reportInterval{100};

}  // namespace

TaskLedger::TaskLedger(std::shared_ptr<DispatchQueue> queue,
                       std::shared_ptr<PendingBytes> pendingBytes)
    : queue_(std::move(queue)), pendingBytes_(std::move(pendingBytes)) {}

void TaskLedger::setEndObserver(EndObserver observer) {
  auto shared = observer ? std::make_shared<const EndObserver>(std::move(observer)) : nullptr;
  const MutexLock lock(mutex_);
  endObserver_.swap(shared);
}

void TaskLedger::setProgressObserver(ProgressObserver observer) {
  auto shared = observer ? std::make_shared<const ProgressObserver>(std::move(observer)) : nullptr;
  const MutexLock lock(mutex_);
  progressObserver_.swap(shared);
}

std::optional<std::uint64_t> TaskLedger::add(std::shared_ptr<KivRESTServiceTask> task) {
  const MutexLock lock(mutex_);
  if (!heldTasks_.insert(task.get()).second) return std::nullopt;
  held_.emplace(++lastID_, std::move(task));
  return lastID_;
}

TaskLedger::Tasks TaskLedger::tasks() const {
  const MutexLock lock(mutex_);
  Tasks tasks;
  tasks.reserve(held_.size());
  for (const auto& [id, task] : held_)
    tasks.push_back(task);
  return tasks;
}

std::shared_ptr<const KivRESTServiceTask> TaskLedger::task(std::uint64_t id) const {
  const MutexLock lock(mutex_);
  const auto held = held_.find(id);
  return held == held_.end() ? nullptr : held->second;
}

/// Allocates nothing, since a destructor calls it.
TaskLedger::HeldTasks TaskLedger::takeAll() noexcept {
  HeldTasks tasks;
  TaskResults dropped;
  {
    const MutexLock lock(mutex_);
    tasks.swap(held_);
    heldTasks_.clear();
    report_.reset();
    dropped.swap(ended_);
    endedBytes_ = 0;
  }
  drop(dropped);
  return tasks;
}

std::shared_ptr<KivRESTServiceTask> TaskLedger::take(std::uint64_t id) {
  const MutexLock lock(mutex_);
  auto held = held_.extract(id);
  if (!held) return nullptr;
  heldTasks_.erase(held.mapped().get());
  return std::move(held.mapped());
}

// --- Completions ---------------------------------------------------------------------------------

void TaskLedger::end(TaskResults results) {
  end(std::move(results), false);
}

void TaskLedger::endAtOnce(TaskResults results) {
  end(std::move(results), true);
}

void TaskLedger::end(TaskResults results, bool isUrgent) {
  TaskResults dropped;
  bool isDue = false;
  {
    const MutexLock lock(mutex_);
    while (!results.empty()) {
      const bool isHeld = held_.contains(results.front().id);
      if (isHeld) endedBytes_ += results.front().pendingBytes;
      TaskResults& target = isHeld ? ended_ : dropped;
      target.splice(target.end(), results, results.begin());
    }
    isUrgent_ = isUrgent_ || isUrgent;
    isDue = claimJob(std::chrono::steady_clock::now());
  }
  drop(dropped);
  if (isDue) addJob();
}

void TaskLedger::drop(const TaskResults& results) {
  for (const TaskResult& result : results)
    pendingBytes_->remove(result.pendingBytes);
}

std::optional<TaskLedger::Time> TaskLedger::addDueJobs() {
  const auto completions = addDueCompletions();
  const auto report = addDueReport();
  if (!completions || !report) return completions ? completions : report;
  return std::min(*completions, *report);
}

std::optional<TaskLedger::Time> TaskLedger::addDueCompletions() {
  {
    const MutexLock lock(mutex_);
    if (ended_.empty() || hasJob()) return std::nullopt;
    if (!claimJob(std::chrono::steady_clock::now())) return pace_.next();
  }
  addJob();
  return std::nullopt;
}

/// False in a forked child for a job of the parent: it may have been on a serial queue, whose jobs
/// the child does not have.
bool TaskLedger::hasJob() const {
  return hasJob_ && jobDepth_ == forkDepth();
}

bool TaskLedger::claimJob(Time now) {
  if (ended_.empty() || hasJob()) return false;
  const std::size_t inFlight = held_.size() - std::min(held_.size(), ended_.size());
  jobDepth_ = forkDepth();
  hasJob_ = isUrgent_ || pace_.isDue({ended_.size(), endedBytes_, inFlight}, now);
  if (hasJob_) isUrgent_ = false;
  return hasJob_;
}

void TaskLedger::addJob() {
  try {
    queue_->async([self = shared_from_this()] { self->runJob(); });
  } catch (const std::exception&) {  // out of memory
    const MutexLock lock(mutex_);
    hasJob_ = false;
    throw;
  }
}

/// A handler that throws ends the job; the queue catches and logs the exception. The next job
/// completes the other tasks.
void TaskLedger::runJob() {
  const JobStart start{std::chrono::steady_clock::now(), system::processorTimeOfThisThread()};
  bool hasMore = true;
  std::exception_ptr thrown;
  try {
    hasMore = !completeEnded(start.time + CompletionPace::longestJob);
  } catch (...) {
    thrown = std::current_exception();
  }
  // The work that the host does at the end of the job is part of its cost.
  try {
    DispatchQueue::atEndOfJob(
        [self = shared_from_this(), start, hasMore] { self->endJob(start, hasMore); });
  } catch (const std::exception&) {  // out of memory
    endJob(start, hasMore);
  }
  if (thrown) std::rethrow_exception(thrown);
}

/// False if the deadline has passed.
bool TaskLedger::completeEnded(Time deadline) {
  while (true) {
    TaskResults next;
    {
      const MutexLock lock(mutex_);
      if (ended_.empty()) return true;
      next.splice(next.end(), ended_, ended_.begin());
      endedBytes_ -= next.front().pendingBytes;
    }
    complete(next.front());
    if (std::chrono::steady_clock::now() >= deadline) return false;
  }
}

void TaskLedger::endJob(JobStart start, bool hasMore) {
  const auto processorTime = system::processorTimeOfThisThread() - start.processorTime;
  bool isDue = false;
  bool isWaiting = false;
  {
    const MutexLock lock(mutex_);
    const Time now = std::chrono::steady_clock::now();
    hasJob_ = false;
    pace_.jobEnded({now - start.time, processorTime}, now, hasMore);
    isDue = claimJob(now);
    isWaiting = !isDue && !ended_.empty();
  }
  if (isDue) addJob();
  if (isWaiting) pendingBytes_->wakeUp();  // for addDueJobs()
}

void TaskLedger::complete(TaskResult& result) {
  const PendingBytes::Removal removal(*pendingBytes_, result.pendingBytes);
  const auto task = take(result.id);
  if (!task) return;
  TransferOutcome& outcome = result.outcome;
  const auto& status = outcome.status;
  task->setResponse(status ? std::optional(HTTPResponse(*status)) : std::nullopt);
  task->setResponseError(std::move(outcome.error));
  task->setReturnedData(std::move(outcome.body));
  if (task->validators() || task->returnsValidators()) {
    task->setReturnedValidators(std::move(outcome.validators));
  }
  task->setMetrics(std::move(result.metrics));
  if (const auto observer = endObserver()) (*observer)(*task);
  // Removed from the task, so that a handler that owns its task does not leak it.
  const auto handler = task->takeCompletionHandler();
  if (handler) handler(*task);
}

void TaskLedger::failAll(KivRESTServiceErrorCode code) {
  TaskResults results;
  {
    const MutexLock lock(mutex_);
    for (const auto& [id, task] : held_) {
      // Safe to read: the host does not change the request while the client holds the task.
      const auto& request = task->request();
      const std::string url = request ? request->url.absoluteString() : std::string();
      results.push_back({id, TransferOutcome::failed(transferError(code, url)), {}, 0});
    }
  }
  end(std::move(results));
}

std::shared_ptr<const TaskLedger::EndObserver> TaskLedger::endObserver() const {
  const MutexLock lock(mutex_);
  return endObserver_;
}

// --- Progress ------------------------------------------------------------------------------------

void TaskLedger::report(ProgressReport report) {
  {
    const MutexLock lock(mutex_);
    report_ = std::move(report);
  }
  static_cast<void>(addDueReport());
}

std::optional<TaskLedger::Time> TaskLedger::addDueReport() {
  {
    const MutexLock lock(mutex_);
    if (!report_ || hasReportJob_) return std::nullopt;
    if (std::chrono::steady_clock::now() < nextReport_) return nextReport_;
    hasReportJob_ = true;
  }
  try {
    queue_->async([self = shared_from_this()] { self->showProgress(); });
  } catch (const std::exception&) {  // out of memory: the next report tries again
    const MutexLock lock(mutex_);
    hasReportJob_ = false;
  }
  return std::nullopt;
}

void TaskLedger::showProgress() {
  std::optional<ProgressReport> report;
  std::vector<std::pair<std::shared_ptr<KivRESTServiceTask>, KivRESTServiceTaskProgress>> tasks;
  std::shared_ptr<const ProgressObserver> observer;
  {
    const MutexLock lock(mutex_);
    hasReportJob_ = false;
    report.swap(report_);
    if (!report) return;
    nextReport_ = std::chrono::steady_clock::now() + reportInterval;
    observer = progressObserver_;
    for (auto& [id, progress] : report->tasks) {
      const auto held = held_.find(id);
      if (held != held_.end()) tasks.emplace_back(held->second, std::move(progress));
    }
  }
  for (auto& [task, progress] : tasks)
    task->setProgress(std::move(progress));
  if (observer) (*observer)(report->client);
}

void TaskLedger::releaseHandlers(const HeldTasks& tasks) const noexcept {
  if (tasks.empty()) return;
  const auto release = [](const HeldTasks& cancelled) {
    for (const auto& [id, task] : cancelled)
      task->setCompletionHandler(nullptr);
  };
  if (DispatchQueue::current() == queue_) return release(tasks);
  try {
    queue_->async([release, tasks] { release(tasks); });
  } catch (const std::bad_alloc&) {
    release(tasks);
  }
}

}  // namespace kiv
