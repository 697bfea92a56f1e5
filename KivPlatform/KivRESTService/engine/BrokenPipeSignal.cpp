#include "KivPlatform/KivRESTService/engine/BrokenPipeSignal.h"

#if defined(_WIN32)

void kiv::ignoreBrokenPipesOnThisThread() noexcept {}

#else

#include <csignal>

void kiv::ignoreBrokenPipesOnThisThread() noexcept {
  // Blocked, not ignored: how the process handles the signal is the host's. One that waits for this
  // thread goes with it.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

#endif
