#include "Tools/kivresource/InterruptWatch.h"

#include <array>
#include <csignal>
#include <fcntl.h>
#include <memory>
#include <unistd.h>
#include <utility>

#include "KivResource/KivResource.h"

namespace tool {

namespace {

constexpr std::array watched{SIGINT, SIGTERM};

/// The pipe from the signal handler to the thread. write() is async-signal-safe; most other
/// functions are not.
std::array<int, 2> ends{-1, -1};

void tellThread(char byte) {
  while (write(ends[1], &byte, 1) < 0 && errno == EINTR) {
  }
}

extern "C" void handleSignal(int signal) {
  const int failure = errno;
  tellThread(static_cast<char>(signal));
  errno = failure;
}

void setHandlers(void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  action.sa_flags = static_cast<int>(SA_RESTART | SA_RESETHAND);
  for (const int signal : watched)
    sigaction(signal, &action, nullptr);
}

/// Posts signals to the main queue until it reads a 0.
void watch(const std::function<void(int)>& handler) {
  const auto shared = std::make_shared<const std::function<void(int)>>(handler);
  char byte = 0;
  while (read(ends[0], &byte, 1) > 0 && byte != 0) {
    kiv::DispatchQueue::main()->async([shared, signal = int{byte}] { (*shared)(signal); });
  }
}

}  // namespace

InterruptWatch::InterruptWatch(std::function<void(int)> handler) {
  if (pipe2(ends.data(), O_CLOEXEC) != 0) return;
  thread_ = std::thread([handler = std::move(handler)] { watch(handler); });
  setHandlers(handleSignal);
}

InterruptWatch::~InterruptWatch() {
  if (!thread_.joinable()) return;
  setHandlers(SIG_DFL);
  tellThread(0);
  thread_.join();
  for (const int end : ends)
    close(end);
}

}  // namespace tool
