#pragma once

#include <functional>

namespace kiv {

/// Initialises libcurl once for the process; false if it cannot be used. Thread-safe.
bool prepareCurlLibrary() noexcept;

/// Ends a thread that uses libcurl when the process exits, before the libraries that libcurl uses
/// are cleaned up. Needed because the owner of the thread may never be destroyed.
class StopAtExit {
 public:
  /// `stop` ends the thread and waits for its end.
  explicit StopAtExit(std::function<void()> stop);
  /// Waits for a running call of `stop`, which is not called afterwards.
  ~StopAtExit();
  StopAtExit(const StopAtExit&) = delete;
  StopAtExit& operator=(const StopAtExit&) = delete;

 private:
  friend struct LivingThreads;
  std::function<void()> stop_;
};

}  // namespace kiv
