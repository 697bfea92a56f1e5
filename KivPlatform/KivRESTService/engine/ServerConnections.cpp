// How the scheduler uses the connections to a server: how many, over which version of HTTP, and
// what happens when a shared one ends.

#include <algorithm>
#include <functional>

#include "KivPlatform/KivRESTService/curl/CurlErrors.h"
#include "KivPlatform/KivRESTService/curl/Transfer.h"
#include "KivPlatform/KivRESTService/engine/Download.h"
#include "KivPlatform/KivRESTService/engine/TransferScheduler.h"

namespace kiv {

namespace {

/// True for a failure that may be due to too many connections or requests.
bool mayComeFromTooMany(const AttemptResult& result) {
  const auto status = result.outcome.status.value_or(0);
  const auto code = result.errorCode();
  return status == 429 || status == 503 || (code && isRetryable(*code)) || result.failedOverHTTP2;
}

}  // namespace

std::size_t TransferScheduler::placesAt(const std::string& server) const {
  const auto found = places_.find(server);
  return found == places_.end() ? ParallelPlaces(settings_).count() : found->second.count();
}

/// Servers with long round trips get places in addition to those that all servers share.
std::size_t TransferScheduler::placesInAll() const noexcept {
  return std::max<std::size_t>(1, settings_.parallelTransfers) + extraSlots_;
}

void TransferScheduler::recordRoundTrip(const Download& download, const AttemptResult& result,
                                        Time now) {
  const std::string& server = download.servers[download.server];
  ParallelPlaces& places = places_.try_emplace(server, settings_).first->second;
  extraSlots_ -= places.count() - places.least();
  using Version = ParallelPlaces::Version;
  const auto version = result.cameOverHTTP2 ? Version::http2 : Version::http1;
  if (result.handshake) places.noteHandshake(*result.handshake);
  if (result.transfer) places.noteTransfer(*result.transfer, version);
  if (mayComeFromTooMany(result)) places.noteTrouble(download.attemptBegun, now);
  extraSlots_ += places.count() - places.least();
}

/// Not with a bandwidth limit: libcurl stops reading from a connection when one of its streams
/// exceeds its limit.
bool TransferScheduler::mayUseHTTP2(const Download& download) const {
  return settings_.http2 && settings_.bandwidth <= 0 && download.mayUseHTTP2 &&
         http2Trust_.isTrusted(download.servers[download.server]);
}

void TransferScheduler::noteHTTP2(const Download& download, const AttemptResult& result, Time now) {
  const std::string& server = download.servers[download.server];
  if (result.cameOverHTTP2) http2Trust_.noteSuccess(server);
  if (result.refusedHTTP2) http2Trust_.noteRefusal(server);
  if (!result.failedOverHTTP2) return;
  if (!result.isRepeatedOverHTTP1()) return http2Trust_.noteStall(server);
  http2Trust_.noteFailure(server, download.attemptBegun, now);
}

/// libcurl 7.88 reports the end of an HTTP/2 connection to only one of its streams. The others
/// would time out.
void TransferScheduler::finishStreamsOf(TransferWorker& worker, long connection, bool hasStalled) {
  const std::function<bool(Download&)> isStream = [&](Download& download) {
    return download.transfer->sharedConnection() == connection;
  };
  while (Download* const download = worker.findRunning(isStream)) {
    if (hasStalled) http2Trust_.noteStall(download->servers[download->server]);
    download->transfer->keepPart();
    finish(worker, worker.stop(*download, resultOfCutBody));
  }
}

/// A stalled connection thus delays all of its files by a few seconds together, rather than each by
/// a time-out. If the server is merely slow to answer, it gets one more request for each, over
/// HTTP/1.1.
void TransferScheduler::endSilent(TransferWorker& worker, Time now) {
  for (const long connection : worker.silentConnections(settings_.sharedStallTimeout, now))
    finishStreamsOf(worker, connection, true);
}

void TransferScheduler::runHeld(TransferWorker& worker) {
  for (Download* const download : worker.takeReleased()) {
    if (!worker.run(*download)) failToStart(worker, *download);
  }
}

/// The transfers that waited for this connection fail together with it, as they would have over
/// HTTP/1.1. But if TLS failed, which does not take long, each one tries by itself.
void TransferScheduler::endHeld(TransferWorker& worker, const std::string& origin, int result) {
  const auto code = errorCodeForCurlResult(result);
  const bool isShared = isRetryable(code) || code == KivRESTServiceErrorCode::cannotResolveHost;
  for (Download* const download : worker.takeHeld(origin)) {
    if (isShared) {
      endAttempt(worker, *download, download->transfer->shareFailure(result));
    } else if (!worker.runAtOnce(*download)) {
      failToStart(worker, *download);
    }
  }
}

}  // namespace kiv
