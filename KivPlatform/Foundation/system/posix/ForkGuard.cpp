// fork() copies the memory of a process but only the calling thread: a mutex that another thread
// holds stays locked in the child forever. So the registered mutexes are locked before a fork, in
// the order of their ranks, and unlocked after it on both sides.

#include "KivPlatform/Foundation/system/ForkGuard.h"

#include <atomic>
#include <pthread.h>
#include <set>
#include <utility>
#include <vector>

#include "KivPlatform/Foundation/Mutex.h"

namespace kiv {

namespace {

std::atomic<std::uint64_t> depth = 0;

/// Never destroyed: a process may fork until its very end.
struct GuardedMutexes {
  Mutex mutex;
  std::set<std::pair<ForkGuard::Rank, Mutex*>> all KIV_GUARDED_BY(mutex);
  std::vector<void (*)()> calls KIV_GUARDED_BY(mutex);

  static GuardedMutexes& shared() {
    static auto& object = *new GuardedMutexes;
    return object;
  }

  /// The depth is counted first, since the handlers of a child run in the order of their
  /// registration.
  GuardedMutexes() {
    static_cast<void>(forkDepth());
    pthread_atfork(&beforeFork, &unlockAll, &inChild);
  }

  static void beforeFork() KIV_UNCHECKED_LOCKING {
    shared().mutex.lock();
    for (const auto& [rank, guarded] : shared().all)
      guarded->lock();
  }

  static void unlockAll() KIV_UNCHECKED_LOCKING {
    for (const auto& [rank, guarded] : shared().all)
      guarded->unlock();
    shared().mutex.unlock();
  }

  static void inChild() KIV_UNCHECKED_LOCKING {
    unlockAll();
    for (const auto& call : shared().calls)
      call();
  }
};

}  // namespace

/// The first call begins to count.
std::uint64_t forkDepth() noexcept {
  [[maybe_unused]] static const int failure = pthread_atfork(nullptr, nullptr, [] { ++depth; });
  return depth;
}

ForkGuard::ForkGuard(Mutex& mutex, Rank rank) : mutex_(mutex), rank_(rank) {
  const MutexLock lock(GuardedMutexes::shared().mutex);
  GuardedMutexes::shared().all.emplace(rank_, &mutex_);
}

ForkGuard::~ForkGuard() {
  const MutexLock lock(GuardedMutexes::shared().mutex);
  GuardedMutexes::shared().all.erase({rank_, &mutex_});
}

void callInForkedChildren(void (*function)()) {
  const MutexLock lock(GuardedMutexes::shared().mutex);
  GuardedMutexes::shared().calls.push_back(function);
}

}  // namespace kiv
