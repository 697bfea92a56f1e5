// The lock is never held while the host's code runs: completions, observers, and the wake-up
// handler that async() may call. A completion takes its task out of the ledger first, so that it
// can neither run twice nor after a cancellation.

#include "KivPlatform/KivRESTService/engine/TaskLedger.h"

#include <exception>
#include <string>
#include <utility>

#include "KivPlatform/Foundation/Mutex.h"
#include "KivPlatform/KivRESTService/http/TransferErrors.h"

namespace kiv {

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

TaskLedger::Tasks TaskLedger::takeAll() {
  const MutexLock lock(mutex_);
  Tasks tasks;
  tasks.reserve(held_.size());
  for (auto& [id, task] : held_)
    tasks.push_back(std::move(task));
  held_.clear();
  heldTasks_.clear();
  report_.reset();
  return tasks;
}

std::shared_ptr<KivRESTServiceTask> TaskLedger::take(std::uint64_t id) {
  const MutexLock lock(mutex_);
  auto held = held_.extract(id);
  if (!held) return nullptr;
  heldTasks_.erase(held.mapped().get());
  return std::move(held.mapped());
}

void TaskLedger::end(TaskResults results) {
  std::int64_t pendingBytes = 0;
  for (const auto& [id, result] : results)
    pendingBytes += result.pendingBytes;
  try {
    std::vector<DispatchQueue::Job> jobs;
    jobs.reserve(results.size());
    for (auto& ended : results)
      jobs.push_back(completionOf(ended.first, std::move(ended.second)));
    queue_->async(std::move(jobs), this);
  } catch (const std::exception&) {  // out of memory: none was added
    pendingBytes_->remove(pendingBytes);
    throw;
  }
}

DispatchQueue::Job TaskLedger::completionOf(std::uint64_t id, TaskResult result) {
  return [self = shared_from_this(), id, result = std::move(result)]() mutable {
    const std::int64_t bytes = result.pendingBytes;
    self->complete(id, std::move(result));
    self->pendingBytes_->remove(bytes);
  };
}

void TaskLedger::failAll(KivRESTServiceErrorCode code) {
  TaskResults results;
  {
    const MutexLock lock(mutex_);
    for (const auto& [id, task] : held_) {
      // The host does not change the request while the client holds the task.
      const auto& request = task->request();
      const std::string url = request ? request->url.absoluteString() : std::string();
      results.push_back({id, {TransferOutcome::failed(transferError(code, url)), {}, 0}});
    }
  }
  end(std::move(results));
}

void TaskLedger::complete(std::uint64_t id, TaskResult result) {
  const auto task = take(id);
  if (!task) return;
  const auto& status = result.outcome.status;
  task->setResponse(status ? std::optional(HTTPResponse(*status)) : std::nullopt);
  task->setResponseError(std::move(result.outcome.error));
  task->setReturnedData(std::move(result.outcome.body));
  task->setMetrics(std::move(result.metrics));
  if (const auto observer = endObserver()) (*observer)(*task);
  // Taken off the task, so that a handler that owns its task does not leak it.
  const auto handler = task->takeCompletionHandler();
  if (handler) handler(*task);
}

std::shared_ptr<const TaskLedger::EndObserver> TaskLedger::endObserver() const {
  const MutexLock lock(mutex_);
  return endObserver_;
}

void TaskLedger::report(ProgressReport report) {
  {
    const MutexLock lock(mutex_);
    const bool isOnItsWay = report_.has_value();
    report_ = std::move(report);
    if (isOnItsWay) return;
  }
  queue_->async([self = shared_from_this()] { self->showProgress(); });
}

void TaskLedger::showProgress() {
  std::optional<ProgressReport> report;
  std::vector<std::pair<std::shared_ptr<KivRESTServiceTask>, KivRESTServiceTaskProgress>> tasks;
  std::shared_ptr<const ProgressObserver> observer;
  {
    const MutexLock lock(mutex_);
    report.swap(report_);
    if (!report) return;
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

void TaskLedger::releaseHandlers(Tasks tasks) const {
  if (tasks.empty()) return;
  const auto release = [](const Tasks& cancelled) {
    for (const auto& task : cancelled)
      task->setCompletionHandler(nullptr);
  };
  if (DispatchQueue::current() == queue_) {
    release(tasks);
  } else {
    queue_->async([release, tasks = std::move(tasks)] { release(tasks); });
  }
}

}  // namespace kiv
