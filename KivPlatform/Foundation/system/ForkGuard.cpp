#include "KivPlatform/Foundation/system/ForkGuard.h"

#include <atomic>
#include <pthread.h>
#include <set>
#include <utility>
#include <vector>

namespace kiv {

namespace {

std::atomic<std::uint64_t> depth = 0;

/// Never destroyed: a process may fork until its very end.
struct GuardedMutexes {
  std::mutex mutex;
  std::set<std::pair<ForkGuard::Rank, std::mutex*>> all;
  std::vector<void (*)()> calls;

  static GuardedMutexes& shared() {
    static auto& object = *new GuardedMutexes;
    return object;
  }

  GuardedMutexes() { pthread_atfork(&beforeFork, &unlockAll, &inChild); }

  static void beforeFork() {
    shared().mutex.lock();
    for (const auto& [rank, guarded] : shared().all)
      guarded->lock();
  }

  static void unlockAll() {
    for (const auto& [rank, guarded] : shared().all)
      guarded->unlock();
    shared().mutex.unlock();
  }

  static void inChild() {
    ++depth;
    unlockAll();
    for (const auto& call : shared().calls)
      call();
  }
};

}  // namespace

std::uint64_t forkDepth() noexcept {
  return depth;
}

ForkGuard::ForkGuard(std::mutex& mutex, Rank rank) : mutex_(mutex), rank_(rank) {
  const std::lock_guard lock(GuardedMutexes::shared().mutex);
  GuardedMutexes::shared().all.emplace(rank_, &mutex_);
}

ForkGuard::~ForkGuard() {
  const std::lock_guard lock(GuardedMutexes::shared().mutex);
  GuardedMutexes::shared().all.erase({rank_, &mutex_});
}

void callInForkedChildren(void (*function)()) {
  const std::lock_guard lock(GuardedMutexes::shared().mutex);
  GuardedMutexes::shared().calls.push_back(function);
}

}  // namespace kiv
