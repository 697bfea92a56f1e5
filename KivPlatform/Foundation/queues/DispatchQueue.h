#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "KivPlatform/Foundation/Export.h"

namespace kiv {

struct QueueState;
class Status;

/// A serial queue: runs its jobs one at a time, in the order in which they were added.
///
/// There are two kinds. A queue from serial() has its own thread. The main queue is served by the
/// host's event loop: its jobs run only when the host calls drain(), drainFor() or run(), and a
/// wake-up handler tells the loop that jobs are waiting. One thread at a time may run them, usually
/// the main thread.
///
/// async(), sync() and current() may be called from any thread. If a job throws, the exception is
/// caught and written to the system log, and the queue continues with the next job.
///
/// When the process exits, the serial queues stop before the clean-up of the libraries that the
/// framework uses: the running job may take up to 30 seconds to finish, and waiting jobs never run.
/// A forked child has a copy of the main queue with its jobs. Its serial queues start empty, each
/// with a new thread when the first job is added.
class KIV_EXPORT DispatchQueue {
 public:
  using Job = std::function<void()>;

  /// The main queue of the process. It is never destroyed.
  static std::shared_ptr<DispatchQueue> main();

  /// A new queue with its own thread, or nullptr if no thread can be created. When the last
  /// reference is released, the waiting jobs still run, and the release blocks until they have run.
  /// On the queue's own thread it does not block, and they run after the current job.
  static std::shared_ptr<DispatchQueue> serial(std::string label);

  /// The queue whose job is running on this thread, or nullptr.
  static std::shared_ptr<DispatchQueue> ofRunningJob();

  /// The queue whose job is running on this thread; otherwise, on the main thread, the main queue;
  /// on any other thread nullptr. Also nullptr in the last jobs of a queue that has been released.
  static std::shared_ptr<DispatchQueue> current();

  DispatchQueue(const DispatchQueue&) = delete;
  DispatchQueue& operator=(const DispatchQueue&) = delete;
  ~DispatchQueue();

  [[nodiscard]] const std::string& label() const noexcept;

  /// Adds a job. It never runs within this call. An empty job is ignored.
  void async(Job job);

  /// Adds a job and waits until it and everything that runs at its end have run. Rethrows what the
  /// job throws, which is not logged. An empty job is ignored.
  ///
  /// Fails at once with std::errc::resource_deadlock_would_occur if the wait would never end: in a
  /// job of this queue; in a job of another queue for which a job of this queue waits in sync(),
  /// directly or not; and for the main queue on the main thread, which serves it. Fails with
  /// std::errc::operation_canceled if the process exits, and with resource_unavailable_try_again if
  /// a forked child gets no thread for the queue. If it fails, the job never runs.
  [[nodiscard]] Status sync(Job job);

  /// Runs the function at the end of the job that is running on this thread, before the queue's
  /// next job; at once if no job is running. In this way, several operations within one job can
  /// share work, and no other job sees a difference.
  static void atEndOfJob(Job function);

  // The operations below are for the main queue; on a serial queue they do nothing. drain(),
  // drainFor() and run() do nothing within a job of this queue: jobs never nest.

  /// Runs the jobs that are waiting now, not those that they add. Returns their number.
  std::size_t drain();
  /// Waits up to `timeout` for a job, then calls drain().
  std::size_t drainFor(std::chrono::milliseconds timeout);
  /// Runs jobs until stop() is called.
  void run();
  /// Ends run() after the current job, or the next call of run() at once. Waiting jobs stay.
  void stop();

  /// The handler is called when a job is added to the empty queue, on the thread that adds it; when
  /// a drain() or run() ends and leaves jobs; and at once if jobs are waiting already. There may be
  /// superfluous calls, but none is missing. One thread at a time calls it, without a lock. It
  /// should only wake the event loop, which then calls drain(). Exceptions are caught and logged.
  /// An empty handler removes it; when this returns, the former one is not running on any other
  /// thread.
  void setWakeUpHandler(std::function<void()> handler);

 private:
  explicit DispatchQueue(std::shared_ptr<QueueState> state);

  std::shared_ptr<QueueState> state_;
};

}  // namespace kiv
