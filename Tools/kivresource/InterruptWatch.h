#pragma once

#include <functional>
#include <thread>

namespace tool {

/// Turns the first SIGINT or SIGTERM into a job of the main queue; a second one ends the program at
/// once, as if nobody watched. One at a time; what was before comes back when it goes.
class InterruptWatch {
 public:
  /// `handler` is called on the main queue with the signal's number.
  explicit InterruptWatch(std::function<void(int signal)> handler);
  ~InterruptWatch();
  InterruptWatch(const InterruptWatch&) = delete;
  InterruptWatch& operator=(const InterruptWatch&) = delete;

 private:
  std::thread thread_;
};

}  // namespace tool
