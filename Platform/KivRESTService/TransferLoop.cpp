#include "Platform/KivRESTService/TransferLoop.h"

#include <algorithm>
#include <random>
#include <utility>

#include <curl/curl.h>

#include "Platform/KivRESTService/Backlog.h"
#include "Platform/KivRESTService/RedirectPolicy.h"
#include "Platform/KivRESTService/Transfer.h"
#include "Platform/KivRESTService/TransferErrors.h"

namespace kiv {

namespace {

using Code = KivRESTServiceErrorCode;
using Clock = std::chrono::steady_clock;

/// How long a result may wait for others.
constexpr std::chrono::milliseconds longestReportDelay{10};

TransferOutcome failure(Code code, const URL& url, std::string_view what = {}) {
  return TransferOutcome::failed(transferError(code, url.absoluteString(), what));
}

}  // namespace

TransferLoop::TransferLoop(void* multiHandle, const KivRESTServiceSettings& settings,
                           const EndHandler& ended, Backlog& backlog)
    : multiHandle_(multiHandle),
      settings_(settings),
      ended_(ended),
      backlog_(backlog),
      spool_(settings),
      health_(settings.unreachablePause),
      policy_(settings, std::random_device()()) {
  spool_.sweep();
}

TransferLoop::~TransferLoop() {
  dropAll();
}

void TransferLoop::dropAll() {
  for (const auto& [handle, download] : running_)
    curl_multi_remove_handle(multiHandle_, handle);
  running_.clear();
  runningPerServer_.clear();
  waiting_.clear();
  pausing_.clear();
  downloads_.clear();
  for (const auto& [task, result] : std::exchange(results_, {}))
    backlog_.remove(result.backlog);
  isReportDue_ = false;
}

// --- Jobs ----------------------------------------------------------------------------------------

void TransferLoop::add(TransferJob job) {
  if (isIdle()) meter_.restart();
  isReportDue_ = true;
  auto& place = downloads_[Download::keyOf(job)];
  if (place) return join(*place, job);
  place = std::make_unique<Download>(std::move(job), settings_);
  waiting_.add(*place);
}

void TransferLoop::join(Download& download, const TransferJob& job) {
  const bool waits = download.state == Download::State::waiting;
  if (waits) waiting_.remove(download);
  download.tasks.push_back(job.id);
  download.priority = std::max(download.priority, job.priority);
  if (waits) waiting_.add(download);
}

void TransferLoop::startWaiting() {
  const auto now = Clock::now();
  endPauses(now);
  const auto places = std::max<std::size_t>(1, settings_.parallelTransfers);
  const auto ready = [&](Download& download) { return mayStart(download, now); };
  while (!waiting_.empty() && running_.size() < places &&
         !backlog_.exceeds(settings_.largestBacklog)) {
    Download* const next = waiting_.takeNext(ready);
    if (!next) return;
    start(*next);
  }
}

void TransferLoop::endPauses(Time now) {
  while (!pausing_.empty() && pausing_.begin()->first <= now) {
    Download& download = *pausing_.begin()->second;
    pausing_.erase(pausing_.begin());
    download.state = Download::State::waiting;
    waiting_.add(download);
  }
}

/// Chooses the server too, so that the answer holds for the start that follows.
bool TransferLoop::mayStart(Download& download, Time now) const {
  const auto step = nextStep(download, now);
  if (!step) return true;
  download.server = step->server;
  const auto busy = runningPerServer_.find(download.servers[step->server]);
  return busy == runningPerServer_.end() ||
         busy->second < std::max<std::size_t>(1, settings_.parallelTransfersPerHost);
}

std::optional<TransferPlan::Step> TransferLoop::nextStep(const Download& download, Time now) const {
  return download.plan.next(
      now, [&](std::size_t server) { return health_.isAvoided(download.servers[server], now); });
}

void TransferLoop::start(Download& download) {
  const auto now = Clock::now();
  if (!download.begun) download.begun = now;
  ++download.figures.tries;
  health_.noteTry(download.servers[download.server], now);
  if (auto obstacle = startTransfer(download)) {
    download.transfer.reset();
    download.record(TryResult(std::move(*obstacle)), policy_, now);
    advance(download);
  }
}

std::optional<TransferOutcome> TransferLoop::startTransfer(Download& download) {
  const URL& url = download.url();
  if (const auto objection = objectionToURL(url); !objection.empty()) {
    return failure(Code::unsupportedURL, url, objection);
  }
  auto handle = takeSpareHandle();
  if (!handle) return failure(Code::outOfResources, url);
  download.transfer = std::make_unique<Transfer>(url, settings_, spool_, std::move(handle));
  if (!download.transfer->prepare() || !run(download)) return failure(Code::outOfResources, url);
  ++runningPerServer_[download.servers[download.server]];
  download.state = Download::State::running;
  shareBandwidth();
  return std::nullopt;
}

bool TransferLoop::run(Download& download) {
  void* const handle = download.transfer->handle();
  if (curl_multi_add_handle(multiHandle_, handle) != CURLM_OK) return false;
  running_.emplace(handle, &download);
  return true;
}

/// Puts the download where it belongs after a try: its next try may come now, later or never.
void TransferLoop::advance(Download& download) {
  const auto now = Clock::now();
  const auto step = nextStep(download, now);
  if (!step) return report(download);
  if (step->notBefore <= now) {
    download.state = Download::State::waiting;
    waiting_.add(download);
  } else {
    download.state = Download::State::pausing;
    pausing_.emplace(step->notBefore, &download);
  }
}

/// libcurl knows only limits of single transfers.
void TransferLoop::shareBandwidth() {
  if (settings_.bandwidth <= 0 || running_.empty()) return;
  const auto share = settings_.bandwidth / static_cast<std::int64_t>(running_.size());
  for (const auto& [handle, download] : running_)
    download->transfer->limitSpeed(std::max<std::int64_t>(1, share));
}

// --- Transfers -----------------------------------------------------------------------------------

void TransferLoop::move() {
  int stillRunning = 0;
  if (curl_multi_perform(multiHandle_, &stillRunning) != CURLM_OK) failEverything();
}

void TransferLoop::wait(std::chrono::milliseconds longest) {
  const auto code =
      curl_multi_poll(multiHandle_, nullptr, 0, static_cast<int>(longest.count()), nullptr);
  if (code != CURLM_OK) failEverything();
}

void TransferLoop::finishEnded() {
  for (const auto& ended : takeEnded())
    finish(ended);
}

std::vector<TransferLoop::EndedTransfer> TransferLoop::takeEnded() {
  // Collected first: a message does not outlive the removal of its handle.
  std::vector<EndedTransfer> ended;
  int left = 0;
  while (const CURLMsg* const message = curl_multi_info_read(multiHandle_, &left)) {
    if (message->msg != CURLMSG_DONE) continue;
    ended.push_back({message->easy_handle, static_cast<int>(message->data.result)});
  }
  return ended;
}

void TransferLoop::finish(const EndedTransfer& ended) {
  const auto place = running_.find(ended.handle);
  if (place == running_.end()) return;
  Download& download = *place->second;
  running_.erase(place);
  curl_multi_remove_handle(multiHandle_, ended.handle);

  auto result = download.transfer->finish(ended.result);
  const bool goesOn = !result && run(download);
  if (goesOn) return shareBandwidth();
  if (!result) result.emplace(failure(Code::outOfResources, download.url()));
  noteHealth(download, *result);
  stopRunning(download);
  download.record(std::move(*result), policy_, Clock::now());
  advance(download);
}

void TransferLoop::stopRunning(Download& download) {
  const auto running = runningPerServer_.find(download.servers[download.server]);
  if (--running->second == 0) runningPerServer_.erase(running);
  spareHandles_.push_back(download.transfer->takeHandle());
  download.transfer.reset();
  shareBandwidth();
}

void TransferLoop::noteHealth(const Download& download, const TryResult& result) {
  const std::string& server = download.servers[download.server];
  if (result.isUnreachable) {
    health_.noteUnreachable(server, Clock::now());
  } else {
    health_.noteReached(server);
  }
}

// --- Ends ----------------------------------------------------------------------------------------

void TransferLoop::report(Download& download) {
  TransferOutcome outcome = download.end(Clock::now());
  // A body that came from elsewhere makes what was kept of it useless.
  const bool mayHaveParts = outcome.body && !download.figures.failedTries.empty();
  for (std::size_t server = 0; mayHaveParts && server < download.urls.size(); ++server) {
    if (server != download.server) spool_.forget(download.urls[server]);
  }
  report(download, std::move(outcome));
}

void TransferLoop::report(Download& download, TransferOutcome outcome) {
  const auto bytes = outcome.body ? static_cast<std::int64_t>(outcome.body->size()) : 0;
  meter_.noteEnded(download.tasks.size(), bytes);
  isReportDue_ = true;
  // A body on the disk takes no memory, but a lock, of which there are not many.
  const auto held = std::min(bytes, settings_.largestBodyInMemory);
  TaskResult result{std::move(outcome), std::move(download.figures), held};
  const auto ended = downloads_.extract(downloads_.find(download.key));
  const auto& tasks = ended.mapped()->tasks;
  if (results_.empty()) reportAt_ = Clock::now() + longestReportDelay;
  backlog_.add(held * static_cast<std::int64_t>(tasks.size()));
  for (std::size_t index = 0; index + 1 < tasks.size(); ++index)
    results_.emplace_back(tasks[index], result);
  // Nothing of the result stays here: whoever gets it may be the last to hold the body.
  results_.emplace_back(tasks.back(), std::move(result));
}

void TransferLoop::reportEnded() {
  if (results_.empty()) return;
  const bool mayWait = !running_.empty() && Clock::now() < reportAt_;
  if (mayWait && !backlog_.exceeds(settings_.largestBacklog)) return;
  for (auto& [task, result] : std::exchange(results_, {}))
    ended_(task, std::move(result));
}

std::optional<TransferLoop::Time> TransferLoop::nextDeadline() const {
  std::optional<Time> next;
  if (!pausing_.empty()) next = pausing_.begin()->first;
  if (!results_.empty() && (!next || reportAt_ < *next)) next = reportAt_;
  return next;
}

/// Ends every job where libcurl itself has failed, which it does for want of memory only.
void TransferLoop::failEverything() {
  for (const auto& [handle, download] : running_)
    curl_multi_remove_handle(multiHandle_, handle);
  running_.clear();
  runningPerServer_.clear();
  waiting_.clear();
  pausing_.clear();
  while (!downloads_.empty()) {
    Download& download = *downloads_.begin()->second;
    report(download, failure(Code::outOfResources, download.urls.front()));
  }
}

EasyHandle TransferLoop::takeSpareHandle() {
  if (spareHandles_.empty()) return makeEasyHandle();
  auto handle = std::move(spareHandles_.back());
  spareHandles_.pop_back();
  return handle;
}

// --- Progress ------------------------------------------------------------------------------------

std::optional<TransferLoop::Time> TransferLoop::nextReport() const {
  if (!isReportDue_ && running_.empty()) return std::nullopt;
  return meter_.nextTime();
}

ProgressReport TransferLoop::takeReport() {
  isReportDue_ = false;
  ProgressReport report{meter_.measure(downloads_, Clock::now()), {}};
  for (const auto& [key, download] : downloads_) {
    if (!download->begun) continue;
    const auto progress = download->progress();
    for (const std::uint64_t task : download->tasks)
      report.tasks.emplace_back(task, progress);
  }
  return report;
}

}  // namespace kiv
