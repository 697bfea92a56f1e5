#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "KivPlatform/Foundation/Export.h"

namespace kiv {

class DispatchQueue;

/// A clock, and timers that add a job to a queue at a time of that clock. An interface, so that a
/// test can set the time.
class KIV_EXPORT Timers {
 public:
  /// Milliseconds since some fixed moment.
  using Time = std::chrono::milliseconds;
  using Job = std::function<void()>;

  /// A timer that is set. The destructor cancels it, but a job that is already on the queue still
  /// runs.
  class KIV_EXPORT Timer {
   public:
    Timer() = default;
    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;
    virtual ~Timer();
  };

  /// The timers of this process. The clock includes the time that the computer sleeps: a timer that
  /// became due meanwhile fires once, within half a minute after the sleep. One thread serves them;
  /// it runs while a timer is set and stops when the process exits. A forked child has timers of
  /// its own; those of the parent cannot be used there. Thread-safe.
  static std::shared_ptr<Timers> system();

  Timers() = default;
  Timers(const Timers&) = delete;
  Timers& operator=(const Timers&) = delete;
  virtual ~Timers();

  [[nodiscard]] virtual Time now() const = 0;
  /// Adds the job to the queue when that time has come, unless the queue has been released. Returns
  /// nullptr if the timer cannot be set: there is no thread, or the process exits.
  [[nodiscard]] virtual std::unique_ptr<Timer> set(Time when, std::weak_ptr<DispatchQueue> queue,
                                                   Job job) = 0;
};

}  // namespace kiv
