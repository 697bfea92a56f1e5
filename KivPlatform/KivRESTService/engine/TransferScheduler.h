#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "KivPlatform/Foundation/Mutex.h"
#include "KivPlatform/KivRESTService/KivRESTServiceSettings.h"
#include "KivPlatform/KivRESTService/engine/Download.h"
#include "KivPlatform/KivRESTService/engine/ProgressMeter.h"
#include "KivPlatform/KivRESTService/engine/TaskResult.h"
#include "KivPlatform/KivRESTService/engine/TransferWorker.h"
#include "KivPlatform/KivRESTService/engine/WaitingDownloads.h"
#include "KivPlatform/KivRESTService/partial/BodyBuffers.h"
#include "KivPlatform/KivRESTService/partial/SpoolDirectory.h"
#include "KivPlatform/KivRESTService/policy/BandwidthBudget.h"
#include "KivPlatform/KivRESTService/policy/HostHealth.h"
#include "KivPlatform/KivRESTService/policy/ReadSize.h"
#include "KivPlatform/KivRESTService/policy/RetryPolicy.h"
#include "KivPlatform/KivRESTService/policy/SpeedPolicy.h"
#include "KivPlatform/KivRESTService/policy/TransferJob.h"

namespace kiv {

class PendingBytes;

/// Decides what the transfer threads do: keeps the jobs that wait, gives each free place to the
/// best of them, tries again those that failed, and reports how each ended. Used by one transfer
/// thread at a time.
///
/// Only the transfers that run are known to libcurl, which knows no priorities and counts the time
/// that a transfer waits against its time-outs.
class TransferScheduler {
 public:
  using EndHandler = std::function<void(TaskResults results)>;
  using Time = std::chrono::steady_clock::time_point;

  /// How many workers there are with those settings.
  static std::size_t workerCount(const KivRESTServiceSettings& settings) noexcept;

  /// All of them must outlive the scheduler.
  TransferScheduler(const KivRESTServiceSettings& settings, const EndHandler& ended,
                    PendingBytes& pendingBytes);
  /// Nothing may run.
  ~TransferScheduler();
  TransferScheduler(const TransferScheduler&) = delete;
  TransferScheduler& operator=(const TransferScheduler&) = delete;

  /// A job for a file that is on its way already joins that download.
  void add(TransferJob job);
  /// Forgets every job. Nothing is reported; what has come of their bodies stays in the spool
  /// directory. Nothing starts until each worker has closed the connections of what ran there.
  void dropAll();
  /// Assigns the free places to jobs that wait, and for which it is time. The worker with the
  /// fewest transfers gets the next, the first one of those that are equal: what comes alone always
  /// finds the same open connections.
  void startWaiting();
  /// The workers, of which each has its thread.
  [[nodiscard]] TransferWorker& worker(std::size_t index) noexcept { return workers_[index]; }
  /// The worker has no thread, and gets none: another takes what it has been assigned.
  void replaceWorker(std::size_t index, TransferWorker& other);
  /// True where no job is left.
  [[nodiscard]] bool isIdle() const noexcept;

  // --- On the thread of the worker ---

  /// Runs what the worker has been assigned.
  void runAssigned(TransferWorker& worker);
  /// Goes on with the jobs whose transfers have ended there, or reports them.
  void finishEnded(TransferWorker& worker);
  /// Ends the jobs that run there where libcurl itself has failed.
  void failRunning(TransferWorker& worker);
  /// Ends the tries that are too slow, the jobs whose deadline has passed, and the tries that are
  /// to give way to others. To be called at least every second.
  void endSlow(TransferWorker& worker);

  // --- Reports ---

  /// Reports the jobs that have ended: at once, or, while others run, those of some milliseconds
  /// together, since storing many at a time costs less. The scheduler's lock is released meanwhile:
  /// the receiver decides how long the report takes.
  void reportEnded(MutexLock& lock) KIV_UNCHECKED_LOCKING;
  /// When there will be something to do for startWaiting() or reportEnded() at the latest, whatever
  /// happens; nothing where nothing waits.
  [[nodiscard]] std::optional<Time> nextDeadline() const;

