#pragma once

#include <cstdint>
#include <functional>
#include <utility>

#include "KivPlatform/Foundation/Mutex.h"
#include "KivPlatform/Foundation/system/ForkGuard.h"

namespace kiv {

/// Counts the bytes of received bodies that wait for the client's queue, so that the scheduler
/// starts no transfers while the queue does not keep up. Thread-safe.
class PendingBytes {
 public:
  /// `wakeUp` is called when the count falls to the bound of the last call of exceeds(), and by
  /// wakeUp(). An empty function removes it. When this returns, the former one is not running.
  void setWakeUp(std::function<void()> wakeUp) {
    const MutexLock lock(mutex_);
    wakeUp_ = std::move(wakeUp);
  }
  /// Wakes the scheduler up, since the time for which it should wait has changed.
  void wakeUp() {
    const MutexLock lock(mutex_);
    if (wakeUp_) wakeUp_();
  }
  void add(std::int64_t bytes) {
    const MutexLock lock(mutex_);
    bytes_ += bytes;
  }
  void remove(std::int64_t bytes) {
    const MutexLock lock(mutex_);
    bytes_ -= bytes;
    if (bytes_ <= bound_ && std::exchange(isAwaited_, false) && wakeUp_) wakeUp_();
  }
  /// Removes the bytes at the end of a scope.
  class Removal {
   public:
    Removal(PendingBytes& all, std::int64_t bytes) : all_(all), bytes_(bytes) {}
    Removal(const Removal&) = delete;
    Removal& operator=(const Removal&) = delete;
    ~Removal() { all_.remove(bytes_); }

   private:
    PendingBytes& all_;
    const std::int64_t bytes_;
  };
  /// True if more than `bound` bytes are pending. The wake-up function is then called once that is
  /// no longer so.
  bool exceeds(std::int64_t bound) {
    const MutexLock lock(mutex_);
    bound_ = bound;
    isAwaited_ = bytes_ > bound;
    return isAwaited_;
  }

 private:
  Mutex mutex_;
  const ForkGuard forkGuard_{mutex_, ForkGuard::Rank::pendingBytes};
  std::function<void()> wakeUp_ KIV_GUARDED_BY(mutex_);
  std::int64_t bytes_ KIV_GUARDED_BY(mutex_) = 0;
  std::int64_t bound_ KIV_GUARDED_BY(mutex_) = 0;
  bool isAwaited_ KIV_GUARDED_BY(mutex_) = false;
};

}  // namespace kiv
