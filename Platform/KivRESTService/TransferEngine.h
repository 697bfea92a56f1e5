#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "Platform/KivRESTService/Backlog.h"
#include "Platform/KivRESTService/CurlLibrary.h"
#include "Platform/KivRESTService/KivRESTServiceSettings.h"
#include "Platform/KivRESTService/TransferJob.h"
#include "Platform/KivRESTService/TransferLane.h"
#include "Platform/KivRESTService/TransferScheduler.h"

namespace kiv {

/// The transfer threads of a client, and the orders that other threads give them.
///
/// The first thread starts with the first job, another when there is more to do at one time. A
/// thread goes when it has had nothing to do for a while, or when the jobs are cancelled.
/// Operations may be called from any thread.
class TransferEngine {
 public:
  using ProgressHandler = std::function<void(ProgressReport report)>;

  /// `ended` is called with every job that ends, once, and `progressed` no more than ten times a
  /// second while somebody wants to know; both on a transfer thread, on one at a time. Neither must
  /// wait for other threads that use the engine, and neither is called after stop() has returned.
  /// What `ended` is given counts in the backlog, from which the caller removes it.
  TransferEngine(KivRESTServiceSettings settings, std::shared_ptr<Backlog> backlog,
                 TransferScheduler::EndHandler ended, ProgressHandler progressed);
  /// Stops.
  ~TransferEngine();
  TransferEngine(const TransferEngine&) = delete;
  TransferEngine& operator=(const TransferEngine&) = delete;

  /// Hands a job to the transfer threads. False where there is no way to run it: no thread can be
  /// started, or the engine has stopped.
  bool add(TransferJob job);
  /// Where bodies go on their way, see KivRESTServiceSettings. Without effect while a transfer
  /// thread runs.
  void setSpoolDirectory(std::string path);
  /// Has progress reported, or no longer.
  void reportProgress(bool isWanted);
  /// As they are in use.
  [[nodiscard]] const KivRESTServiceSettings& settings() const noexcept { return settings_; }

  /// Drops every job added so far and closes their connections at once. One that has ended may be
  /// on its way to the handler.
  void cancelAll();
  /// Drops every job, ends the threads, and returns when they have ended. Nothing runs afterwards.
  void stop();

 private:
  using Time = std::chrono::steady_clock::time_point;
  using Lock = std::unique_lock<std::mutex>;

  /// A transfer thread, which serves the lane of the same number.
  struct Worker {
    std::thread thread;
    LaneHandles handles;    // there while the thread serves
    bool isCalled = false;  // woken up, and has not looked yet
    Time idleUntil{};       // under the lock of the scheduler
  };

  // What other threads ask for.
  bool startThread(std::size_t index);
  bool wakeUp(std::size_t index);
  void wakeUpAll();
  void remind(std::size_t index);
  bool callUp(std::size_t index);

  // On the transfer threads, with the scheduler locked.
  void serve(std::size_t index, const LaneHandles& handles);
  void begin(std::size_t index, const LaneHandles& handles);
  void doWhatIsDue(std::size_t index);
  void transfer(std::size_t index, Lock& lock);
  void takeOrders(std::size_t index);
  void callUpOthers(std::size_t self);
  [[nodiscard]] bool isBusy(std::size_t index);
  LaneHandles leaveIfDone(std::size_t index);
  void leave(std::size_t index);
  void reportProgress();
  [[nodiscard]] bool progressIsWanted();
  [[nodiscard]] std::chrono::milliseconds longestWait(std::size_t index);

  KivRESTServiceSettings settings_;
  const std::shared_ptr<Backlog> backlog_;
  const TransferScheduler::EndHandler ended_;
  const ProgressHandler progressed_;

  // Held by a transfer thread whenever it does not wait or move bytes, by others never: nobody
  // waits for what the threads do. Taken before the other one.
  std::mutex schedulerMutex_;
  std::optional<TransferScheduler> scheduler_;  // while a thread serves, or is about to
  std::size_t serving_ = 0;                     // threads that use it

  std::mutex mutex_;  // for all that follows, and the orders
  std::vector<Worker> workers_;
  std::vector<TransferJob> added_;
  bool cancelled_ = false;
  bool stopped_ = false;
  bool reportsProgress_ = false;

  std::optional<StopAtExit> exitHook_;
};

}  // namespace kiv
