#include "KivPlatform/Foundation/system/MainThread.h"

#if defined(__linux__)

#include <sys/syscall.h>
#include <unistd.h>

bool kiv::isMainThread() noexcept {
  return syscall(SYS_gettid) == getpid();
}

#elif defined(__APPLE__)

#include <pthread.h>

bool kiv::isMainThread() noexcept {
  return pthread_main_np() != 0;
}

#else

#include <thread>

namespace {
// Static objects are made on the main thread before main() begins.
const std::thread::id mainThread = std::this_thread::get_id();
}  // namespace

bool kiv::isMainThread() noexcept {
  return std::this_thread::get_id() == mainThread;
}

#endif
