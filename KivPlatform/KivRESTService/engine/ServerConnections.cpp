// How the scheduler uses the connections to a server: over which version of HTTP, and
// what follows if a shared one ends.

#include <functional>

#include "KivPlatform/KivRESTService/curl/CurlErrors.h"
#include "KivPlatform/KivRESTService/curl/Transfer.h"
#include "KivPlatform/KivRESTService/engine/Download.h"
#include "KivPlatform/KivRESTService/engine/TransferScheduler.h"

namespace kiv {

bool TransferScheduler::mayUseHTTP2(const Download& download) const {
  return settings_.http2 && download.mayUseHTTP2 &&
         http2Trust_.isTrusted(download.servers[download.server]);
}

void TransferScheduler::noteHTTP2(const Download& download, const AttemptResult& result, Time now) {
  const std::string& server = download.servers[download.server];
  if (result.cameOverHTTP2) http2Trust_.noteSuccess(server);
  if (!result.failedOverHTTP2) return;
  if (!result.isRepeatedOverHTTP1()) return http2Trust_.noteStall(server);
  http2Trust_.noteFailure(server, download.attemptBegun, now);
}

/// libcurl 7.88 reports the end of an HTTP/2 connection to one of its streams; the others would
/// time out.
void TransferScheduler::finishStreamsOf(TransferWorker& worker, long connection) {
  const std::function<bool(Download&)> isStream = [&](Download& download) {
    return download.transfer->isStreamOf(connection);
  };
  while (Download* const download = worker.findRunning(isStream)) {
    download->transfer->keepPart();
    finish(worker, worker.stop(*download, resultOfCutBody));
  }
}

}  // namespace kiv
