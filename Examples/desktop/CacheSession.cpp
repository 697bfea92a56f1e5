#include "CacheSession.h"

#include <KivResource/KivResource.h>
#include <future>
#include <utility>

#include "CacheWorker.h"

CacheSession::CacheSession(std::shared_ptr<kiv::DispatchQueue> queue)
    : queue_(std::move(queue)), worker_(std::make_shared<CacheWorker>(this)) {
  perform([queue = queue_](CacheWorker& worker) { worker.open(queue); });
}

// The queue outlives the session, as the manager does, so it has to be emptied before the program
// ends.
CacheSession::~CacheSession() {
  std::promise<void> closed;
  queue_->async([worker = std::exchange(worker_, nullptr), &closed]() mutable {
    worker->close();
    worker.reset();
    closed.set_value();
  });
  closed.get_future().wait();
}

void CacheSession::perform(std::function<void(CacheWorker&)> job) const {
  queue_->async([worker = worker_, job = std::move(job)] { job(*worker); });
}

void CacheSession::start(Pass pass, const QString& configuration) {
  if (isRunning_) return;
  isRunning_ = true;
  emit started();
  perform([pass, configuration](CacheWorker& worker) { worker.run(pass, configuration); });
}

void CacheSession::stop() {
  perform([](CacheWorker& worker) { worker.stop(); });
}

void CacheSession::setPaused(bool isPaused) {
  perform([isPaused](CacheWorker& worker) { worker.setPaused(isPaused); });
}

void CacheSession::follow(const QString& address) {
  isFollowing_ = true;
  perform([address](CacheWorker& worker) { worker.follow(address); });
}

void CacheSession::stopFollowing() {
  isFollowing_ = false;
  perform([](CacheWorker& worker) { worker.stopFollowing(); });
}

void CacheSession::revalidate() {
  if (isRevalidating_) return;
  isRevalidating_ = true;
  emit revalidating();
  perform([](CacheWorker& worker) { worker.revalidate(); });
}

void CacheSession::planSpace(const SpaceBound& bound) {
  perform([bound](CacheWorker& worker) { worker.planSpace(bound); });
}

void CacheSession::freeSpace(const SpaceBound& bound) {
  perform([bound](CacheWorker& worker) { worker.freeSpace(bound); });
}
