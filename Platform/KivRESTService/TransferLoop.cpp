#include "Platform/KivRESTService/TransferLoop.h"

#include <algorithm>
#include <utility>

#include <curl/curl.h>

#include "Platform/KivRESTService/RedirectPolicy.h"
#include "Platform/KivRESTService/Transfer.h"
#include "Platform/KivRESTService/TransferErrors.h"

namespace kiv {

TransferLoop::RunningJob::RunningJob(TransferJob started)
    : job(std::move(started)), plan(job.servers.size()) {}

TransferLoop::RunningJob::~RunningJob() = default;

TransferLoop::TransferLoop(void* multiHandle, const KivRESTServiceSettings& settings,
                           const EndHandler& ended)
    : multiHandle_(multiHandle), settings_(settings), ended_(ended) {}

TransferLoop::~TransferLoop() {
  dropAll();
}

void TransferLoop::dropAll() {
  waiting_.clear();
  for (const auto& [handle, running] : running_)
    curl_multi_remove_handle(multiHandle_, handle);
  running_.clear();
}

void TransferLoop::move() {
  int stillRunning = 0;
  if (curl_multi_perform(multiHandle_, &stillRunning) != CURLM_OK) failEverything();
  finishEnded();
}

void TransferLoop::wait(std::chrono::milliseconds longest) {
  const auto code =
      curl_multi_poll(multiHandle_, nullptr, 0, static_cast<int>(longest.count()), nullptr);
  if (code != CURLM_OK) failEverything();
}

void TransferLoop::startWaiting() {
  const auto places = std::max<std::size_t>(1, settings_.parallelTransfers);
  while (!waiting_.empty() && running_.size() < places)
    start(waiting_.takeNext());
}

void TransferLoop::start(TransferJob job) {
  auto running = std::make_unique<RunningJob>(std::move(job));
  if (!tryNextServer(*running)) return report(*running);
  void* const handle = running->transfer->handle();
  running_.emplace(handle, std::move(running));
}

/// Starts a transfer from the next server that can be tried; false where none is left.
bool TransferLoop::tryNextServer(RunningJob& running) {
  while (const auto server = running.plan.nextServer()) {
    running.server = *server;
    if (startTransfer(running)) return true;
  }
  return false;
}

bool TransferLoop::startTransfer(RunningJob& running) {
  using Code = KivRESTServiceErrorCode;
  const URL& url = running.job.servers[running.server];
  const auto fail = [&](Code code, std::string_view what) {
    running.plan.record(running.server,
                        TransferOutcome::failed(transferError(code, url.absoluteString(), what)));
    return false;
  };
  if (const auto objection = objectionToURL(url); !objection.empty()) {
    return fail(Code::unsupportedURL, objection);
  }
  auto handle = takeSpareHandle();
  if (!handle) return fail(Code::outOfResources, {});
  running.transfer = std::make_unique<Transfer>(url, settings_, std::move(handle));
  if (!running.transfer->prepare() || !run(*running.transfer)) {
    return fail(Code::outOfResources, {});
  }
  return true;
}

bool TransferLoop::run(const Transfer& transfer) {
  return curl_multi_add_handle(multiHandle_, transfer.handle()) == CURLM_OK;
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
  curl_multi_remove_handle(multiHandle_, ended.handle);
  auto running = std::move(place->second);
  running_.erase(place);

  auto outcome = running->transfer->finish(ended.result);
  const bool goesOn = !outcome && run(*running->transfer);
  if (!goesOn) {
    if (!outcome) {
      outcome = TransferOutcome::failed(
          transferError(KivRESTServiceErrorCode::outOfResources,
                        running->job.servers[running->server].absoluteString()));
    }
    running->plan.record(running->server, std::move(*outcome));
    spareHandles_.push_back(running->transfer->takeHandle());
    if (!tryNextServer(*running)) return report(*running);
  }
  void* const handle = running->transfer->handle();
  running_.emplace(handle, std::move(running));
}

/// Ends every job where libcurl itself has failed, which it does for want of memory only.
void TransferLoop::failEverything() {
  const auto fail = [this](const TransferJob& job) {
    ended_(job.id, TransferOutcome::failed(transferError(KivRESTServiceErrorCode::outOfResources,
                                                         job.servers.front().absoluteString())));
  };
  while (!waiting_.empty())
    fail(waiting_.takeNext());
  for (const auto& [handle, running] : running_) {
    curl_multi_remove_handle(multiHandle_, handle);
    fail(running->job);
  }
  running_.clear();
}

void TransferLoop::report(RunningJob& running) {
  ended_(running.job.id, running.plan.takeOutcome());
}

EasyHandle TransferLoop::takeSpareHandle() {
  if (spareHandles_.empty()) return makeEasyHandle();
  auto handle = std::move(spareHandles_.back());
  spareHandles_.pop_back();
  return handle;
}

}  // namespace kiv
