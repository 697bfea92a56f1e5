// The life of a download: waiting, running, pausing before a retry, ended. More of the scheduler is
// in HostControls.cpp (pause, bandwidth, start condition), HostHeaders.cpp (request handler),
// ServerConnections.cpp and SlowTransfers.cpp.

#include "KivPlatform/KivRESTService/engine/TransferScheduler.h"

#include <algorithm>
#include <random>
#include <utility>

#include "KivPlatform/Foundation/Mutex.h"
#include "KivPlatform/KivRESTService/curl/Transfer.h"
#include "KivPlatform/KivRESTService/engine/Download.h"
#include "KivPlatform/KivRESTService/engine/PendingBytes.h"
#include "KivPlatform/KivRESTService/http/Redirect.h"
#include "KivPlatform/KivRESTService/http/TransferErrors.h"

namespace kiv {

namespace {

using Code = KivRESTServiceErrorCode;
using Clock = std::chrono::steady_clock;

TransferOutcome failure(Code code, const URL& url, std::string_view what = {}) {
  return TransferOutcome::failed(transferError(code, url.absoluteString(), what));
}

}  // namespace

std::size_t TransferScheduler::workerCount(const TransferSettings& settings) noexcept {
  return std::max<std::size_t>(1, std::min(settings.threads, settings.parallelTransfers));
}

TransferScheduler::TransferScheduler(const TransferSettings& settings,
                                     const TaskResultHandler& ended,
                                     const StartQuestionHandler& asked,
                                     const RequestQuestionHandler& preparing,
                                     PendingBytes& pendingBytes)
    : settings_(settings),
      controls_{.bandwidth = settings.bandwidth},
      ended_(ended),
      asked_(asked),
      preparing_(preparing),
      pendingBytes_(pendingBytes),
      spool_(settings_),
      buffers_(std::make_shared<BodyBuffers>(settings.largestPendingBytes)),
      health_(settings.unreachablePause),
      policy_(settings_, std::random_device()()),
      speeds_(settings),
      budget_(settings.bandwidth),
      readSize_(settings),
      workers_(workerCount(settings)),
      workersInUse_(workers_.size()) {
  spool_.sweep();
}

TransferScheduler::~TransferScheduler() {
  dropAll();
}

void TransferScheduler::dropAll() {
  for (auto& [key, download] : downloads_) {
    // It may be incomplete if memory ran out.
    if (!download || !download->worker || !download->transfer) continue;
    TransferWorker& worker = *download->worker;
    worker.drop(std::move(download));
  }
  running_.clear();
  runningPerServer_.clear();
  deadlines_.clear();
  waiting_.clear();
  pausing_.clear();
  questions_.clear();
  asking_.clear();
  allowed_.clear();
  refused_.clear();
  awaitedHeaders_.takeAll();
  downloads_.clear();
  heldBackUntil_.reset();
  health_.forgetProbes();
  for (const TaskResult& result : std::exchange(results_, {}))
    pendingBytes_.remove(result.pendingBytes);
  isReportDue_ = false;
}

bool TransferScheduler::isIdle() const noexcept {
  return downloads_.empty() && results_.empty();
}

/// True while a worker holds dropped transfers: until then their partial bodies are locked.
bool TransferScheduler::hasDropped() const noexcept {
  return std::any_of(workers_.begin(), workers_.end(),
                     [](const TransferWorker& worker) { return worker.hasDropped(); });
}

// --- Jobs ----------------------------------------------------------------------------------------

void TransferScheduler::add(TransferJob job) {
  if (isIdle()) meter_.restart();
  isReportDue_ = true;
  auto& place = downloads_[Download::keyOf(job)];
  if (place) return join(*place, job);
  place = std::make_unique<Download>(std::move(job), settings_);
  waiting_.add(*place);
}

void TransferScheduler::join(Download& download, const TransferJob& job) {
  const bool waits = download.state == Download::State::waiting;
  if (waits) waiting_.remove(download);
  download.tasks.push_back(job.id);
  download.priority = std::max(download.priority, job.priority);
  if (waits) waiting_.add(download);
}

void TransferScheduler::startWaiting() {
  if (controls_.isPaused) return;
  const auto now = Clock::now();
  endOverdue(now);
  releaseRefused(now);
  endPauses(pausing_.begin(), pausing_.upper_bound(now));
  if (holdsBack(now) || hasDropped()) return;
  sendPrepared(now);
  startAllowed(now);
  const auto ready = [&](Download& download) { return mayStart(download, now); };
  while (!waiting_.empty() && hasFreePlace() &&
         !pendingBytes_.exceeds(settings_.largestPendingBytes)) {
    Download* const next = waiting_.takeNext(ready);
    if (!next) return;
    if (next->notBefore > now) {
      pause(*next);
    } else if (controls_.hasStartCondition) {
      ask(*next);
    } else {
      askOrStart(*next);
    }
  }
}

bool TransferScheduler::hasFreePlace() const noexcept {
  return running_.size() + asking_.size() + awaitedHeaders_.asking() < placesInAll();
}

bool TransferScheduler::hasFreePlaceAt(const std::string& server) const {
  const auto busy = runningPerServer_.find(server);
  return busy == runningPerServer_.end() || busy->second < placesAt(server);
}

/// True while the bandwidth budget is overdrawn and downloads are waiting.
bool TransferScheduler::holdsBack(Time now) {
  const bool areWaiting = !waiting_.empty() || !allowed_.empty() || awaitedHeaders_.hasAnswered();
  const bool couldStart = areWaiting && hasFreePlace();
  const bool holds = couldStart && budget_.paidAt() > now;
  const bool held = heldBackUntil_.has_value();
  heldBackUntil_ = holds ? std::optional(budget_.paidAt()) : std::nullopt;
  if (holds != held) shareBandwidth();
  return holds;
}

void TransferScheduler::endPauses(Pauses::iterator first, Pauses::iterator last) {
  for (auto ended = first; ended != last; ++ended) {
    Download& download = *ended->second;
    download.state = Download::State::waiting;
    waiting_.add(download);
  }
  pausing_.erase(first, last);
}

/// Also chooses the server, so that the start that follows uses the one that was checked. True as
/// well for a download that has to pause: it leaves the queue and does not block those behind it.
bool TransferScheduler::mayStart(Download& download, Time now) const {
  const auto step = nextStep(download, now);
  if (!step) return true;
  download.server = step->server;
  download.notBefore = step->notBefore;
  return step->notBefore > now || hasFreePlaceAt(download.servers[step->server]) ||
         mayOvertakePostponed(download);
}

std::optional<TransferPlan::Step> TransferScheduler::nextStep(const Download& download,
                                                              Time now) const {
  return download.plan.next(
      now, [&](std::size_t server) { return health_.state(download.servers[server], now); });
}

void TransferScheduler::start(Download& download) {
  noteBegun(download, Clock::now());
  ++download.metrics.tries;
  health_.noteTry(download.servers[download.server], download.downloadID());
  if (auto obstacle = startTransfer(download, chooseWorker(download))) {
    download.transfer.reset();
    conclude(download, AttemptResult(std::move(*obstacle)));
  }
}

void TransferScheduler::noteBegun(Download& download, Time now) {
  if (download.begun) return;
  download.begun = now;
  download.suspended = {};
  addDeadline(download);
}

/// The least loaded worker. But a few https transfers start no further thread, which would parse
/// the certificate authorities again: 20 ms of processor time for those of a system. Nor does a
/// bandwidth limit need more than one thread.
TransferWorker& TransferScheduler::chooseWorker(const Download& download) {
  if (budget_.isLimited()) return workers_.front();
  const bool isFew = downloads_.size() <= settings_.parallelTransfers;
  const bool needsThread = !isFew || download.url().scheme() != "https";
  auto* best = &workers_.front();
  for (std::size_t index = 1; index < workersInUse_; ++index) {
    auto& worker = workers_[index];
    if ((needsThread || worker.isOpen()) && worker.load() < best->load()) best = &worker;
  }
  return *best;
}

std::optional<TransferOutcome> TransferScheduler::startTransfer(Download& download,
                                                                TransferWorker& worker) {
  const URL& url = download.url();
  if (const auto problem = validateURL(url); !problem.empty()) {
    return failure(Code::unsupportedURL, url, problem);
  }
  download.transfer = std::make_unique<Transfer>(
      url, settings_, spool_, *buffers_, readSize_.bytes(), mayUseHTTP2(download),
      worker.takeSpareHandle(), download.validators ? &*download.validators : nullptr);
  download.transfer->setHeaders(std::exchange(download.headers, {}));
  if (auto problem = download.transfer->prepare()) return problem;
  assign(download, worker);
  return std::nullopt;
}

void TransferScheduler::assign(Download& download, TransferWorker& worker) {
  worker.assign(download);
  download.worker = &worker;
  download.state = Download::State::running;
  download.attemptBegun = Clock::now();
  download.speed.restart(download.transfer->totalBytesReceived(), download.attemptBegun);
  running_.push_back(&download);
  ++runningPerServer_[download.servers[download.server]];
  shareBandwidth();
}

void TransferScheduler::replaceWorker(std::size_t index, TransferWorker& other) {
  workersInUse_ = index;
  if (workers_[index].takeRestart()) other.askToRestart();
  for (Download* const download : workers_[index].takeAssigned()) {
    download->worker = &other;
    other.assign(*download);
  }
}

/// Called after an attempt: the next one may come now, later or never.
void TransferScheduler::advance(Download& download) {
  const auto now = Clock::now();
  const auto step = nextStep(download, now);
  if (!step) return report(download);
  if (step->notBefore <= now) {
    download.state = Download::State::waiting;
    waiting_.add(download);
  } else {
    download.notBefore = step->notBefore;
    pause(download);
  }
}

void TransferScheduler::pause(Download& download) {
  download.state = Download::State::pausing;
  pausing_.emplace(download.notBefore, &download);
}

/// libcurl only limits single transfers. While downloads are held back, one share is left free for
/// them, to pay off what running transfers have overdrawn.
void TransferScheduler::shareBandwidth() {
  if (!budget_.isLimited() || running_.empty()) return;
  const auto shares = static_cast<std::int64_t>(running_.size()) + (heldBackUntil_ ? 1 : 0);
  const auto share = settings_.bandwidth / shares;
  for (TransferWorker& worker : workers_)
    worker.limitSpeeds(std::max<std::int64_t>(1, share));
}

// --- Transfers -----------------------------------------------------------------------------------

void TransferScheduler::runAssigned(TransferWorker& worker) {
  for (Download* const download : worker.takeAssigned()) {
    if (!worker.run(*download)) failToStart(worker, *download);
  }
}

void TransferScheduler::failToStart(TransferWorker& worker, Download& download) {
  endAttempt(worker, download, AttemptResult(failure(Code::outOfResources, download.url())));
}

void TransferScheduler::finishEnded(TransferWorker& worker) {
  noteAnswers();
  // Transfers that are about to be restarted began under another limit.
  if (budget_.isLimited() && !worker.isToRestart())
    budget_.spend(worker.takeBytesCome(), Clock::now());
  for (const auto& ended : worker.takeEnded()) {
    const auto connection = ended.download.transfer->endedConnection(ended.result);
    const auto origin = ended.download.transfer->unmadeConnection(ended.result);
    finish(worker, ended);
    if (connection) finishStreamsOf(worker, *connection, false);
    if (origin) endHeld(worker, *origin, ended.result);
  }
  runHeld(worker);
}

void TransferScheduler::finish(TransferWorker& worker, const TransferWorker::Ended& ended) {
  Download& download = ended.download;
  auto result = download.transfer->finish(ended.result);
  if (!result && controls_.hasRequestHandler && download.transfer->isRedirected()) {
    return askForRedirect(worker, download);
  }
  const bool goesOn = !result && worker.run(download);
  if (goesOn) {
    download.speed.restart(download.transfer->totalBytesReceived(), Clock::now());
    noteReached(download.servers[download.server]);
    return shareBandwidth();
  }
  if (!result) result.emplace(failure(Code::outOfResources, download.url()));
  endAttempt(worker, download, std::move(*result));
}

void TransferScheduler::failRunning(TransferWorker& worker) {
  for (Download* const download : worker.takeRunning())
    failToStart(worker, *download);
}

void TransferScheduler::endAttempt(TransferWorker& worker, Download& download,
                                   AttemptResult result) {
  stopRunning(worker, download);
  conclude(download, std::move(result));
}

/// Records the result of an attempt, even of one that failed to start, and decides what follows.
void TransferScheduler::conclude(Download& download, AttemptResult result) {
  const auto now = Clock::now();
  const std::string& server = download.servers[download.server];
  const bool wasProbe = isProbing(download);
  noteHealth(download, result, now);
  if (wasProbe) endProbe(server, result, now);
  recordRoundTrip(download, result, now);
  noteHTTP2(download, result, now);
  download.record(std::move(result), policy_, now);
  advance(download);
}

void TransferScheduler::stopRunning(TransferWorker& worker, Download& download) {
  releasePlaceAt(download.servers[download.server]);
  std::erase(running_, &download);
  download.ranBefore = download.age(Clock::now());
  worker.keepSpareHandle(download.transfer->takeHandle());
  download.transfer.reset();
  download.worker = nullptr;
  shareBandwidth();
}

void TransferScheduler::releasePlaceAt(const std::string& server) {
  const auto taken = runningPerServer_.find(server);
  if (--taken->second == 0) runningPerServer_.erase(taken);
}

// --- Servers that cannot be reached --------------------------------------------------------------

bool TransferScheduler::isProbing(const Download& download) const {
  return health_.isProbe(download.servers[download.server], download.downloadID());
}

bool TransferScheduler::isAnswering(const std::string& server) const {
  return std::any_of(workers_.begin(), workers_.end(),
                     [&](const TransferWorker& worker) { return worker.isAnsweredBy(server); });
}

/// A probe may be a large file. Others start as soon as its first bytes show that the server is
/// back.
void TransferScheduler::noteAnswers() {
  for (const auto& server : health_.probed()) {
    if (isAnswering(server)) noteReached(server);
  }
}

void TransferScheduler::noteReached(const std::string& server) {
  const bool isBack = health_.noteReached(server);
  if (isBack) endPauses(pausing_.begin(), pausing_.end());
}

void TransferScheduler::noteHealth(const Download& download, const AttemptResult& result,
                                   Time now) {
  const std::string& server = download.servers[download.server];
  // A server that refuses a connection while it answers on another is busy, not unreachable.
  if (result.wasReached || (result.isUnreachable && isAnswering(server))) {
    noteReached(server);
  } else if (result.isUnreachable) {
    health_.noteUnreachable(server, download.downloadID(), now);
  } else {
    health_.noteEnd(server, download.downloadID());
  }
}

/// A failed probe counts as a failed attempt of each download that has no better server, so that
/// many files wait no longer than one. If the probe ran into the connect time-out, none of them
/// tries this server again.
void TransferScheduler::endProbe(const std::string& server, AttemptResult& result, Time now) {
  endPauses(pausing_.lower_bound(Time::max()), pausing_.end());
  if (!result.isUnreachable || !health_.isUnreachable(server)) return;
  result.isLast = result.errorCode() == Code::timedOut;
  for (Download* const download : downloadsWithoutBetterServer(server, now))
    shareFailure(*download, server, result, now);
}

std::vector<Download*> TransferScheduler::downloadsWithoutBetterServer(const std::string& server,
                                                                       Time now) const {
  std::vector<Download*> left;
  for (const auto& [key, download] : downloads_) {
    if (isLeftTo(*download, server, now)) left.push_back(download.get());
  }
  return left;
}

/// True for a download that waits or probes another server, could try this server now, and has no
/// server that is known to be better.
bool TransferScheduler::isLeftTo(const Download& download, const std::string& server,
                                 Time now) const {
  const bool isFree = download.state == Download::State::waiting || isProbing(download);
  if (!isFree || download.placesToTry(server, now).empty()) return false;
  const auto step = nextStep(download, now);
  return step && health_.isUnreachable(download.servers[step->server]);
}

void TransferScheduler::shareFailure(Download& download, const std::string& server,
                                     const AttemptResult& result, Time now) {
  const bool waits = download.state == Download::State::waiting;
  if (waits) waiting_.remove(download);
  for (const std::size_t place : download.placesToTry(server, now)) {
    const auto& url = download.urls[place].absoluteString();
    AttemptResult shared(TransferOutcome::failed(sameTransferError(*result.outcome.error, url)));
    shared.isLast = result.isLast;
    download.plan.record(place, std::move(shared), policy_, now);
  }
  if (waits) advance(download);
}

// --- Ends ----------------------------------------------------------------------------------------

void TransferScheduler::report(Download& download) {
  TransferOutcome outcome = download.end(Clock::now());
  // Partial bodies of the other URLs are useless now.
  const bool mayHaveParts = outcome.body && !download.metrics.failedTries.empty();
  for (std::size_t server = 0; mayHaveParts && server < download.urls.size(); ++server) {
    if (server != download.server) spool_.forget(download.urls[server]);
  }
  const auto bytes = outcome.body ? static_cast<std::int64_t>(outcome.body->size()) : 0;
  if (outcome.body) readSize_.noteBody(bytes);
  meter_.noteEnded(download.tasks.size(), bytes);
  isReportDue_ = true;
  // A body on disk takes no memory but an open file and a lock, so it counts too.
  const auto held = std::min(bytes, settings_.largestBodyInMemory);
  TaskResult result{0, std::move(outcome), std::move(download.metrics), held};
  removeDeadline(download);
  const auto ended = downloads_.extract(downloads_.find(download.key));
  const auto& tasks = ended.mapped()->tasks;
  const auto add = [&](std::uint64_t task, TaskResult taskResult) {
    taskResult.id = task;
    results_.push_back(std::move(taskResult));
    pendingBytes_.add(held);
  };
  for (std::size_t index = 0; index + 1 < tasks.size(); ++index)
    add(tasks[index], result);
  // Moved, not copied, so that the receiver can be the last owner of the body.
  add(tasks.back(), std::move(result));
}

void TransferScheduler::reportEnded(MutexLock& lock) {
  if (results_.empty()) return;
  auto results = std::exchange(results_, {});
  lock.unlock();
  ended_(std::move(results));
  lock.lock();
}

std::optional<TransferScheduler::Time> TransferScheduler::nextDeadline() const {
  if (controls_.isPaused) return std::nullopt;
  std::optional<Time> next;
  const auto consider = [&](Time time) { next = next ? std::min(*next, time) : time; };
  if (!pausing_.empty()) consider(pausing_.begin()->first);
  if (heldBackUntil_) consider(*heldBackUntil_);
  return next;
}

// --- Progress ------------------------------------------------------------------------------------

std::optional<TransferScheduler::Time> TransferScheduler::nextReport() const {
  if (!isReportDue_ && running_.empty()) return std::nullopt;
  return meter_.nextTime();
}

ProgressReport TransferScheduler::takeReport() {
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
