#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace kiv {

/// A fixed-size thread pool. Jobs are started in the order in which they were added.
class Workers {
 public:
  using Job = std::function<void()>;

  /// Throws std::system_error if a thread cannot be started; then none is left running.
  explicit Workers(std::size_t count);
  /// Calls stop().
  ~Workers();
  Workers(const Workers&) = delete;
  Workers& operator=(const Workers&) = delete;

  void add(Job job);
  /// Waits for all jobs that were added. Jobs added later are not run.
  void stop();

 private:
  void work();

  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Job> jobs_;
  bool stopped_ = false;
  std::vector<std::thread> threads_;
};

}  // namespace kiv
