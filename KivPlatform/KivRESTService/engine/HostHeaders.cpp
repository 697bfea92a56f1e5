// The headers that the host adds to a request. While a question waits for the host's queue, the
// download keeps its slot, so that a prompt answer is used at once. If the host postpones its
// answer, others may use the slot, and the download keeps only its place at its server. So a host
// that waits for a token is asked about a few files, not about every file long before it can start.
// The token itself may have to come from that server: a request of a higher priority may overtake
// the postponed ones.

#include <utility>

#include "KivPlatform/Foundation/Mutex.h"
#include "KivPlatform/KivRESTService/curl/Transfer.h"
#include "KivPlatform/KivRESTService/engine/Download.h"
#include "KivPlatform/KivRESTService/engine/PendingBytes.h"
#include "KivPlatform/KivRESTService/engine/TransferScheduler.h"
#include "KivPlatform/KivRESTService/http/Redirect.h"
#include "KivPlatform/KivRESTService/http/TransferErrors.h"

namespace kiv {

using Clock = std::chrono::steady_clock;

/// A URL that cannot be requested fails without a question.
void TransferScheduler::askOrStart(Download& download) {
  if (!controls_.hasRequestHandler || !validateURL(download.url()).empty()) return start(download);
  noteBegun(download, Clock::now());
  ++runningPerServer_[download.servers[download.server]];
  prepare(download);
}

/// The transfer has left the worker but keeps its place at the server.
void TransferScheduler::askForRedirect(TransferWorker& worker, Download& download) {
  noteReached(download.servers[download.server]);
  std::erase(running_, &download);
  download.ranBefore = download.age(Clock::now());
  download.worker = nullptr;
  shareBandwidth();
  if (controls_.isPaused || worker.isToRestart()) return haltPrepared(download);
  prepare(download);
}

/// True if there would be a place at the server without the postponed requests of a lower priority.
bool TransferScheduler::mayOvertakePostponed(const Download& download) const {
  const std::string& server = download.servers[download.server];
  const auto overtaken = awaitedHeaders_.postponedBelow(download.priority, server);
  return overtaken > 0 && runningPerServer_.at(server) - overtaken < placesAt(server);
}

void TransferScheduler::prepare(Download& download) {
  download.state = Download::State::preparing;
  awaitedHeaders_.add(download);
}

void TransferScheduler::reportRequests(MutexLock& lock) {
  if (!awaitedHeaders_.hasQuestions()) return;
  const auto questions = awaitedHeaders_.takeQuestions();
  lock.unlock();
  preparing_(questions);
  lock.lock();
}

void TransferScheduler::take(RequestAnswers& answers) {
  for (RequestAnswer& answer : answers) {
    if (Download* const refused = awaitedHeaders_.take(answer)) refuse(*refused, answer.refusal);
  }
}

void TransferScheduler::refuse(Download& download, const std::string& why) {
  const auto refusal = [&] {
    if (download.transfer) return download.transfer->refuse(why);
    ++download.metrics.tries;
    return AttemptResult(TransferOutcome::failed(transferError(
        KivRESTServiceErrorCode::refusedRequest, download.url().absoluteString(), why)));
  };
  AttemptResult result = refusal();
  leavePreparation(download);
  conclude(download, std::move(result));
}

/// These come first, so that the headers are still fresh.
void TransferScheduler::sendPrepared(Time now) {
  while (awaitedHeaders_.hasAnswered() && hasFreePlace() &&
         !pendingBytes_.exceeds(settings_.largestPendingBytes)) {
    Download& download = awaitedHeaders_.takeAnswered();
    releasePlaceAt(download.servers[download.server]);
    if (download.transfer) {
      continueAfterRedirect(download);
    } else {
      startPrepared(download, now);
    }
  }
}

/// The headers are for one URL. If the download must wait or try another URL by now, the host is
/// asked again.
void TransferScheduler::startPrepared(Download& download, Time now) {
  const std::size_t asked = download.server;
  download.state = Download::State::waiting;
  if (mayStart(download, now) && download.server == asked && download.notBefore <= now) {
    return start(download);
  }
  download.headers.clear();
  waiting_.add(download);
}

void TransferScheduler::continueAfterRedirect(Download& download) {
  download.transfer->setHeaders(std::exchange(download.headers, {}));
  if (auto problem = download.transfer->prepare()) {
    download.transfer.reset();
    return conclude(download, AttemptResult(std::move(*problem)));
  }
  assign(download, chooseWorker(download));
}

/// Requests that have not been sent go back to waiting, and the host is asked again.
void TransferScheduler::haltAllPrepared() {
  for (Download* const download : awaitedHeaders_.takeAll())
    haltPrepared(*download);
}

void TransferScheduler::haltPrepared(Download& download) {
  if (download.transfer) --download.metrics.tries;
  leavePreparation(download);
  download.state = Download::State::waiting;
  waiting_.add(download);
  isReportDue_ = true;
}

void TransferScheduler::leavePreparation(Download& download) {
  awaitedHeaders_.remove(download);
  releasePlaceAt(download.servers[download.server]);
  download.headers.clear();
  download.transfer.reset();
}

}  // namespace kiv
