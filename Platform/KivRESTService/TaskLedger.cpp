#include "Platform/KivRESTService/TaskLedger.h"

#include <utility>

namespace kiv {

TaskLedger::TaskLedger(std::shared_ptr<DispatchQueue> queue) : queue_(std::move(queue)) {}

std::optional<std::uint64_t> TaskLedger::add(std::shared_ptr<KivRESTServiceTask> task) {
  const std::lock_guard lock(mutex_);
  if (!heldTasks_.insert(task.get()).second) return std::nullopt;
  held_.emplace(++lastID_, std::move(task));
  return lastID_;
}

TaskLedger::Tasks TaskLedger::tasks() const {
  const std::lock_guard lock(mutex_);
  Tasks tasks;
  tasks.reserve(held_.size());
  for (const auto& [id, task] : held_)
    tasks.push_back(task);
  return tasks;
}

TaskLedger::Tasks TaskLedger::takeAll() {
  const std::lock_guard lock(mutex_);
  Tasks tasks;
  tasks.reserve(held_.size());
  for (auto& [id, task] : held_)
    tasks.push_back(std::move(task));
  held_.clear();
  heldTasks_.clear();
  return tasks;
}

std::shared_ptr<KivRESTServiceTask> TaskLedger::take(std::uint64_t id) {
  const std::lock_guard lock(mutex_);
  auto held = held_.extract(id);
  if (!held) return nullptr;
  heldTasks_.erase(held.mapped().get());
  return std::move(held.mapped());
}

void TaskLedger::end(std::uint64_t id, TransferOutcome outcome) {
  queue_->async([self = shared_from_this(), id, outcome = std::move(outcome)]() mutable {
    self->complete(id, std::move(outcome));
  });
}

void TaskLedger::complete(std::uint64_t id, TransferOutcome outcome) {
  const auto task = take(id);
  if (!task) return;
  task->setResponse(outcome.response);
  task->setResponseError(std::move(outcome.error));
  task->setReturnedData(std::move(outcome.body));
  // Taken off the task, so that a handler that holds its own task does not keep it for ever.
  const auto handler = task->completionHandler();
  task->setCompletionHandler(nullptr);
  if (handler) handler(*task);
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
