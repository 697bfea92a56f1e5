#include "Platform/KivRESTService/TransferEngine.h"

#include <algorithm>
#include <system_error>
#include <utility>

#include <curl/curl.h>

#include "Platform/KivRESTService/BrokenPipeSignal.h"
#include "Platform/KivRESTService/ThreadName.h"

namespace kiv {

using Clock = std::chrono::steady_clock;

TransferEngine::TransferEngine(KivRESTServiceSettings settings, std::shared_ptr<Backlog> backlog,
                               TransferLoop::EndHandler ended, ProgressHandler progressed)
    : settings_(std::move(settings)),
      backlog_(std::move(backlog)),
      ended_(std::move(ended)),
      progressed_(std::move(progressed)) {
  backlog_->setWakeUp([this] {
    const std::lock_guard lock(mutex_);
    wakeUp();
  });
  exitHook_.emplace([this] { stop(); });
}

TransferEngine::~TransferEngine() {
  exitHook_.reset();
  backlog_->setWakeUp(nullptr);
  stop();
}

void TransferEngine::setSpoolDirectory(std::string path) {
  const std::lock_guard lock(mutex_);
  if (!multiHandle_) settings_.spoolDirectory = std::move(path);
}

void TransferEngine::reportProgress(bool isWanted) {
  const std::lock_guard lock(mutex_);
  reportsProgress_ = isWanted;
  wakeUp();
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
  TransferLoop loop(multiHandle, settings_, ended_, *backlog_);
  idleUntil_ = Clock::now() + settings_.idleTime;
  while (true) {
    // Orders are taken before free places are, so that a place goes to the best of all the jobs
    // that wait when it becomes free.
    takeOrders(loop);
    owned = leaveIfDone(loop);
    if (owned) return;
    loop.startWaiting();
    loop.reportEnded();
    if (!loop.isIdle()) idleUntil_ = Clock::now() + settings_.idleTime;
    loop.wait(longestWait(loop));
    loop.move();
    // And before transfers end, so that a job for a file that was on its way when it came shares
    // it.
    takeOrders(loop);
    loop.finishEnded();
    reportProgressOf(loop);
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

bool TransferEngine::progressIsWanted() {
  const std::lock_guard lock(mutex_);
  return reportsProgress_;
}

void TransferEngine::reportProgressOf(TransferLoop& loop) {
  if (!progressIsWanted()) return;
  const auto next = loop.nextReport();
  if (next && *next <= Clock::now()) progressed_(loop.takeReport());
}

std::chrono::milliseconds TransferEngine::longestWait(const TransferLoop& loop) {
  using std::chrono::milliseconds;
  constexpr milliseconds longest{60'000};  // libcurl knows its own deadlines
  auto until = loop.isIdle() ? idleUntil_ : Clock::now() + longest;
  if (const auto next = loop.nextDeadline()) until = std::min(until, *next);
  const auto report = loop.nextReport();
  if (report && progressIsWanted()) until = std::min(until, *report);
  return std::clamp(std::chrono::ceil<milliseconds>(until - Clock::now()), milliseconds{0},
                    longest);
}

}  // namespace kiv