  /// When the next report of progress is due; nothing where nothing has happened since the last.
  [[nodiscard]] std::optional<Time> nextReport() const;
  ProgressReport takeReport();

 private:
  [[nodiscard]] bool hasDropped() const noexcept;
  void join(Download& download, const TransferJob& job);
  using Pauses = std::multimap<Time, Download*>;

  void endPauses(Pauses::iterator first, Pauses::iterator last);
  [[nodiscard]] bool mayStart(Download& download, Time now) const;
  [[nodiscard]] std::optional<TransferPlan::Step> nextStep(const Download& download,
                                                           Time now) const;
  TransferWorker& leastLoadedWorker() noexcept;
  void start(Download& download);
  /// What keeps the transfer from starting; nothing where it is assigned.
  std::optional<TransferOutcome> startTransfer(Download& download, TransferWorker& worker);
  void advance(Download& download);
  void pause(Download& download);
  [[nodiscard]] bool hasFreePlace() const noexcept;
  [[nodiscard]] bool hasFreePlaceAt(const std::string& server) const;
  bool holdsBack(Time now);
  void shareBandwidth();

  void finish(TransferWorker& worker, const TransferWorker::Ended& ended);
  void endAttempt(TransferWorker& worker, Download& download, AttemptResult result);
  void stopRunning(TransferWorker& worker, Download& download);
  void endAsTooSlow(TransferWorker& worker, Download& download);
  void giveWay(TransferWorker& worker, Download& download);
  [[nodiscard]] bool isTooSlow(Download& download, Time now);
  [[nodiscard]] bool isToGiveWay(Download& download, Time now);
  [[nodiscard]] bool couldStartAfter(const Download& download, Download& waiting, Time now) const;
  [[nodiscard]] std::size_t olderThan(const Download& download, bool onItsServer) const;
  [[nodiscard]] bool isOverdue(const Download& download, Time now) const;
  void endOverdue(Time now);
  AttemptResult giveUp(Download& download);
  void conclude(Download& download, AttemptResult result);
  void report(Download& download);

  [[nodiscard]] bool isProbing(const Download& download) const;
  [[nodiscard]] bool isAnswering(const std::string& server) const;
  void noteAnswers();
  void noteReached(const std::string& server);
  void noteHealth(const Download& download, const AttemptResult& result, Time now);
  void endProbe(const std::string& server, AttemptResult& result, Time now);
  [[nodiscard]] bool isLeftTo(const Download& download, const std::string& server, Time now) const;
  [[nodiscard]] std::vector<Download*> leftTo(const std::string& server, Time now) const;
  void shareFailure(Download& download, const std::string& server, const AttemptResult& result,
                    Time now);

  const KivRESTServiceSettings& settings_;
  const EndHandler& ended_;
  PendingBytes& pendingBytes_;
  SpoolDirectory spool_;
  const std::shared_ptr<BodyBuffers> buffers_;
  HostHealth health_;
  RetryPolicy policy_;
  SpeedPolicy speeds_;
  BandwidthBudget budget_;
  std::optional<Time> heldBackUntil_;  // while nothing starts for want of bandwidth
  ReadSize readSize_;
  ProgressMeter meter_;
  bool isReportDue_ = false;

  std::map<std::string, std::unique_ptr<Download>> downloads_;  // all, by key
  TaskResults results_;                                         // not reported yet
  Time reportAt_{};                                             // not before, while others run
  WaitingDownloads waiting_;
  Pauses pausing_;
  std::vector<Download*> running_;  // in order of their beginning
  std::map<std::string, std::size_t> runningPerServer_;
  std::set<std::pair<Time, Download*>> deadlines_;  // of those that have begun
  std::vector<TransferWorker> workers_;
  std::size_t workersInUse_;  // the first ones
};

}  // namespace kiv
