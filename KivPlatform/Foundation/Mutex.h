#pragma once

#include <condition_variable>
#include <mutex>

/// What clang's thread-safety analysis checks: which lock guards what, and which lock a function
/// takes for granted. Other compilers see nothing.
#if defined(__clang__)
#define KIV_THREAD_ANNOTATION(annotation) __attribute__((annotation))
#else
#define KIV_THREAD_ANNOTATION(annotation)
#endif

/// The object is looked at and changed under that lock alone.
#define KIV_GUARDED_BY(mutex) KIV_THREAD_ANNOTATION(guarded_by(mutex))
/// The caller holds that lock.
#define KIV_REQUIRES(mutex) KIV_THREAD_ANNOTATION(requires_capability(mutex))
/// The function lets go of a lock of its caller's and takes it again, which the analysis cannot
/// follow.
#define KIV_UNCHECKED_LOCKING KIV_THREAD_ANNOTATION(no_thread_safety_analysis)

namespace kiv {

/// A std::mutex that the analysis knows.
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

/// Holds a mutex to the end of the scope, but where it is let go of in between.
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

  /// Waits for the condition, without the lock meanwhile. It may return too early, as that of the
  /// standard library: the caller looks again.
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
