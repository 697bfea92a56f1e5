#pragma once

#include <functional>
#include <thread>

namespace tool {

/// Turns the first SIGINT and the first SIGTERM into jobs of the main queue. Repeating the same
/// signal terminates the program. At most one object may exist; the destructor restores the default
/// actions.
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
