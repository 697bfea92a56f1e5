// What the scheduler does about transfers that are slow, and about deadlines.

#include <algorithm>
#include <functional>
#include <utility>

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
    worker.stop(*download);
    endAttempt(worker, *download, giveUp(*download));
  }
  const Predicate tooSlow = [&](Download& download) { return isTooSlow(download, now); };
  while (Download* const download = worker.findRunning(tooSlow))
    endAsTooSlow(worker, *download);
  // One at a time: the next has to wait until it is known who takes the place.
  const Predicate gives = [&](Download& download) { return isToGiveWay(download, now); };
  if (Download* const download = worker.findRunning(gives)) giveWay(worker, *download);
}

bool TransferScheduler::isTooSlow(Download& download, Time now) {
  download.speed.note(download.transfer->bytesCome(), now, speeds_.window());
  const auto speed = download.speed.bytesPerSecond();
  return speed && *speed < speeds_.minimum(download.age(now));
}

void TransferScheduler::endAsTooSlow(TransferWorker& worker, Download& download) {
  download.transfer->keepPart();
  download.transfer->noteTooSlow();
  finish(worker, worker.stop(download));
}

/// True for a slow one in whose place one that waits could begin.
bool TransferScheduler::isToGiveWay(Download& download, Time now) {
  const auto speed = download.speed.bytesPerSecond();
  if (waiting_.empty() || !speed || !speeds_.isSlow(*speed)) return false;
  if (now - download.attemptBegun < speeds_.turn(download.metrics.timesGivenWay)) return false;
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
           SpeedPolicy::mayGiveWay(olderThan(download, true), settings_.parallelTransfersPerHost);
  }
  return !hasFreePlace() &&
         SpeedPolicy::mayGiveWay(olderThan(download, false), settings_.parallelTransfers);
}

/// How many of those that run, of all or with the same server, began before the download.
std::size_t TransferScheduler::olderThan(const Download& download, bool onItsServer) const {
  const auto place = std::find(running_.begin(), running_.end(), &download);
  const auto isCounted = [&](const Download* older) {
    return !onItsServer || older->servers[older->server] == download.servers[download.server];
  };
  return static_cast<std::size_t>(std::count_if(running_.begin(), place, isCounted));
}

/// That is no failed try, and says nothing of the server but that it answers.
void TransferScheduler::giveWay(TransferWorker& worker, Download& download) {
  noteReached(download.servers[download.server]);
  download.transfer->keepPart();
  worker.stop(download);
  stopRunning(worker, download);
  ++download.metrics.timesGivenWay;
  download.state = Download::State::waiting;
  waiting_.add(download);
}

bool TransferScheduler::isOverdue(const Download& download, Time now) const {
  if (!download.begun) return false;
  const auto deadline = speeds_.deadline(*download.begun);
  return deadline && *deadline <= now;
}

/// Ends those that wait or pause; those that run are for the threads of their workers.
void TransferScheduler::endOverdue(Time now) {
  std::vector<Download*> overdue;
  for (const auto& [deadline, download] : deadlines_) {
    if (deadline > now) break;
    if (download->state != Download::State::running) overdue.push_back(download);
  }
  for (Download* const download : overdue) {
    if (download->state == Download::State::waiting) waiting_.remove(*download);
    std::erase_if(pausing_, [&](const auto& entry) { return entry.second == download; });
    giveUp(*download);
    report(*download);
  }
}

/// Nothing more is tried for the download.
AttemptResult TransferScheduler::giveUp(Download& download) {
  auto outcome = TransferOutcome::failed(transferError(KivRESTServiceErrorCode::deadlineExceeded,
                                                       download.urls.front().absoluteString()));
  download.plan.giveUp(outcome);
  return AttemptResult(std::move(outcome));
}

}  // namespace kiv
