#pragma once

#include <cstdint>

#include "KivPlatform/Foundation/Mutex.h"

namespace kiv {

/// How many forks lie between this process and the one in which the library was first used: 0
/// there, 1 in its children. What was made at another depth belongs to another process, and so do
/// the threads that served it.
std::uint64_t forkDepth() noexcept;

/// Keeps a mutex usable in a child of fork, whichever thread held it at that moment: a fork waits
/// until it is free, so that what it protects is whole, too.
///
/// A thread that holds several such mutexes has locked them in the order of their ranks, none while
/// it held another of the same rank. A guard comes and goes while its thread holds none: a fork
/// keeps it waiting until all of them are free.
class ForkGuard {
 public:
  enum class Rank { orders, tasks, pendingBytes, exit, queues, queue };

  ForkGuard(Mutex& mutex, Rank rank);
  ~ForkGuard();
  ForkGuard(const ForkGuard&) = delete;
  ForkGuard& operator=(const ForkGuard&) = delete;

 private:
  Mutex& mutex_;
  const Rank rank_;
};

/// Has that called in every child of fork, before anything else of the library runs there.
void callInForkedChildren(void (*function)());

}  // namespace kiv
