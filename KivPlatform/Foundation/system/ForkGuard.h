#pragma once

#include <cstdint>

#include "KivPlatform/Foundation/Mutex.h"

namespace kiv {

/// The number of forks between the process that first used the library and this one: 0 there, 1 in
/// its children. An object created at another depth belongs to another process, and its threads do
/// not exist here.
std::uint64_t forkDepth() noexcept;

/// Keeps a mutex usable in a forked child: fork() waits until the mutex is free (pthread_atfork),
/// so that the data that it guards is consistent.
///
/// A thread locks several such mutexes in the order of their ranks, and never two of one rank. A
/// thread that creates or destroys a guard must hold none of them.
class ForkGuard {
 public:
  enum class Rank { orders, tasks, pendingBytes, exit, queues, queue, waits, log };

  ForkGuard(Mutex& mutex, Rank rank);
  ~ForkGuard();
  ForkGuard(const ForkGuard&) = delete;
  ForkGuard& operator=(const ForkGuard&) = delete;

 private:
  Mutex& mutex_;
  const Rank rank_;
};

/// Registers a function that is called in every forked child before anything else of the library.
void callInForkedChildren(void (*function)());

}  // namespace kiv
