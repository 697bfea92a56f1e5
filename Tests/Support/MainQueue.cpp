#include "Tests/Support/MainQueue.h"

#include <future>
#include <memory>

namespace kiv::test {

bool waitUntil(const std::function<bool()>& predicate) {
  using Clock = std::chrono::steady_clock;
  // The predicate may depend on other threads, which do not wake the main queue.
  constexpr std::chrono::milliseconds round{5};
  const auto deadline = Clock::now() + patience;
  while (!predicate()) {
    if (Clock::now() >= deadline) return false;
    DispatchQueue::main()->drainFor(round);
  }
  return true;
}

void runOn(DispatchQueue& queue, const std::function<void()>& job) {
  const auto task = std::make_shared<std::packaged_task<void()>>(job);
  auto hasRun = task->get_future();
  queue.async([task] { (*task)(); });
  hasRun.get();
}

}  // namespace kiv::test
