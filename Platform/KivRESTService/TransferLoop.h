#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Platform/KivRESTService/CurlHandles.h"
#include "Platform/KivRESTService/Download.h"
#include "Platform/KivRESTService/HostHealth.h"
#include "Platform/KivRESTService/KivRESTServiceSettings.h"
#include "Platform/KivRESTService/ProgressMeter.h"
#include "Platform/KivRESTService/RetryPolicy.h"
#include "Platform/KivRESTService/SpoolDirectory.h"
#include "Platform/KivRESTService/TaskResult.h"
#include "Platform/KivRESTService/TransferJob.h"
#include "Platform/KivRESTService/WaitingDownloads.h"

namespace kiv {

class Backlog;

/// Runs jobs: keeps those that wait, moves those that run, tries again those that failed, and
/// reports how each ended. Belongs to the transfer thread.
///
/// Only the transfers that run are known to libcurl, which knows no priorities and counts the time
/// that a transfer waits against its time-outs.
class TransferLoop {
 public:
  using EndHandler = std::function<void(std::uint64_t id, TaskResult result)>;
  using Time = std::chrono::steady_clock::time_point;

  /// All of them must outlive the loop.
  TransferLoop(void* multiHandle, const KivRESTServiceSettings& settings, const EndHandler& ended,
               Backlog& backlog);
  ~TransferLoop();
  TransferLoop(const TransferLoop&) = delete;
  TransferLoop& operator=(const TransferLoop&) = delete;

  /// A job for a file that is on its way already joins that download.
  void add(TransferJob job);
  /// Forgets every job and closes the connections of those that run. Nothing is reported; what has
  /// come of their bodies stays in the spool directory.
  void dropAll();
  /// Gives the free places to the jobs that wait, and for which it is time.
  void startWaiting();
  /// Moves the transfers that can be moved.
  void move();
  /// Goes on with the jobs whose transfers have ended, or reports them.
  void finishEnded();
  /// Returns when something can be moved, when the thread is woken up, or after that time.
  void wait(std::chrono::milliseconds longest);
  [[nodiscard]] bool isIdle() const noexcept { return downloads_.empty() && results_.empty(); }
  /// Reports the jobs that have ended: at once where no other transfer runs, otherwise those of
  /// some milliseconds together. Whoever is told of many at one time can store them for less.
  void reportEnded();
  /// When there will be something to do for startWaiting() or reportEnded() at the latest, whatever
  /// happens; nothing where nothing waits.
  [[nodiscard]] std::optional<Time> nextDeadline() const;

  /// When the next report of progress is due; nothing where nothing has happened since the last.
  [[nodiscard]] std::optional<Time> nextReport() const;
  ProgressReport takeReport();

 private:
  struct EndedTransfer {
    void* handle;
    int result;
  };

  void join(Download& download, const TransferJob& job);
  void endPauses(Time now);
  [[nodiscard]] bool mayStart(Download& download, Time now) const;
  [[nodiscard]] std::optional<TransferPlan::Step> nextStep(const Download& download,
                                                           Time now) const;
  void start(Download& download);
  /// What keeps the transfer from starting; nothing where it runs.
  std::optional<TransferOutcome> startTransfer(Download& download);
  bool run(Download& download);
  void advance(Download& download);
  void shareBandwidth();

  [[nodiscard]] std::vector<EndedTransfer> takeEnded();
  void finish(const EndedTransfer& ended);
  void stopRunning(Download& download);
  void noteHealth(const Download& download, const TryResult& result);
  void report(Download& download);
  void report(Download& download, TransferOutcome outcome);
  void failEverything();
  EasyHandle takeSpareHandle();

  void* const multiHandle_;
  const KivRESTServiceSettings& settings_;
  const EndHandler& ended_;
  Backlog& backlog_;
  SpoolDirectory spool_;
  HostHealth health_;
  RetryPolicy policy_;
  ProgressMeter meter_;
  bool isReportDue_ = false;

  std::map<std::string, std::unique_ptr<Download>> downloads_;  // all, by key
  std::vector<std::pair<std::uint64_t, TaskResult>> results_;   // not reported yet
  Time reportAt_{};                                             // for those
  WaitingDownloads waiting_;
  std::unordered_map<void*, Download*> running_;  // by easy handle
  std::map<std::string, std::size_t> runningPerServer_;
  std::multimap<Time, Download*> pausing_;
  std::vector<EasyHandle> spareHandles_;
};

}  // namespace kiv
