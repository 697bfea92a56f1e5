#include "KivPlatform/KivRESTService/engine/ThreadName.h"

#if defined(__linux__)

#include <pthread.h>

void kiv::nameThisThread(const char* name) noexcept {
  pthread_setname_np(pthread_self(), name);
}

#elif defined(__APPLE__)

#include <pthread.h>

void kiv::nameThisThread(const char* name) noexcept {
  pthread_setname_np(name);
}

#else

void kiv::nameThisThread(const char*) noexcept {}

#endif
