// What the host changes while transfers run: the pause, the bandwidth and the start condition. A
// halted transfer ends like one that yields: the received bytes are kept, and it does not count as
// a failed attempt.

#include <algorithm>
#include <functional>
#include <utility>

#include "KivPlatform/Foundation/Mutex.h"
#include "KivPlatform/KivRESTService/curl/CurlErrors.h"
#include "KivPlatform/KivRESTService/curl/Transfer.h"
#include "KivPlatform/KivRESTService/engine/Download.h"
#include "KivPlatform/KivRESTService/engine/PendingBytes.h"
#include "KivPlatform/KivRESTService/engine/TransferScheduler.h"

namespace kiv {

using Clock = std::chrono::steady_clock;

void TransferScheduler::apply(const TransferControls& controls) {
  const TransferControls former = std::exchange(controls_, controls);
  if (controls.bandwidth != former.bandwidth) changeBandwidth(former.bandwidth);
  if (controls.conditionVersion != former.conditionVersion) invalidateAnswers();
  if (controls.handlerVersion != former.handlerVersion) awaitedHeaders_.askAgain();
  if (controls.isPaused == former.isPaused) return;
  if (controls.isPaused) {
    pausedSince_ = Clock::now();
    isReportDue_ = true;
    invalidateAnswers();
    haltAllPrepared();
  } else {
    postponeDeadlines(Clock::now() - pausedSince_);
  }
}

// --- The pause -----------------------------------------------------------------------------------

void TransferScheduler::haltIfAsked(TransferWorker& worker) {
  const bool isToRestart = worker.takeRestart();
  if (!isToRestart && !controls_.isPaused) return;
  for (Download* const download : worker.takeAssigned())
    halt(worker, *download);
  const std::function<bool(Download&)> any = [](Download&) { return true; };
  while (Download* const download = worker.findRunning(any)) {
    download->transfer->keepPart();
    worker.stop(*download, resultOfTimeOut);
    halt(worker, *download);
  }
}

/// The next transfer continues this attempt and is not counted as another.
void TransferScheduler::halt(TransferWorker& worker, Download& download) {
  const std::string& server = download.servers[download.server];
  if (download.transfer->bodyHasBegun()) {
    noteReached(server);
  } else if (isProbing(download)) {
    health_.noteEnd(server, download.downloadID());
    endPauses(pausing_.lower_bound(Time::max()), pausing_.end());
  }
  stopRunning(worker, download);
  --download.metrics.tries;
  download.state = Download::State::waiting;
  waiting_.add(download);
  isReportDue_ = true;
}

void TransferScheduler::postponeDeadlines(Clock::duration time) {
  for (const auto& [deadline, download] : std::exchange(deadlines_, {})) {
    download->suspended += time;
    addDeadline(*download);
  }
}

std::optional<TransferScheduler::Time> TransferScheduler::deadlineOf(
    const Download& download) const {
  if (!download.begun) return std::nullopt;
  return speeds_.deadline(*download.begun + download.suspended);
}

void TransferScheduler::addDeadline(Download& download) {
  if (const auto deadline = deadlineOf(download)) deadlines_.emplace(*deadline, &download);
}

void TransferScheduler::removeDeadline(Download& download) {
  if (const auto deadline = deadlineOf(download)) deadlines_.erase({*deadline, &download});
}

// --- The bandwidth -------------------------------------------------------------------------------

/// libcurl would hold a running transfer to a lower limit from its beginning, and pause it for so
/// long that it times out. So running transfers are replaced by new ones that continue them. Nor do
/// these use HTTP/2, large reads or several threads, unlike transfers without a limit.
void TransferScheduler::changeBandwidth(std::int64_t former) {
  const std::int64_t bandwidth = controls_.bandwidth;
  settings_.bandwidth = bandwidth;
  budget_ = BandwidthBudget(bandwidth);
  heldBackUntil_.reset();
  speeds_ = SpeedPolicy(settings_);
  readSize_.setBandwidth(bandwidth);
  if (bandwidth <= 0 || former <= 0) {
    places_.clear();  // the numbers depend on whether there is a limit
    extraSlots_ = 0;
  }
  const bool isLower = bandwidth > 0 && (former <= 0 || bandwidth < former);
  if (isLower) haltAllPrepared();
  for (TransferWorker& worker : workers_) {
    if (isLower) worker.askToRestart();
    if (bandwidth <= 0) worker.limitSpeeds(0);
  }
  shareBandwidth();
}

// --- The start condition -------------------------------------------------------------------------

void TransferScheduler::ask(Download& download) {
  download.state = Download::State::asking;
  removeDeadline(download);
  download.suspendedSince = Clock::now();
  ++runningPerServer_[download.servers[download.server]];
  asking_.emplace(download.downloadID(), &download);
  questions_.push_back({download.downloadID(), download.url()});
}

void TransferScheduler::reportQuestions(MutexLock& lock) {
  if (questions_.empty()) return;
  auto questions = std::exchange(questions_, {});
  lock.unlock();
  asked_(std::move(questions));
  lock.lock();
}

void TransferScheduler::take(const std::vector<StartAnswer>& answers) {
  for (const StartAnswer& answer : answers) {
    const auto asking = asking_.find(answer.task);
    if (asking == asking_.end()) continue;
    Download& download = *asking->second;
    asking_.erase(asking);
    releasePlaceAt(download.servers[download.server]);
    download.state = Download::State::refused;
    const bool isOld = controls_.isPaused || answer.version != controls_.conditionVersion;
    if (isOld) asksAgain_ = true;
    (answer.mayStart && !isOld ? allowed_ : refused_).push_back(&download);
  }
}

/// The host's answers may be out of date.
void TransferScheduler::invalidateAnswers() {
  asksAgain_ = true;
  for (Download* const download : std::exchange(allowed_, {}))
    refused_.push_back(download);
}

/// These come first, so that the answers are still fresh.
void TransferScheduler::startAllowed(Time now) {
  while (!allowed_.empty() && hasFreePlace() &&
         !pendingBytes_.exceeds(settings_.largestPendingBytes)) {
    Download& download = *allowed_.front();
    allowed_.erase(allowed_.begin());
    endSuspension(download, now);
    if (!mayStart(download, now)) {
      waiting_.add(download);
    } else if (download.notBefore <= now) {
      askOrStart(download);
    } else {
      pause(download);
    }
  }
}

/// The refused downloads wait for a slot again, and the host is asked when they get one.
void TransferScheduler::releaseRefused(Time now) {
  if (!std::exchange(asksAgain_, false)) return;
  for (Download* const download : std::exchange(refused_, {})) {
    endSuspension(*download, now);
    waiting_.add(*download);
  }
}

void TransferScheduler::endSuspension(Download& download, Time now) {
  download.suspended += now - download.suspendedSince;
  addDeadline(download);
  download.state = Download::State::waiting;
}

}  // namespace kiv
