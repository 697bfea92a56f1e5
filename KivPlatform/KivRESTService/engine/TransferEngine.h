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
#include "KivPlatform/KivRESTService/curl/CurlLibrary.h"
#include "KivPlatform/KivRESTService/engine/PendingBytes.h"
#include "KivPlatform/KivRESTService/engine/TransferControls.h"
#include "KivPlatform/KivRESTService/engine/TransferJob.h"
#include "KivPlatform/KivRESTService/engine/TransferWorker.h"
#include "KivPlatform/KivRESTService/policy/TransferSettings.h"

namespace kiv {

class TransferScheduler;

/// The transfer threads of a client, and the requests that other threads make to them.
///
/// The first thread starts with the first job, further ones when there is more work. A thread ends
/// when it has been idle for a while, or when the jobs are cancelled. Thread-safe.
class TransferEngine {
 public:
  using ProgressHandler = std::function<void(ProgressReport report)>;
  using FailureHandler = std::function<void()>;
  using StartQuestionHandler = std::function<void(std::vector<StartQuestion> questions)>;
  using RequestQuestionHandler = std::function<void(const std::vector<RequestQuestion>& questions)>;
  /// Does what is due and returns when it wants to be called again, if it does.
  using DueHandler = std::function<std::optional<std::chrono::steady_clock::time_point>()>;

  /// The handlers are called on a transfer thread, without a lock, and not after stop() has
  /// returned: `ended` once with each job that ends; the bodies count among the pending bytes until
  /// the caller removes them. `progressed` at most ten times a second, if progress was asked for.
  /// `failed` when memory has run out and all jobs were dropped; if it throws, it is called again.
  /// `due` whenever a thread is about to wait, and at the time that it returned. `asked` before
  /// transfers start, if there is a start condition; each question needs one answerStarts().
  /// `preparing` before requests are sent, if there is a request handler; answerRequests() answers.
  TransferEngine(TransferSettings settings, std::shared_ptr<PendingBytes> pendingBytes,
                 TaskResultHandler ended, ProgressHandler progressed, FailureHandler failed,
                 DueHandler due, StartQuestionHandler asked, RequestQuestionHandler preparing);
  /// Stops the engine. An inherited one must not be destroyed.
  ~TransferEngine();
  TransferEngine(const TransferEngine&) = delete;
  TransferEngine& operator=(const TransferEngine&) = delete;

  /// True in a forked child for an engine of the parent process: it has no threads there, and
  /// accepts no jobs.
  [[nodiscard]] bool isInherited() const noexcept { return forkDepth_ != forkDepth(); }

  /// Gives a job to the transfer threads. False if no thread can be started or the engine was
  /// stopped.
  bool add(TransferJob job);
  /// Sets KivRESTServiceSettings::spoolDirectory. No effect while a transfer thread runs.
  void setSpoolDirectory(std::string path);
  /// Turns progress reports on or off.
  void reportProgress(bool isWanted);
  /// Halts the running transfers and starts none, or continues.
  void setPaused(bool isPaused);
  [[nodiscard]] bool isPaused() const;
  /// Sets KivRESTServiceSettings::bandwidth, including that of running transfers.
  void setBandwidth(std::int64_t bytesPerSecond);
  /// Sets whether `asked` is called, and the version that answers must have from now on. Ignored
  /// unless the version is newer than the last one.
  void setStartCondition(bool isSet, std::uint64_t version);
  /// Answers questions of `asked`.
  void answerStarts(std::vector<StartAnswer> answers);
  /// Sets whether `preparing` is called; the version as above.
  void setRequestHandler(bool isSet, std::uint64_t version);
  /// Answers questions of `preparing`. Allocates nothing.
  void answerRequests(RequestAnswers answers);
  /// The host's part of the settings in use.
  [[nodiscard]] KivRESTServiceSettings settings() const;

  /// Drops all jobs and closes their connections at once. Results of jobs that have already ended
  /// may still reach the handler.
  void cancelAll();
  /// Drops all jobs, ends the threads and waits for them.
  void stop();

