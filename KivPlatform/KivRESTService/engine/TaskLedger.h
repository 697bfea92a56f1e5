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
#include "KivPlatform/KivRESTService/engine/TransferJob.h"
#include "KivPlatform/KivRESTService/policy/CompletionPace.h"

namespace kiv {

/// The tasks that a client holds, until they are completed on the client's queue.
///
/// Tasks are completed in groups, each in one job of the queue, so that the host can share work
/// between them (DispatchQueue::atEndOfJob), such as a wait for the disk. See CompletionPace.
///
/// A task that has been taken out is never completed, even if the job that would complete it is
/// already on the queue. Thread-safe.
class TaskLedger : public std::enable_shared_from_this<TaskLedger> {
 public:
  using Tasks = std::vector<std::shared_ptr<KivRESTServiceTask>>;
  using HeldTasks = std::map<std::uint64_t, std::shared_ptr<KivRESTServiceTask>>;

  using EndObserver = std::function<void(const KivRESTServiceTask& task)>;
  using ProgressObserver = std::function<void(const KivRESTServiceProgress& progress)>;

  /// Tasks are completed on `queue`. Their bodies then no longer count as pending.
  TaskLedger(std::shared_ptr<DispatchQueue> queue, std::shared_ptr<PendingBytes> pendingBytes);

  /// The observer is called on the queue for each task that ends, before the task's completion. An
  /// empty one removes it.
  void setEndObserver(EndObserver observer);
  /// The observer is called on the queue with the latest report().
  void setProgressObserver(ProgressObserver observer);

  /// Adds the task and returns its ID. IDs increase. Nothing if the task is already held.
  std::optional<std::uint64_t> add(std::shared_ptr<KivRESTServiceTask> task);
  /// The tasks, in the order in which they were added.
  [[nodiscard]] Tasks tasks() const;
  /// The task with that ID; nullptr if it is not held.
  [[nodiscard]] std::shared_ptr<const KivRESTServiceTask> task(std::uint64_t id) const;
  /// Takes out all tasks.
  [[nodiscard]] HeldTasks takeAll() noexcept;
  using Time = CompletionPace::Time;

  /// Completes the tasks of the results on the queue, unless they have been taken out by then.
  void end(TaskResults results);
  /// The same, without waiting for more tasks. For tasks that never reached a transfer thread,
  /// since then nothing may call addDueJobs().
  void endAtOnce(TaskResults results);
  /// Adds the jobs that are due: one to complete tasks, one to show progress. Returns when it has
  /// to be called again, or nothing if nothing waits.
  std::optional<Time> addDueJobs();
  /// Ends all tasks that are held now with that error.
  void failAll(KivRESTServiceErrorCode code);

  /// Updates the tasks' progress on the queue and calls the progress observer there, with the
  /// latest report only, and at most ten times a second, even if the queue was busy in between.
  void report(ProgressReport report);

  /// Releases the completion handlers of tasks that were taken out, on the queue: at once if this
  /// runs on it, otherwise by a job. Without memory for a job they are released here.
  void releaseHandlers(const HeldTasks& tasks) const noexcept;

 private:
  void end(TaskResults results, bool isUrgent);
  /// True if the caller has to call addJob() now, after unlocking.
  [[nodiscard]] bool claimJob(Time now) KIV_REQUIRES(mutex_);
  [[nodiscard]] bool hasJob() const KIV_REQUIRES(mutex_);
  void addJob();
  std::optional<Time> addDueCompletions();
  std::optional<Time> addDueReport();
  void runJob();
  /// When a job began, in real time and in its thread's processor time.
  struct JobStart {
    Time time;
    Time::duration processorTime;
  };
  void endJob(JobStart start, bool hasMore);
  bool completeEnded(Time deadline);
  void complete(TaskResult& result);
  /// Removes the bodies of results that nobody needs from the pending bytes.
  void drop(const TaskResults& results);
  [[nodiscard]] std::shared_ptr<KivRESTServiceTask> take(std::uint64_t id);

  [[nodiscard]] std::shared_ptr<const EndObserver> endObserver() const;
  void showProgress();

  const std::shared_ptr<DispatchQueue> queue_;
  const std::shared_ptr<PendingBytes> pendingBytes_;

  mutable Mutex mutex_;  // not held while a job is added, which calls the host's wake-up handler
  const ForkGuard forkGuard_{mutex_, ForkGuard::Rank::tasks};
  HeldTasks held_ KIV_GUARDED_BY(mutex_);
  std::unordered_set<const KivRESTServiceTask*> heldTasks_ KIV_GUARDED_BY(mutex_);
  std::uint64_t lastID_ KIV_GUARDED_BY(mutex_) = 0;
  TaskResults ended_ KIV_GUARDED_BY(mutex_);  // still held; wait for a job
  std::int64_t endedBytes_ KIV_GUARDED_BY(mutex_) = 0;
  bool isUrgent_ KIV_GUARDED_BY(mutex_) = false;       // complete without waiting for more
  bool hasJob_ KIV_GUARDED_BY(mutex_) = false;         // on the queue
  std::uint64_t jobDepth_ KIV_GUARDED_BY(mutex_) = 0;  // the forkDepth() of that job
  CompletionPace pace_ KIV_GUARDED_BY(mutex_);
  std::shared_ptr<const EndObserver> endObserver_ KIV_GUARDED_BY(mutex_);
  std::shared_ptr<const ProgressObserver> progressObserver_ KIV_GUARDED_BY(mutex_);
  std::optional<ProgressReport> report_ KIV_GUARDED_BY(mutex_);  // not shown yet
  bool hasReportJob_ KIV_GUARDED_BY(mutex_) = false;             // on the queue
  Time nextReport_ KIV_GUARDED_BY(mutex_){};                     // not before
};

}  // namespace kiv
