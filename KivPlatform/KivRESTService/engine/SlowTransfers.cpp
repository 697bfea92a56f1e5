// Slow transfers and deadlines. A transfer that is slower than the minimum fails. One that is
// merely slow yields its slot when a waiting download could use it.

#include <algorithm>
#include <functional>
#include <utility>

#include "KivPlatform/KivRESTService/curl/CurlErrors.h"
#include "KivPlatform/KivRESTService/curl/Transfer.h"
#include "KivPlatform/KivRESTService/engine/Download.h"
#include "KivPlatform/KivRESTService/engine/PendingBytes.h"
#include "KivPlatform/KivRESTService/engine/TransferScheduler.h"
#include "KivPlatform/KivRESTService/http/TransferErrors.h"

namespace kiv {

using Clock = std::chrono::steady_clock;

void TransferScheduler::endSlow(TransferWorker& worker) {
  const auto now = Clock::now();
  using Predicate = std::function<bool(Download&)>;
  const Predicate overdue = [&](Download& download) { return isOverdue(download, now); };
  while (Download* const download = worker.findRunning(overdue)) {
    download->transfer->keepPart();
    worker.stop(*download, resultOfTimeOut);
    endAttempt(worker, *download, giveUp(*download));
  }
  endSilent(worker, now);
  const Predicate tooSlow = [&](Download& download) { return isTooSlow(download, now); };
  while (Download* const download = worker.findRunning(tooSlow))
    endAsTooSlow(worker, *download);
  // One at a time: whether another one has to yield is known only when a download has taken this
  // slot.
  const Predicate gives = [&](Download& download) { return isToGiveWay(download, now); };
  if (Download* const download = worker.findRunning(gives)) yield(worker, *download);
}

bool TransferScheduler::isTooSlow(Download& download, Time now) {
  download.speed.note(download.transfer->totalBytesReceived(), now, speeds_.window());
  const auto speed = download.speed.bytesPerSecond();
  return speed && *speed < speeds_.minimum(download.age(now));
}

void TransferScheduler::endAsTooSlow(TransferWorker& worker, Download& download) {
  download.transfer->keepPart();
  download.transfer->noteTooSlow();
  finish(worker, worker.stop(download, resultOfTimeOut));
}

/// True for a slow transfer in whose slot a waiting download could start.
bool TransferScheduler::isToGiveWay(Download& download, Time now) {
  const auto speed = download.speed.bytesPerSecond();
  if (waiting_.empty() || !speed || !speeds_.isSlow(*speed)) return false;
  if (now - download.attemptBegun < speeds_.turn(download.metrics.timesYielded)) return false;
  if (heldBackUntil_ || pendingBytes_.exceeds(settings_.largestPendingBytes)) return false;
  return waiting_.anyFirst(
      [&](Download& waiting) { return couldStartAfter(download, waiting, now); });
}

bool TransferScheduler::couldStartAfter(const Download& download, Download& waiting,
                                        Time now) const {
  const auto step = nextStep(waiting, now);
  if (!step || step->notBefore > now) return false;
  const std::string& server = waiting.servers[step->server];
  if (!hasFreePlaceAt(server)) {
    return server == download.servers[download.server] &&
           SpeedPolicy::mayGiveWay(olderThan(download, true), placesAt(server));
  }
  return !hasFreePlace() && SpeedPolicy::mayGiveWay(olderThan(download, false), placesInAll());
}

/// The number of running downloads, of all or with the same server, that began earlier.
std::size_t TransferScheduler::olderThan(const Download& download, bool onItsServer) const {
  const auto place = std::find(running_.begin(), running_.end(), &download);
  const auto isCounted = [&](const Download* older) {
    return !onItsServer || older->servers[older->server] == download.servers[download.server];
  };
  return static_cast<std::size_t>(std::count_if(running_.begin(), place, isCounted));
}

/// Yielding is not a failure. It does show that the server answers.
void TransferScheduler::yield(TransferWorker& worker, Download& download) {
  noteReached(download.servers[download.server]);
  download.transfer->keepPart();
  worker.stop(download, resultOfTimeOut);
  stopRunning(worker, download);
  ++download.metrics.timesYielded;
  download.state = Download::State::waiting;
  waiting_.add(download);
}

bool TransferScheduler::isOverdue(const Download& download, Time now) const {
  const auto deadline = deadlineOf(download);
  return deadline && *deadline <= now && !controls_.isPaused;
}

/// Ends the overdue downloads that are not running. The workers' threads end the running ones.
void TransferScheduler::endOverdue(Time now) {
  std::vector<Download*> overdue;
  for (const auto& [deadline, download] : deadlines_) {
    if (deadline > now) break;
    if (download->state != Download::State::running) overdue.push_back(download);
  }
  for (Download* const download : overdue) {
    if (download->state == Download::State::waiting) waiting_.remove(*download);
    if (download->state == Download::State::preparing) leavePreparation(*download);
    std::erase_if(pausing_, [&](const auto& entry) { return entry.second == download; });
    giveUp(*download);
    report(*download);
  }
}

/// The download makes no further attempts.
AttemptResult TransferScheduler::giveUp(Download& download) {
  auto outcome = TransferOutcome::failed(transferError(KivRESTServiceErrorCode::deadlineExceeded,
                                                       download.urls.front().absoluteString()));
  download.plan.giveUp(outcome);
  return AttemptResult(std::move(outcome));
}

}  // namespace kiv
