// Only the worker's own thread calls libcurl with its multi handle. Others therefore just assign or
// drop a download, and the thread starts or removes it later.

#include "KivPlatform/KivRESTService/engine/TransferWorker.h"

#include <algorithm>
#include <thread>

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
  void* const handle = download.transfer->handle();
  // First, so that no handle runs that the worker does not know.
  running_.emplace(handle, &download);
  if (multiHandle_->add(handle)) return true;
  running_.erase(handle);
  return false;
}

void TransferWorker::releaseDropped() {
  for (const auto& download : dropped_)
    multiHandle_->remove(download->transfer->handle());
  dropped_.clear();
}

/// Checked at intervals: the check costs as much as a wait that ends at once.
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
  // The host may have closed the descriptor meanwhile and reused its number, so that no wake-up
  // would arrive.
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

TransferWorker::Ended TransferWorker::stop(Download& download, int result) {
  void* const handle = download.transfer->handle();
  running_.erase(handle);
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
  return stopped;
}

void TransferWorker::limitSpeeds(std::int64_t bytesPerSecond) {
  for (const Download* const download : assigned_)
    download->transfer->limitSpeed(bytesPerSecond);
  for (const auto& [handle, download] : running_)
    download->transfer->limitSpeed(bytesPerSecond);
}

}  // namespace kiv
