#include "Tools/contentserver/Workers.h"

#include <system_error>
#include <utility>

namespace kiv {

Workers::Workers(std::size_t count) {
  threads_.reserve(count);
  try {
    while (threads_.size() < count)
      threads_.emplace_back([this] { work(); });
  } catch (const std::system_error&) {
    stop();
    throw;
  }
}

Workers::~Workers() {
  stop();
}

void Workers::add(Job job) {
  {
    const std::lock_guard lock(mutex_);
    jobs_.push_back(std::move(job));
  }
  changed_.notify_one();
}

void Workers::work() {
  while (true) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return stopped_ || !jobs_.empty(); });
    if (jobs_.empty()) return;
    const Job job = std::move(jobs_.front());
    jobs_.pop_front();
    lock.unlock();
    job();
  }
}

void Workers::stop() {
  {
    const std::lock_guard lock(mutex_);
    stopped_ = true;
  }
  changed_.notify_all();
  for (std::thread& thread : threads_)
    thread.join();
  threads_.clear();
}

}  // namespace kiv
