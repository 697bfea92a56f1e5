#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace kiv {

/// Threads that run jobs in the order in which they come, each on the first thread that is free.
class Workers {
 public:
  using Job = std::function<void()>;

  /// Throws std::system_error, and leaves no thread behind, where one cannot be started.
  explicit Workers(std::size_t count);
  /// Stops.
  ~Workers();
  Workers(const Workers&) = delete;
  Workers& operator=(const Workers&) = delete;

  void add(Job job);
  /// Waits for the jobs that have been added. None is run afterwards.
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
