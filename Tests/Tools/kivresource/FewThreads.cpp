// A library for LD_PRELOAD that lets a program create at most FEW_THREADS threads.

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <dlfcn.h>
#include <pthread.h>

namespace {

using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);

std::atomic<int> made{0};

bool isTooMany() {
  const char* const most = std::getenv("FEW_THREADS");
  return most && made++ >= std::atoi(most);
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int pthread_create(
    pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
    void* argument) noexcept {
  static const auto create = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
  return isTooMany() ? EAGAIN : create(thread, attributes, start, argument);
}
