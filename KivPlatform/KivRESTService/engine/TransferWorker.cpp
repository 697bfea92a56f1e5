// libcurl allows only one thread at a time to use a multi handle: the worker's own. Other threads
// therefore only assign or drop a download, and the worker's thread starts or removes it later.

#include "KivPlatform/KivRESTService/engine/TransferWorker.h"

#include <algorithm>
#include <iterator>
#include <thread>
#include <utility>

#include "KivPlatform/KivRESTService/curl/Transfer.h"
#include "KivPlatform/KivRESTService/engine/Download.h"

namespace kiv {

TransferWorker::TransferWorker() = default;
TransferWorker::~TransferWorker() = default;

bool TransferWorker::isAnsweredBy(const std::string& server) const {
  return std::any_of(running_.begin(), running_.end(), [&](const auto& entry) {
    const Download& download = *entry.second;
    return download.servers[download.server] == server && download.transfer->bodyHasBegun();
  });
}

void TransferWorker::drop(std::unique_ptr<Download> download) {
  const bool wasRunning = running_.erase(download->transfer->handle()) > 0;
  std::erase(assigned_, download.get());
  std::erase(held_, download.get());
  if (wasRunning) dropped_.push_back(std::move(download));
}

EasyHandle TransferWorker::takeSpareHandle() {
  if (spareHandles_.empty()) return {};
  auto handle = std::move(spareHandles_.back());
  spareHandles_.pop_back();
  return handle;
}

void TransferWorker::keepSpareHandle(EasyHandle handle) {
  if (handle) spareHandles_.push_back(std::move(handle));
}

void TransferWorker::open(const WorkerHandles& handles) noexcept {
  if (multiHandle_) return;
  multiHandle_ = handles.multiHandle.get();
  wakeUp_ = handles.wakeUp.get();
  wakeUpSeenAt_ = {};
}

void TransferWorker::close() {
  takeRunning();
  releaseDropped();
  multiHandle_ = nullptr;
  wakeUp_ = nullptr;
}

bool TransferWorker::run(Download& download) {
  if (!hasToWait(download)) return runAtOnce(download);
  running_.emplace(download.transfer->handle(), &download);
  held_.push_back(&download);
  return true;
}

bool TransferWorker::runAtOnce(Download& download) {
  void* const handle = download.transfer->handle();
  // Inserted first, so that no handle runs that the worker does not know.
  running_.emplace(handle, &download);
  if (multiHandle_->add(handle)) return true;
  running_.erase(handle);
  return false;
}

/// Used instead of CURLOPT_PIPEWAIT: with that, if a server turns out to speak HTTP/1.1, the other
/// requests to it wait for the end of the first one (libcurl 8.14), or for a time-out each, one
/// after the other (7.88).
bool TransferWorker::hasToWait(const Download& download) const {
  const auto origin = download.transfer->sharedOrigin();
  if (!origin) return false;
  bool isBeingMade = false;
  for (const auto& [handle, other] : running_) {
    if (other == &download || isHeld(other) || other->transfer->sharedOrigin() != origin) continue;
    if (other->transfer->hasConnection()) return false;
    isBeingMade = true;
  }
  return isBeingMade;
}

bool TransferWorker::isHeld(const Download* download) const {
  return std::find(held_.begin(), held_.end(), download) != held_.end();
}

std::vector<Download*> TransferWorker::takeReleased() {
  return takeHeldIf([this](const Download& download) { return !hasToWait(download); });
}

std::vector<Download*> TransferWorker::takeHeld(const std::string& origin) {
  return takeHeldIf(
      [&](const Download& download) { return download.transfer->sharedOrigin() == origin; });
}

std::vector<Download*> TransferWorker::takeHeldIf(
    const std::function<bool(const Download&)>& predicate) {
  std::vector<Download*> taken;
  std::copy_if(held_.begin(), held_.end(), std::back_inserter(taken),
               [&](const Download* download) { return predicate(*download); });
  for (Download* const download : taken) {
    std::erase(held_, download);
    running_.erase(download->transfer->handle());
  }
  return taken;
}

void TransferWorker::releaseDropped() {
  for (const auto& download : dropped_)
    multiHandle_->remove(download->transfer->handle());
  dropped_.clear();
}

/// Checked at intervals, since the check costs as much as a wait that ends at once.
std::optional<int> TransferWorker::wakeUpDescriptor() {
  constexpr std::chrono::milliseconds interval{50};
  const auto now = std::chrono::steady_clock::now();
  if (now - wakeUpSeenAt_ < interval) return wakeUpDescriptor_;
  wakeUpSeenAt_ = now;
  wakeUpDescriptor_ = wakeUp_->descriptor();
  return wakeUpDescriptor_;
}

bool TransferWorker::wait(std::chrono::milliseconds longest) {
  constexpr std::chrono::milliseconds interval{10};
  const auto descriptor = wakeUpDescriptor();
  if (!descriptor) {
    std::this_thread::sleep_for(std::min(longest, interval));
    return true;
  }
  // Waits are short, because the host may close the descriptor meanwhile and reuse its number. Then
  // no wake-up would arrive.
  constexpr std::chrono::milliseconds longestInOne{500};
  const auto woken = multiHandle_->wait(*descriptor, std::min(longest, longestInOne));
  if (woken == MultiHandle::Woken::byDescriptor) wakeUp_->clear();
  return woken.has_value();
}

bool TransferWorker::move() {
  return multiHandle_->move();
}

std::int64_t TransferWorker::takeBytesCome() {
  std::int64_t bytes = 0;
  for (const auto& [handle, download] : running_)
    bytes += download->transfer->takeBytesCome();
  return bytes;
}

std::vector<TransferWorker::Ended> TransferWorker::takeEnded() {
  std::vector<Ended> ended;
  for (const auto& [handle, result] : multiHandle_->takeEnded()) {
    const auto place = running_.find(handle);
    if (place == running_.end()) continue;
    ended.push_back({*place->second, result});
    running_.erase(place);
  }
  for (const auto& [download, result] : ended)
    multiHandle_->remove(download.transfer->handle());
  return ended;
}

Download* TransferWorker::findRunning(const std::function<bool(Download&)>& predicate) const {
  const auto found = std::find_if(running_.begin(), running_.end(),
                                  [&](const auto& entry) { return predicate(*entry.second); });
  return found == running_.end() ? nullptr : found->second;
}

/// Looks only at intervals, since it is called after each wait.
std::vector<long> TransferWorker::silentConnections(std::chrono::milliseconds limit, Time now) {
  constexpr int looks = 10;
  if (now < silencesDue_) return {};
  silencesDue_ = now + limit / looks;
  struct Come {
    std::size_t requests = 0;
    std::int64_t bytes = 0;
  };
  std::map<long, Come> comeOver;
  for (const auto& [handle, download] : running_) {
    const auto connection = download->transfer->sharedConnection();
    if (!connection) continue;
    Come& come = comeOver[*connection];
    ++come.requests;
    come.bytes += download->transfer->totalBytesReceived();
  }
  std::erase_if(silences_, [&](const auto& entry) { return !comeOver.contains(entry.first); });
  std::vector<long> silent;
  for (const auto& [connection, come] : comeOver) {
    SilenceMeter& meter = silences_[connection];
    meter.note(come.requests, come.bytes, now);
    if (meter.silence() >= limit) silent.push_back(connection);
  }
  return silent;
}

TransferWorker::Ended TransferWorker::stop(Download& download, int result) {
  void* const handle = download.transfer->handle();
  running_.erase(handle);
  std::erase(held_, &download);
  multiHandle_->remove(handle);
  return {download, result};
}

std::vector<Download*> TransferWorker::takeRunning() {
  std::vector<Download*> stopped;
  for (const auto& [handle, download] : running_) {
    multiHandle_->remove(handle);
    stopped.push_back(download);
  }
  running_.clear();
  held_.clear();
  return stopped;
}

/// Assigned transfers are running by then.
void TransferWorker::applySpeedLimit() {
  if (!std::exchange(isSpeedLimitNew_, false)) return;
  for (const auto& [handle, download] : running_)
    download->transfer->limitSpeed(speedLimit_);
}

}  // namespace kiv
