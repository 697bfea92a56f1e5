#pragma once

#include <memory>
#include <thread>

#include "KivPlatform/Foundation/queues/DispatchQueue.h"

namespace kiv {

/// Ends a program that uses an object without a lock off its queue, with a message that says what
/// to do. Checks nothing in builds with NDEBUG.
///
/// The queue is the one that was current when this was made, or the main queue where there was
/// none. The thread on which this was made may use the object, too, where it runs no other queue's
/// job: a host may drain the main queue on any thread.
class QueueAssertion {
 public:
  /// `object` is what the message calls the object: "the manager".
  explicit QueueAssertion(const char* object);

  /// To be called first in every operation of the object. `call` is the operation's own name.
  void check(const char* className, const char* call = __builtin_FUNCTION()) const;

 private:
  [[nodiscard]] bool isHere() const;

  const char* object_;
  std::weak_ptr<DispatchQueue> queue_;  // not kept alive: its release waits for its jobs
  std::thread::id thread_;
};

}  // namespace kiv
