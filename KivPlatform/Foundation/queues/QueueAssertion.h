#pragma once

#include <memory>
#include <thread>

#include "KivPlatform/Foundation/queues/DispatchQueue.h"

namespace kiv {

/// Aborts with a message if an object that has no lock is used on another queue than its own.
/// Checks nothing in builds with NDEBUG.
///
/// The queue is the one that was current when this was constructed, or the main queue if there was
/// none. The constructing thread may also use the object outside of jobs, since a host may drain
/// the main queue on any thread.
class QueueAssertion {
 public:
  /// `object` is the object's name in the message, such as "the manager".
  explicit QueueAssertion(const char* object);

  /// To be called first in every operation of the object. `call` is the operation's name.
  void check(const char* className, const char* call = __builtin_FUNCTION()) const;

  /// The queue, or nullptr if it has been released.
  [[nodiscard]] std::shared_ptr<DispatchQueue> queue() const noexcept { return queue_.lock(); }

 private:
  [[nodiscard]] bool isHere() const;

  const char* object_;
  std::weak_ptr<DispatchQueue> queue_;  // not kept alive: its release waits for its jobs
  std::thread::id thread_;
};

}  // namespace kiv
