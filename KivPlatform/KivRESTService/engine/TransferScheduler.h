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
#include "KivPlatform/KivRESTService/engine/AwaitedHeaders.h"
#include "KivPlatform/KivRESTService/engine/ProgressMeter.h"
#include "KivPlatform/KivRESTService/engine/TransferControls.h"
#include "KivPlatform/KivRESTService/engine/TransferJob.h"
#include "KivPlatform/KivRESTService/engine/TransferWorker.h"
#include "KivPlatform/KivRESTService/engine/WaitingDownloads.h"
#include "KivPlatform/KivRESTService/partial/BodySink.h"
#include "KivPlatform/KivRESTService/partial/SpoolDirectory.h"
#include "KivPlatform/KivRESTService/policy/HTTP2Trust.h"
#include "KivPlatform/KivRESTService/policy/HostHealth.h"
#include "KivPlatform/KivRESTService/policy/ParallelPlaces.h"
#include "KivPlatform/KivRESTService/policy/ReadSize.h"
#include "KivPlatform/KivRESTService/policy/RetryPolicy.h"
#include "KivPlatform/KivRESTService/policy/SpeedPolicy.h"
#include "KivPlatform/KivRESTService/policy/TransferPlan.h"
#include "KivPlatform/KivRESTService/policy/TransferSettings.h"

namespace kiv {

struct Download;
class PendingBytes;

/// Decides what the transfer threads do: queues the jobs, starts them by priority when a slot is
/// free, retries failed ones and reports how each ended. Used by one transfer thread at a time.
///
/// libcurl gets only the transfers that run: it has no priorities, and its time-outs would include
/// the time in its own queue.
class TransferScheduler {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /// The number of workers for the settings.
  static std::size_t workerCount(const TransferSettings& settings) noexcept;

  using StartQuestionHandler = std::function<void(std::vector<StartQuestion> questions)>;
  using RequestQuestionHandler = std::function<void(const std::vector<RequestQuestion>& questions)>;

  /// The handlers and `pendingBytes` must outlive the scheduler.
  TransferScheduler(const TransferSettings& settings, const TaskResultHandler& ended,
                    const StartQuestionHandler& asked, const RequestQuestionHandler& preparing,
                    PendingBytes& pendingBytes);
  /// No transfer may be running.
  ~TransferScheduler();
  TransferScheduler(const TransferScheduler&) = delete;
  TransferScheduler& operator=(const TransferScheduler&) = delete;

  /// Adds a job. If there is a download for the same URLs and validators, the job joins it.
  void add(TransferJob job);
  /// Drops all jobs without reporting them. Partial bodies stay in the spool directory. No transfer
  /// starts until each worker has closed the connections of its dropped transfers.
  void dropAll();
  /// Applies the latest settings of the host. To be called in each turn of a thread.
  void apply(const TransferControls& controls);
  /// Takes answers to the questions of reportQuestions(). Ignores answers for downloads that have
  /// ended.
  void take(const std::vector<StartAnswer>& answers);
  /// Takes answers to the questions of reportRequests(), and their headers.
  void take(RequestAnswers& answers);
  /// Assigns free slots to the waiting jobs that are due. The worker with the fewest transfers gets
  /// the next one, and of equal ones the first, so that single transfers reuse its connections.
  void startWaiting();
  /// The workers, one for each thread.
  [[nodiscard]] TransferWorker& worker(std::size_t index) noexcept { return workers_[index]; }
  /// Gives the assigned transfers of a worker whose thread cannot be started to another worker.
  void replaceWorker(std::size_t index, TransferWorker& other);
  /// True if there are no jobs.
  [[nodiscard]] bool isIdle() const noexcept;

  // --- On the worker's thread ---

  /// Ends the worker's transfers if the host has paused the client or lowered the bandwidth. They
  /// are continued later.
  void haltIfAsked(TransferWorker& worker);
  /// Starts the transfers assigned to the worker.
  void runAssigned(TransferWorker& worker);
  /// Handles the transfers that have ended: each job is tried again or ends.
  void finishEnded(TransferWorker& worker);
  /// Ends the worker's running jobs after libcurl itself has failed.
  void failRunning(TransferWorker& worker);
  /// Ends attempts that are too slow, jobs past their deadline, and attempts that have to yield
  /// their slot. To be called at least once a second.
  void endSlow(TransferWorker& worker);

  // --- Reports ---

  /// Reports the jobs that have ended. Releases the lock meanwhile, since the receiver may take
  /// long.
  void reportEnded(MutexLock& lock) KIV_UNCHECKED_LOCKING;
  /// Asks the host which transfers may start. Releases the lock meanwhile.
  void reportQuestions(MutexLock& lock) KIV_UNCHECKED_LOCKING;
  /// Asks the host for the headers of requests. Releases the lock meanwhile.
  void reportRequests(MutexLock& lock) KIV_UNCHECKED_LOCKING;
  /// When startWaiting() is next due if nothing else happens; nothing if nothing waits.
  [[nodiscard]] std::optional<Time> nextDeadline() const;

