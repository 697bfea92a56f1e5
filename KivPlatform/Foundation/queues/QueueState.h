#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "KivPlatform/Foundation/Mutex.h"
#include "KivPlatform/Foundation/system/ForkGuard.h"
#include "KivPlatform/Foundation/values/Result.h"

namespace kiv {

class DispatchQueue;

struct QueueState;
/// The queues whose jobs a thread is running, innermost first. There are several if one job drains
/// another queue.
using QueueChain = std::vector<const QueueState*>;

/// The state that a DispatchQueue shares with its thread. It outlives the queue while there are
/// jobs.
struct QueueState : std::enable_shared_from_this<QueueState> {
  using Job = std::function<void()>;
  enum class ServedBy { host, ownThread };
  using Time = std::chrono::steady_clock::time_point;
  using Handler = std::function<void()>;

  QueueState(std::string name, ServedBy by) : label(std::move(name)), servedBy(by) {}

  /// The innermost queue whose job is running on this thread, or nullptr.
  static thread_local QueueState* running;

  const std::string label;
  const ServedBy servedBy;
  std::weak_ptr<DispatchQueue> handle;
  /// Gives a serial queue in a forked child a new state, without jobs and thread. Returns nullptr
  /// if the queue was released.
  std::function<std::shared_ptr<QueueState>()> renew;

  Mutex mutex;
  const ForkGuard forkGuard{mutex, ForkGuard::Rank::queue};
  // Of a serial queue; moved out to be joined.
  std::thread thread KIV_GUARDED_BY(mutex);
  std::thread::id server KIV_GUARDED_BY(mutex);  // its ID, kept after it was moved out
  std::condition_variable changed;
  std::deque<Job> jobs KIV_GUARDED_BY(mutex);
  bool stopped KIV_GUARDED_BY(mutex) = false;   // run() ends, or the thread after all jobs
  bool isClosed KIV_GUARDED_BY(mutex) = false;  // no further job may run
  bool hasEnded KIV_GUARDED_BY(mutex) = false;  // the thread runs no more jobs

  // Used only by the thread that runs the jobs.
  std::vector<Job> jobEnds;     // to run at the end of the running job
  QueueState* outer = nullptr;  // the next of the thread's QueueChain

  std::condition_variable awaitedJobEnded;

  // The handler is called without this lock, by one thread at a time. If another thread wants to
  // call it meanwhile, the first one calls it again.
  Mutex wakeUpMutex;
  const ForkGuard wakeUpForkGuard{wakeUpMutex, ForkGuard::Rank::queue};
  std::condition_variable wakeUpEnded;
  std::shared_ptr<const Handler> wakeUp KIV_GUARDED_BY(wakeUpMutex);
  std::shared_ptr<const Handler> called KIV_GUARDED_BY(wakeUpMutex);  // now
  std::thread::id caller KIV_GUARDED_BY(wakeUpMutex);
  bool isCalling KIV_GUARDED_BY(wakeUpMutex) = false;
  bool isToBeCalledAgain KIV_GUARDED_BY(wakeUpMutex) = false;

  void add(Job job);
  bool isEmpty();
  /// True if the host may run jobs now.
  bool letsHostRunJobs() const { return servedBy == ServedBy::host && running != this; }
  bool runNext();
  void run(Job job);
  void endJob();
  /// DispatchQueue::sync(), called on a thread that runs jobs of those queues.
  Status runAndWait(Job job, const QueueChain& callers);
  Status runAndWait(Job job);
  struct AwaitedJob;
  void runAwaited(const std::shared_ptr<AwaitedJob>& awaited);
  void endAwaited(const std::shared_ptr<AwaitedJob>& awaited);
  std::size_t drain();
  void runUntilStopped();
  void setWakeUp(std::shared_ptr<const Handler> next);
  void callWakeUp();
  void callWakeUpForLeftJobs();
  /// Called in a forked child, which has no other threads.
  void forgetOtherThreads() KIV_UNCHECKED_LOCKING;

  // Of a serial queue:
  /// False if the system has no thread left.
  bool startThread() KIV_REQUIRES(mutex);
  void serve();
  void close();
  /// Waits until the thread has ended, at most until the deadline. Does nothing on that thread
  /// itself.
  void waitForEnd(Time deadline);
};

}  // namespace kiv
