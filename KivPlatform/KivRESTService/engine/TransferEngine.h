#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "KivPlatform/Foundation/Mutex.h"
#include "KivPlatform/Foundation/system/ForkGuard.h"
#include "KivPlatform/KivRESTService/KivRESTServiceSettings.h"
#include "KivPlatform/KivRESTService/curl/CurlLibrary.h"
#include "KivPlatform/KivRESTService/engine/PendingBytes.h"
#include "KivPlatform/KivRESTService/engine/TransferScheduler.h"
#include "KivPlatform/KivRESTService/engine/TransferWorker.h"
#include "KivPlatform/KivRESTService/policy/TransferJob.h"

namespace kiv {

/// The transfer threads of a client, and the orders that other threads give them.
///
/// The first thread starts with the first job, another when there is more to do at one time. A
/// thread goes when it has had nothing to do for a while, or when the jobs are cancelled.
/// Operations may be called from any thread.
class TransferEngine {
 public:
  using ProgressHandler = std::function<void(ProgressReport report)>;
  using FailureHandler = std::function<void()>;

  /// `ended` is called with every job that ends, once, and `progressed` no more than ten times a
  /// second while somebody wants to know. `failed` is called where memory has run out, and every
  /// job has been dropped; where it throws, it is called again. All of them come on a transfer
  /// thread, without a lock, and none after stop() has returned. What `ended` is given counts
  /// among the pending bytes, until the caller removes it.
  TransferEngine(KivRESTServiceSettings settings, std::shared_ptr<PendingBytes> pendingBytes,
                 TransferScheduler::EndHandler ended, ProgressHandler progressed,
                 FailureHandler failed);
  /// Stops. Not for an inherited engine, which is not to be destroyed.
  ~TransferEngine();
  TransferEngine(const TransferEngine&) = delete;
  TransferEngine& operator=(const TransferEngine&) = delete;

  /// True in a child of fork for an engine of the parent. Nothing can be ordered from it there, and
  /// there is nothing to stop.
  [[nodiscard]] bool isInherited() const noexcept { return forkDepth_ != forkDepth(); }

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
  using Lock = MutexLock;

  /// A transfer thread. The scheduler has a worker of the same number.
  struct TransferThread {
    std::thread thread;
    WorkerHandles handles;  // there while the thread serves
    bool isCalled = false;  // woken up, and has not looked yet
    Time idleUntil{};       // under the lock of the scheduler
  };

  // What other threads ask for.
  bool startThread(std::size_t index) KIV_REQUIRES(mutex_);
  bool wakeUp(std::size_t index) KIV_REQUIRES(mutex_);
  void wakeUpAll() KIV_REQUIRES(mutex_);
  void remind(std::size_t index);
  bool callUp(std::size_t index);

  // On the transfer threads, with the scheduler locked.
  void serve(std::size_t index, const WorkerHandles& handles);
  WorkerHandles takeTurn(std::size_t index, const WorkerHandles& handles, Lock& lock)
      KIV_REQUIRES(schedulerMutex_);
  WorkerHandles recover(std::size_t index, Lock& lock) noexcept KIV_UNCHECKED_LOCKING;
  void begin(std::size_t index, const WorkerHandles& handles) KIV_REQUIRES(schedulerMutex_);
  void doWhatIsDue(std::size_t index, Lock& lock) KIV_REQUIRES(schedulerMutex_);
  void transfer(std::size_t index, Lock& lock) KIV_UNCHECKED_LOCKING;
  void takeOrders(std::size_t index) KIV_REQUIRES(schedulerMutex_);
  void callUpOthers(std::size_t self) KIV_REQUIRES(schedulerMutex_);
  [[nodiscard]] bool isBusy(std::size_t index) KIV_REQUIRES(schedulerMutex_);
  WorkerHandles leaveIfDone(std::size_t index) KIV_REQUIRES(schedulerMutex_);
  WorkerHandles leaveIfStopped(std::size_t index);
  void leave(std::size_t index) KIV_REQUIRES(schedulerMutex_);
  void reportProgress(Lock& lock) KIV_UNCHECKED_LOCKING;
  [[nodiscard]] bool progressIsWanted();
  [[nodiscard]] std::chrono::milliseconds longestWait(std::size_t index)
      KIV_REQUIRES(schedulerMutex_);

  KivRESTServiceSettings settings_;
  const std::shared_ptr<PendingBytes> pendingBytes_;
  const TransferScheduler::EndHandler ended_;
  const ProgressHandler progressed_;
  const FailureHandler failed_;
  const std::uint64_t forkDepth_ = forkDepth();

  // Held by a transfer thread whenever it does not wait or move bytes, by others never: nobody
  // waits for what the threads do. Taken before the other one.
  Mutex schedulerMutex_;
  std::optional<TransferScheduler> scheduler_
      KIV_GUARDED_BY(schedulerMutex_);  // while a thread serves, or is about to
  std::size_t serving_ KIV_GUARDED_BY(schedulerMutex_) = 0;  // threads that use it

  Mutex mutex_;  // for all that follows, and the orders
  std::vector<TransferThread> threads_;
  std::vector<TransferJob> added_ KIV_GUARDED_BY(mutex_);
  bool cancelled_ KIV_GUARDED_BY(mutex_) = false;
  bool stopped_ KIV_GUARDED_BY(mutex_) = false;
  bool reportsProgress_ KIV_GUARDED_BY(mutex_) = false;

  std::optional<StopAtExit> exitHook_;
};

}  // namespace kiv
