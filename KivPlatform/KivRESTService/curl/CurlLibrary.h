#pragma once

#include <functional>

namespace kiv {

/// Prepares libcurl for the process, once; false where it cannot be used. May be called from any
/// thread.
bool prepareCurlLibrary() noexcept;

/// Has a thread that runs inside libcurl ended when the process exits, before the libraries that
/// libcurl stands on are taken down. The object that owns the thread may never be destroyed.
class StopAtExit {
 public:
  /// `stop` ends the thread and returns when it has ended.
  explicit StopAtExit(std::function<void()> stop);
  /// Returns when no call of `stop` is under way; none follows.
  ~StopAtExit();
  StopAtExit(const StopAtExit&) = delete;
  StopAtExit& operator=(const StopAtExit&) = delete;

 private:
  friend struct LivingThreads;
  std::function<void()> stop_;
};

}  // namespace kiv
