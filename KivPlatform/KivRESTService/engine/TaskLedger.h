#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <unordered_set>
#include <vector>

#include "KivPlatform/Foundation/Mutex.h"
#include "KivPlatform/Foundation/queues/DispatchQueue.h"
#include "KivPlatform/Foundation/system/ForkGuard.h"
#include "KivPlatform/KivRESTService/KivRESTServiceErrors.h"
#include "KivPlatform/KivRESTService/KivRESTServiceTask.h"
#include "KivPlatform/KivRESTService/engine/PendingBytes.h"
#include "KivPlatform/KivRESTService/engine/TaskResult.h"

namespace kiv {

/// The tasks that a client holds, and their way back to the client's queue.
///
/// A task that has been taken out before its completion runs is never completed: whoever asks last
/// decides, also when the job that completes it waits on the queue already. Operations may be
/// called from any thread.
class TaskLedger : public std::enable_shared_from_this<TaskLedger> {
 public:
  using Tasks = std::vector<std::shared_ptr<KivRESTServiceTask>>;

  using EndObserver = std::function<void(const KivRESTServiceTask& task)>;
  using ProgressObserver = std::function<void(const KivRESTServiceProgress& progress)>;

  /// Tasks are completed on that queue; what its body takes of the pending bytes is given back
  /// then.
  TaskLedger(std::shared_ptr<DispatchQueue> queue, std::shared_ptr<PendingBytes> pendingBytes);

  /// Called on the queue for every task that ends, before its completion; empty for nobody.
  void setEndObserver(EndObserver observer);
  /// Called on the queue with what report() brings, the latest where several wait.
  void setProgressObserver(ProgressObserver observer);

  /// Holds the task; the number names it, and grows with every task. Nothing where the task is
  /// held already.
  std::optional<std::uint64_t> add(std::shared_ptr<KivRESTServiceTask> task);
  /// The tasks held, in order of adding.
  [[nodiscard]] Tasks tasks() const;
  /// Takes out every task.
  [[nodiscard]] Tasks takeAll();
  /// Ends the tasks of those numbers, each if it is still held when its turn on the queue has come.
  /// Those that wait there together share a turn of the queue.
  void end(TaskResults results);
  /// Ends every task that is held now and has not ended yet with that error.
  void failAll(KivRESTServiceErrorCode code);

  /// Brings the tasks' progress up to date, and the observer's, when their turn on the queue comes.
  void report(ProgressReport report);

  /// Lets go of the handlers of tasks that were taken out: now where this is the queue, otherwise
  /// on it.
  void releaseHandlers(Tasks tasks) const;

 private:
  [[nodiscard]] std::shared_ptr<KivRESTServiceTask> take(std::uint64_t id);
  [[nodiscard]] DispatchQueue::Job completionOf(std::uint64_t id, TaskResult result);
  void complete(std::uint64_t id, TaskResult result);

  [[nodiscard]] std::shared_ptr<const EndObserver> endObserver() const;
  void showProgress();

  const std::shared_ptr<DispatchQueue> queue_;
  const std::shared_ptr<PendingBytes> pendingBytes_;

  mutable Mutex mutex_;  // never held while the queue gets a job, whose wake-up is the host's
  const ForkGuard forkGuard_{mutex_, ForkGuard::Rank::tasks};
  std::map<std::uint64_t, std::shared_ptr<KivRESTServiceTask>> held_ KIV_GUARDED_BY(mutex_);
  std::unordered_set<const KivRESTServiceTask*> heldTasks_ KIV_GUARDED_BY(mutex_);
  std::uint64_t lastID_ KIV_GUARDED_BY(mutex_) = 0;
  std::shared_ptr<const EndObserver> endObserver_ KIV_GUARDED_BY(mutex_);
  std::shared_ptr<const ProgressObserver> progressObserver_ KIV_GUARDED_BY(mutex_);
  std::optional<ProgressReport> report_ KIV_GUARDED_BY(mutex_);  // that waits for the queue
};

}  // namespace kiv
