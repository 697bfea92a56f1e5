// A download keeps the results of its attempts; TransferPlan decides what it tries next.

#include "KivPlatform/KivRESTService/engine/Download.h"

#include <utility>

#include "KivPlatform/KivRESTService/curl/Transfer.h"

namespace kiv {

Download::Download(TransferJob job, const TransferSettings& settings)
    : key(keyOf(job)),
      tasks{job.id},
      priority(job.priority),
      urls(std::move(job.servers)),
      validators(std::move(job.validators)),
      plan(urls.size(), settings) {
  servers.reserve(urls.size());
  for (const URL& url : urls)
    servers.push_back(url.origin());
}

Download::~Download() = default;

std::string Download::keyOf(const TransferJob& job) {
  std::string key;
  for (const URL& url : job.servers)
    key.append(url.absoluteString()).append(" ");  // a URL contains no space
  if (!job.validators) return key;
  // Validators contain no line feed: one that did would not be sent.
  const KivRESTServiceValidators& validators = *job.validators;
  key.append("\n").append(validators.url).append("\n").append(validators.entityTag);
  key.append("\n").append(validators.lastModified);
  return key;
}

std::vector<std::size_t> Download::placesToTry(const std::string& name, Time now) const {
  std::vector<std::size_t> places;
  for (std::size_t place = 0; place < servers.size(); ++place) {
    if (servers[place] == name && plan.mayTry(place, now)) places.push_back(place);
  }
  return places;
}

void Download::record(AttemptResult result, RetryPolicy& policy, Time now) {
  if (result.failedOverHTTP2) mayUseHTTP2 = false;
  if (result.isRepeatedOverHTTP1()) {
    --metrics.tries;
    return;
  }
  metrics.timeToFirstByte = result.timeToFirstByte;
  if (result.outcome.body) {
    metrics.resumedBytes = result.resumedBytes;
    metrics.bytes = static_cast<std::int64_t>(result.outcome.body->size());
    metrics.endedWithConnection = result.endedWithConnection;
  } else if (!result.outcome.isUnchanged) {
    metrics.failedTries.push_back({url(), result.errorCode(), result.outcome.status.value_or(0)});
  }
  plan.record(server, std::move(result), policy, now);
}

TransferOutcome Download::end(Time now) {
  const std::size_t decisive = plan.decisiveServer();
  TransferOutcome outcome = plan.takeOutcome();
  if (outcome.status) metrics.server = urls[decisive];
  if (begun) {
    metrics.totalTime = std::chrono::duration_cast<std::chrono::microseconds>(now - *begun);
  }
  return outcome;
}

KivRESTServiceTaskProgress Download::progress() const {
  KivRESTServiceTaskProgress progress;
  progress.tries = metrics.tries;
  progress.bytesPerSecond = bytesPerSecond;
  if (begun) progress.server = url();
  if (transfer) {
    progress.bytesReceived = transfer->bytesReceived();
    progress.bytesExpected = transfer->bytesExpected();
  }
  return progress;
}

}  // namespace kiv
