#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "Platform/Foundation/Export.h"

namespace kiv {

/// A serial queue: runs the jobs given to it one at a time, in the order in which they came.
///
/// There are two sorts. A queue from serial() has a thread of its own. The main queue belongs to
/// the host's event loop: its jobs run only where the host calls drain(), drainFor() or run(), and
/// a wake-up handler tells the loop that there is something to run.
///
/// async() and current() may be called from any thread. A job must not throw.
class KIV_EXPORT DispatchQueue {
 public:
  using Job = std::function<void()>;

  /// The main queue of the process. It is never destroyed.
  static std::shared_ptr<DispatchQueue> main();

  /// A new queue with its own thread, which lives until the last holder lets go of the queue; the
  /// jobs that are waiting then still run, and the release returns when they have (on the queue's
  /// own thread it returns at once, and they run after the job that let go).
  static std::shared_ptr<DispatchQueue> serial(std::string label);

  /// The queue whose job runs now on this thread; on the main thread otherwise the main queue;
  /// on any other thread none.
  static std::shared_ptr<DispatchQueue> current();

  DispatchQueue(const DispatchQueue&) = delete;
  DispatchQueue& operator=(const DispatchQueue&) = delete;
  ~DispatchQueue();

  [[nodiscard]] const std::string& label() const noexcept;

  /// Adds a job; it runs later, never before this call has returned on the queue's own thread.
  void async(Job job);

  /// For the main queue. Runs the jobs that wait now, not those that they add, and answers how many
  /// it ran. Called from within a job of this queue it runs nothing: jobs never nest.
  std::size_t drain();
  /// For the main queue. Waits up to `timeout` for a job, then drains.
  std::size_t drainFor(std::chrono::milliseconds timeout);
  /// For the main queue. Runs jobs as they come until stop() is called.
  void run();
  /// Ends the run() of the main queue after the job that runs now, or the next run() at once.
  void stop();

  /// For the main queue. `handler` is called, on whatever thread adds the job, each time a job
  /// comes to the empty queue, and at once where jobs wait already. It should only wake the event
  /// loop, which then calls drain(). An empty handler removes it.
  void setWakeUpHandler(std::function<void()> handler);

 private:
  struct State;
  explicit DispatchQueue(std::string label);

  std::shared_ptr<State> state_;
};

}  // namespace kiv