 private:
  using Time = std::chrono::steady_clock::time_point;
  using Lock = MutexLock;

  /// A transfer thread. The scheduler has a worker of the same number.
  struct TransferThread {
    std::thread thread;
    WorkerHandles handles;  // while the thread runs
    bool isCalled = false;  // woken up, but has not handled that yet
    Time idleUntil{};       // guarded by schedulerMutex_
  };

  // Called by any thread.
  bool startThread(std::size_t index) KIV_REQUIRES(mutex_);
  bool wakeUp(std::size_t index) KIV_REQUIRES(mutex_);
  void wakeUpAll() KIV_REQUIRES(mutex_);
  void wakeUpIfRunning(std::size_t index);
  bool wakeUpOrStart(std::size_t index);

  // Called on the transfer threads, with the scheduler locked.
  void serve(std::size_t index, const WorkerHandles& handles);
  WorkerHandles takeTurn(std::size_t index, const WorkerHandles& handles, Lock& lock)
      KIV_REQUIRES(schedulerMutex_);
  WorkerHandles recover(std::size_t index, Lock& lock) noexcept KIV_UNCHECKED_LOCKING;
  void begin(std::size_t index, const WorkerHandles& handles) KIV_REQUIRES(schedulerMutex_);
  void doWhatIsDue(std::size_t index, Lock& lock) KIV_REQUIRES(schedulerMutex_);
  void transfer(std::size_t index, Lock& lock) KIV_UNCHECKED_LOCKING;
  void takeRequests(std::size_t index) KIV_REQUIRES(schedulerMutex_);
  void callUpOthers(std::size_t self) KIV_REQUIRES(schedulerMutex_);
  [[nodiscard]] bool isBusy(std::size_t index) KIV_REQUIRES(schedulerMutex_);
  WorkerHandles leaveIfDone(std::size_t index) KIV_REQUIRES(schedulerMutex_);
  WorkerHandles leaveIfStopped(std::size_t index);
  void leave(std::size_t index) KIV_REQUIRES(schedulerMutex_);
  void reportProgress(Lock& lock) KIV_UNCHECKED_LOCKING;
  [[nodiscard]] bool progressIsWanted();
  [[nodiscard]] std::chrono::milliseconds longestWait(std::size_t index)
      KIV_REQUIRES(schedulerMutex_);
  [[nodiscard]] std::chrono::milliseconds doDue(std::chrono::milliseconds longestWait);

  TransferSettings settings_;
  const std::shared_ptr<PendingBytes> pendingBytes_;
  const TaskResultHandler ended_;
  const ProgressHandler progressed_;
  const FailureHandler failed_;
  const DueHandler due_;
  const StartQuestionHandler asked_;
  const RequestQuestionHandler preparing_;
  const std::uint64_t forkDepth_ = forkDepth();

  // Held by a transfer thread except while it waits, moves bytes or calls a handler. Other threads
  // never lock it, so they never wait for a transfer thread. Locked before mutex_.
  Mutex schedulerMutex_;
  std::unique_ptr<TransferScheduler> scheduler_ KIV_GUARDED_BY(schedulerMutex_);  // while one runs
  std::size_t serving_ KIV_GUARDED_BY(schedulerMutex_) = 0;  // threads that use it

  mutable Mutex mutex_;  // for the threads and the requests to them
  std::vector<TransferThread> threads_;
  std::vector<TransferJob> added_ KIV_GUARDED_BY(mutex_);
  std::vector<StartAnswer> answers_ KIV_GUARDED_BY(mutex_);
  RequestAnswers requestAnswers_ KIV_GUARDED_BY(mutex_);
  TransferControls controls_ KIV_GUARDED_BY(mutex_);
  bool cancelled_ KIV_GUARDED_BY(mutex_) = false;
  bool stopped_ KIV_GUARDED_BY(mutex_) = false;
  bool reportsProgress_ KIV_GUARDED_BY(mutex_) = false;

  std::optional<StopAtExit> exitHook_;
};

}  // namespace kiv
