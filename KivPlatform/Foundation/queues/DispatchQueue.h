#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "KivPlatform/Foundation/Export.h"

namespace kiv {

struct QueueState;

/// A serial queue: runs the jobs given to it one at a time, in the order in which they came.
///
/// There are two sorts. A queue from serial() has a thread of its own. The main queue belongs to
/// the host's event loop: its jobs run only if the host calls drain(), drainFor() or run(), and
/// a wake-up handler tells the loop that there is something to run. One thread at a time may run
/// them, as a rule the main thread.
///
/// async() and current() may be called from any thread. What a job throws is caught and written to
/// the system log, and the queue continues with the next job.
///
/// When the process exits, the serial queues are stopped before the libraries that the framework
/// stands on are taken down: the job that runs is finished, for half a minute at most, and those
/// that wait never run. A child of fork has a copy of the main queue with its jobs, and begins each
/// serial queue without jobs and with a thread of its own when it adds the first.
class KIV_EXPORT DispatchQueue {
 public:
  using Job = std::function<void()>;

  /// The main queue of the process. It is never destroyed.
  static std::shared_ptr<DispatchQueue> main();

  /// A new queue with its own thread, which lives until the last holder lets go of the queue; the
  /// jobs that are waiting then still run, and the release returns when they have (on the queue's
  /// own thread it returns at once, and they run after the job that let go). nullptr if the
  /// system has no thread left.
  static std::shared_ptr<DispatchQueue> serial(std::string label);

  /// The queue whose job runs now on this thread; none where no job does.
  static std::shared_ptr<DispatchQueue> ofRunningJob();

  /// The queue whose job runs now on this thread; on the main thread otherwise the main queue;
  /// on any other thread none. None also in the jobs of a queue that nobody holds any more.
  static std::shared_ptr<DispatchQueue> current();

  DispatchQueue(const DispatchQueue&) = delete;
  DispatchQueue& operator=(const DispatchQueue&) = delete;
  ~DispatchQueue();

  [[nodiscard]] const std::string& label() const noexcept;

  /// Adds a job; it runs later, never before this call has returned on the queue's own thread. An
  /// empty job is none.
  void async(Job job);
  /// Adds several jobs in their order, with none of another thread between them, and before the
  /// first of them runs. Jobs with the same `turn`, which is only compared, share a turn
  /// where they wait behind each other; a job without one has a turn of its own.
  void async(std::vector<Job> jobs, const void* turn = nullptr);

  /// Runs the job when the turn of the job that runs now on this thread ends: before a job of
  /// another turn, and before drain() or run() returns. At once where no job runs. It lets jobs
  /// share what each would do at its end, and no job of another turn sees a difference.
  static void atEndOfTurn(Job job);

  // The operations below are for the main queue; on a queue with its own thread they do nothing.
  // Nor do drain(), drainFor() and run() within a job of this queue: jobs never nest.

  /// Runs the jobs that wait now, not those that they add, and answers how many it ran.
  std::size_t drain();
  /// Waits up to `timeout` for a job, then drains.
  std::size_t drainFor(std::chrono::milliseconds timeout);
  /// Runs jobs as they come until stop() is called.
  void run();
  /// Ends run() after the job that runs now, or the next run() at once. Jobs that wait stay.
  void stop();

  /// `handler` is called each time a job comes to the empty queue, on whatever thread adds it; at
  /// the end of a drain() or run() that leaves jobs; and at once where jobs wait already. It may
  /// be called once too often, never too seldom, and on one thread at a time: where another thread
  /// is calling it, that one calls it again. No lock is held meanwhile. It should only wake the
  /// event loop, which then calls drain(). What it throws is caught and written to the system log.
  /// An empty handler removes it; when that returns, the former one is not running on any other
  /// thread.
  void setWakeUpHandler(std::function<void()> handler);

 private:
  explicit DispatchQueue(std::shared_ptr<QueueState> state);

  std::shared_ptr<QueueState> state_;
};

}  // namespace kiv