  /// When the next progress report is due; nothing if there is nothing new.
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
  TransferWorker& chooseWorker(const Download& download);
  void start(Download& download);
  void noteBegun(Download& download, Time now);
  /// Creates the download's transfer and assigns it to the worker. Returns an outcome if that
  /// fails.
  std::optional<TransferOutcome> startTransfer(Download& download, TransferWorker& worker);
  void assign(Download& download, TransferWorker& worker);
  void advance(Download& download);
  void pause(Download& download);
  [[nodiscard]] bool hasFreePlace() const noexcept;
  [[nodiscard]] bool hasFreePlaceAt(const std::string& server) const;
  [[nodiscard]] bool mayOvertakePostponed(const Download& download) const;
  bool holdsBack(Time now);
  void shareBandwidth();
  void releasePlaceAt(const std::string& server);

  void halt(TransferWorker& worker, Download& download);
  void changeBandwidth(std::int64_t former);
  void postponeDeadlines(std::chrono::steady_clock::duration time);
  [[nodiscard]] std::optional<Time> deadlineOf(const Download& download) const;
  void addDeadline(Download& download);
  void removeDeadline(Download& download);
  void ask(Download& download);
  void invalidateAnswers();
  void startAllowed(Time now);
  void releaseRefused(Time now);
  void endSuspension(Download& download, Time now);

  void askOrStart(Download& download);
  void askForRedirect(TransferWorker& worker, Download& download);
  void prepare(Download& download);
  void refuse(Download& download, const std::string& why);
  void sendPrepared(Time now);
  void startPrepared(Download& download, Time now);
  void continueAfterRedirect(Download& download);
  void haltAllPrepared();
  void haltPrepared(Download& download);
  void leavePreparation(Download& download);

  void finish(TransferWorker& worker, const TransferWorker::Ended& ended);
  void finishStreamsOf(TransferWorker& worker, long connection, bool hasStalled);
  void endSilent(TransferWorker& worker, Time now);
  void runHeld(TransferWorker& worker);
  void endHeld(TransferWorker& worker, const std::string& origin, int result);
  void failToStart(TransferWorker& worker, Download& download);
  void endAttempt(TransferWorker& worker, Download& download, AttemptResult result);
  void stopRunning(TransferWorker& worker, Download& download);
  void endAsTooSlow(TransferWorker& worker, Download& download);
  void yield(TransferWorker& worker, Download& download);
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
  [[nodiscard]] bool mayUseHTTP2(const Download& download) const;
  [[nodiscard]] std::size_t placesAt(const std::string& server) const;
  [[nodiscard]] std::size_t placesInAll() const noexcept;
  void recordRoundTrip(const Download& download, const AttemptResult& result, Time now);
  void noteHTTP2(const Download& download, const AttemptResult& result, Time now);
  void endProbe(const std::string& server, AttemptResult& result, Time now);
  [[nodiscard]] bool isLeftTo(const Download& download, const std::string& server, Time now) const;
  [[nodiscard]] std::vector<Download*> downloadsWithoutBetterServer(const std::string& server,
                                                                    Time now) const;
  void shareFailure(Download& download, const std::string& server, const AttemptResult& result,
                    Time now);

  TransferSettings settings_;  // a copy, since the bandwidth may change
  TransferControls controls_;
  Time pausedSince_{};
  const TaskResultHandler& ended_;
  const StartQuestionHandler& asked_;
  const RequestQuestionHandler& preparing_;
  PendingBytes& pendingBytes_;
  SpoolDirectory spool_;
  const std::shared_ptr<BodyBuffers> buffers_;
  HostHealth health_;
  HTTP2Trust http2Trust_;
  std::map<std::string, ParallelPlaces> places_;  // by server
  std::size_t extraSlots_ = 0;                    // the sum over places_ of those beyond the least
  RetryPolicy policy_;
  SpeedPolicy speeds_;
  BandwidthBudget budget_;
  std::optional<Time> heldBackUntil_;  // while the bandwidth limit keeps transfers from starting
  ReadSize readSize_;
  ProgressMeter meter_;
  bool isReportDue_ = false;

  std::map<std::string, std::unique_ptr<Download>> downloads_;  // all of them, by key
  TaskResults results_;                                         // not yet reported
  WaitingDownloads waiting_;
  Pauses pausing_;
  std::vector<Download*> running_;  // in the order in which they started
  std::map<std::string, std::size_t> runningPerServer_;
  std::set<std::pair<Time, Download*>> deadlines_;  // of those begun and not suspended
  std::vector<StartQuestion> questions_;            // not yet reported
  std::map<std::uint64_t, Download*> asking_;       // by downloadID()
  std::vector<Download*> allowed_;                  // by the start condition, and not started yet
  std::vector<Download*> refused_;                  // by the start condition
  bool asksAgain_ = false;                          // about refused_
  AwaitedHeaders awaitedHeaders_;
  std::vector<TransferWorker> workers_;
  std::size_t workersInUse_;  // that many of workers_, from the first on
};

}  // namespace kiv
