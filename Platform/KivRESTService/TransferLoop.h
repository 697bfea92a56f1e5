#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <unordered_map>
#include <vector>

#include "Platform/KivRESTService/CurlHandles.h"
#include "Platform/KivRESTService/KivRESTServiceSettings.h"
#include "Platform/KivRESTService/TransferJob.h"
#include "Platform/KivRESTService/TransferPlan.h"
#include "Platform/KivRESTService/WaitingJobs.h"

namespace kiv {

class Transfer;

/// Runs jobs: keeps those that wait, moves those that run, and reports how each ended. Belongs to
/// the transfer thread.
///
/// Only the jobs that run are known to libcurl, which knows no priorities and counts the time that
/// a job waits against its time-outs.
class TransferLoop {
 public:
  using EndHandler = std::function<void(std::uint64_t id, TransferOutcome outcome)>;

  /// All three must outlive the loop.
  TransferLoop(void* multiHandle, const KivRESTServiceSettings& settings, const EndHandler& ended);
  ~TransferLoop();
  TransferLoop(const TransferLoop&) = delete;
  TransferLoop& operator=(const TransferLoop&) = delete;

  void add(TransferJob job) { waiting_.add(std::move(job)); }
  /// Forgets every job and closes the connections of those that run. Nothing is reported.
  void dropAll();
  /// Gives the free places to the jobs that wait.
  void startWaiting();
  /// Moves the transfers that can be moved, and reports what has ended.
  void move();
  /// Returns when something can be moved, when the thread is woken up, or after that time.
  void wait(std::chrono::milliseconds longest);
  [[nodiscard]] bool isIdle() const noexcept { return waiting_.empty() && running_.empty(); }

 private:
  /// A job that has a place.
  struct RunningJob {
    explicit RunningJob(TransferJob started);
    ~RunningJob();

    TransferJob job;
    TransferPlan plan;
    std::size_t server = 0;
    std::unique_ptr<Transfer> transfer;
  };
  struct EndedTransfer {
    void* handle;
    int result;
  };

  void start(TransferJob job);
  bool tryNextServer(RunningJob& running);
  bool startTransfer(RunningJob& running);
  bool run(const Transfer& transfer);
  void finishEnded();
  [[nodiscard]] std::vector<EndedTransfer> takeEnded();
  void finish(const EndedTransfer& ended);
  void report(RunningJob& running);
  void failEverything();
  EasyHandle takeSpareHandle();

  void* const multiHandle_;
  const KivRESTServiceSettings& settings_;
  const EndHandler& ended_;
  WaitingJobs waiting_;
  std::unordered_map<void*, std::unique_ptr<RunningJob>> running_;  // by easy handle
  std::vector<EasyHandle> spareHandles_;
};

}  // namespace kiv
