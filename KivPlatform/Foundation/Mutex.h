#pragma once

#include <condition_variable>
#include <mutex>

/// Annotations for clang's thread-safety analysis. Other compilers ignore them.
#if defined(__clang__)
#define KIV_THREAD_ANNOTATION(annotation) __attribute__((annotation))
#else
#define KIV_THREAD_ANNOTATION(annotation)
#endif

/// The object is accessed only while that lock is held.
#define KIV_GUARDED_BY(mutex) KIV_THREAD_ANNOTATION(guarded_by(mutex))
/// The caller holds that lock.
#define KIV_REQUIRES(mutex) KIV_THREAD_ANNOTATION(requires_capability(mutex))
/// The function releases its caller's lock for a while, which the analysis cannot follow.
#define KIV_UNCHECKED_LOCKING KIV_THREAD_ANNOTATION(no_thread_safety_analysis)

namespace kiv {

/// A std::mutex with annotations.
class KIV_THREAD_ANNOTATION(capability("mutex")) Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void lock() KIV_THREAD_ANNOTATION(acquire_capability()) { mutex_.lock(); }
  void unlock() KIV_THREAD_ANNOTATION(release_capability()) { mutex_.unlock(); }
  bool try_lock() KIV_THREAD_ANNOTATION(try_acquire_capability(true)) { return mutex_.try_lock(); }

 private:
  friend class MutexLock;
  std::mutex mutex_;
};

/// Holds a mutex until the end of the scope; it can be unlocked in between.
class KIV_THREAD_ANNOTATION(scoped_lockable) MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) KIV_THREAD_ANNOTATION(acquire_capability(mutex))
      : lock_(mutex.mutex_) {}
  ~MutexLock() KIV_THREAD_ANNOTATION(release_capability()) {}
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

  void lock() KIV_THREAD_ANNOTATION(acquire_capability()) { lock_.lock(); }
  void unlock() KIV_THREAD_ANNOTATION(release_capability()) { lock_.unlock(); }
  [[nodiscard]] bool ownsLock() const noexcept { return lock_.owns_lock(); }

  /// As those of std::condition_variable, with spurious wake-ups.
  void wait(std::condition_variable& condition) { condition.wait(lock_); }
  template <class Duration>
  std::cv_status waitFor(std::condition_variable& condition, const Duration& duration) {
    return condition.wait_for(lock_, duration);
  }
  template <class Time>
  std::cv_status waitUntil(std::condition_variable& condition, const Time& time) {
    return condition.wait_until(lock_, time);
  }

 private:
  std::unique_lock<std::mutex> lock_;
};

}  // namespace kiv
