#include "CacheSession.h"

#include <KivResource/KivResource.h>
#include <future>
#include <utility>

#include "CacheWorker.h"

CacheSession::CacheSession(std::shared_ptr<kiv::DispatchQueue> queue)
    : queue_(std::move(queue)), worker_(std::make_shared<CacheWorker>(this)) {
  queue_->async([worker = worker_, queue = queue_] { worker->open(queue); });
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

void CacheSession::start(Pass pass, const QString& configuration) {
  if (isRunning_) return;
  isRunning_ = true;
  emit started();
  queue_->async([worker = worker_, pass, configuration] { worker->run(pass, configuration); });
}

void CacheSession::stop() {
  queue_->async([worker = worker_] { worker->stop(); });
}
