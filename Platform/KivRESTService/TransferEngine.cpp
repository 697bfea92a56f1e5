#include "Platform/KivRESTService/TransferEngine.h"

#include <algorithm>
#include <system_error>
#include <utility>

#include <curl/curl.h>

#include "Platform/KivRESTService/BrokenPipeSignal.h"
#include "Platform/KivRESTService/ThreadName.h"

namespace kiv {

using Clock = std::chrono::steady_clock;

TransferEngine::TransferEngine(KivRESTServiceSettings settings, TransferLoop::EndHandler ended)
    : settings_(std::move(settings)), ended_(std::move(ended)) {
  exitHook_.emplace([this] { stop(); });
}

TransferEngine::~TransferEngine() {
  exitHook_.reset();
  stop();
}

bool TransferEngine::add(TransferJob job) {
  const std::lock_guard lock(mutex_);
  if (stopped_) return false;
  if (!multiHandle_ && !startThread()) return false;
  added_.push_back(std::move(job));
  wakeUp();
  return true;
}

void TransferEngine::cancelAll() {
  const std::lock_guard lock(mutex_);
  added_.clear();
  cancelled_ = true;
  wakeUp();
}

void TransferEngine::stop() {
  std::thread thread;
  {
    const std::lock_guard lock(mutex_);
    stopped_ = true;
    added_.clear();
    wakeUp();
    thread = std::move(thread_);
  }
  if (thread.joinable()) thread.join();
}

/// Called with the lock held. A former thread that went for want of work no longer takes the lock.
bool TransferEngine::startThread() {
  if (!prepareCurlLibrary()) return false;
  if (thread_.joinable()) thread_.join();
  auto multiHandle = makeMultiHandle();
  if (!multiHandle) return false;
  try {
    thread_ = std::thread([this, handle = multiHandle.get()] { serve(handle); });
  } catch (const std::system_error&) {
    return false;
  }
  multiHandle_ = std::move(multiHandle);
  cancelled_ = false;
  return true;
}

/// Called with the lock held.
void TransferEngine::wakeUp() {
  if (multiHandle_) curl_multi_wakeup(multiHandle_.get());
}

void TransferEngine::serve(void* multiHandle) {
  nameThisThread("KivRESTService");
  ignoreBrokenPipesOnThisThread();
  // Let go of here, last: closing the connections is work for this thread too.
  MultiHandle owned;
  TransferLoop loop(multiHandle, settings_, ended_);
  idleUntil_ = Clock::now() + settings_.idleTime;
  while (true) {
    // Orders are taken before free places are, so that a place goes to the best of all the jobs
    // that wait when it becomes free.
    takeOrders(loop);
    owned = leaveIfDone(loop);
    if (owned) return;
    loop.startWaiting();
    if (!loop.isIdle()) idleUntil_ = Clock::now() + settings_.idleTime;
    loop.wait(longestWait(loop));
    loop.move();
  }
}

void TransferEngine::takeOrders(TransferLoop& loop) {
  std::vector<TransferJob> jobs;
  bool isCancelled = false;
  {
    const std::lock_guard lock(mutex_);
    jobs.swap(added_);
    isCancelled = std::exchange(cancelled_, false);
  }
  if (isCancelled) {
    loop.dropAll();
    idleUntil_ = Clock::now();
  }
  for (auto& job : jobs)
    loop.add(std::move(job));
}

/// The handle of the connections, where the thread has to end now; otherwise nothing.
MultiHandle TransferEngine::leaveIfDone(const TransferLoop& loop) {
  const std::lock_guard lock(mutex_);
  const bool hasOrders = !added_.empty() || cancelled_;
  const bool isIdle = !hasOrders && loop.isIdle() && Clock::now() >= idleUntil_;
  if (!stopped_ && !isIdle) return {};
  return std::move(multiHandle_);
}

std::chrono::milliseconds TransferEngine::longestWait(const TransferLoop& loop) const {
  using std::chrono::milliseconds;
  constexpr milliseconds longest{60'000};  // libcurl knows its own deadlines
  if (!loop.isIdle()) return longest;
  const auto left = std::chrono::ceil<milliseconds>(idleUntil_ - Clock::now());
  return std::clamp(left, milliseconds{0}, longest);
}

}  // namespace kiv
