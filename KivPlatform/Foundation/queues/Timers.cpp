// A queue that the host drains cannot wait for a time by itself, so one thread waits for all timers
// of the process. Its clock includes the time that the computer sleeps, but a wait for a condition
// variable does not. So the thread looks at the clock at least every half minute.

#include "KivPlatform/Foundation/queues/Timers.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <map>
#include <thread>
#include <utility>

#include "KivPlatform/Foundation/Mutex.h"
#include "KivPlatform/Foundation/queues/DispatchQueue.h"
#include "KivPlatform/Foundation/system/ForkGuard.h"
#include "KivPlatform/Foundation/system/OperatingSystem.h"

namespace kiv {

namespace {

constexpr Timers::Time longestWait = std::chrono::seconds(30);
/// The delay before another attempt to add a job, after memory had run out.
constexpr Timers::Time retryDelay = std::chrono::seconds(1);

class SystemTimers : public Timers, public std::enable_shared_from_this<SystemTimers> {
 public:
  [[nodiscard]] Time now() const override {
    return std::chrono::duration_cast<Time>(system::timeWithSleep());
  }
  std::unique_ptr<Timer> set(Time when, std::weak_ptr<DispatchQueue> queue, Job job) override;
  void cancel(std::uint64_t id);
  /// At exit.
  void stop();

 private:
  struct Waiting {
    Time when;
    std::weak_ptr<DispatchQueue> queue;
    Job job;
  };
  using AllWaiting = std::map<std::uint64_t, Waiting>;

  /// In a forked child the thread is missing, and the lock may be held forever.
  [[nodiscard]] bool isInherited() const noexcept { return forkDepth_ != forkDepth(); }
  bool startThread() KIV_REQUIRES(mutex_);
  void serve();
  AllWaiting::iterator next() KIV_REQUIRES(mutex_);
  static bool fire(const Waiting& due) noexcept;

  const std::uint64_t forkDepth_ = forkDepth();
  std::atomic<std::uint64_t> lastID_ = 0;
  Mutex mutex_;
  std::condition_variable changed_;
  std::thread thread_ KIV_GUARDED_BY(mutex_);
  bool isServed_ KIV_GUARDED_BY(mutex_) = false;
  bool isStopped_ KIV_GUARDED_BY(mutex_) = false;
  AllWaiting waiting_ KIV_GUARDED_BY(mutex_);
};

class SystemTimer : public Timers::Timer {
 public:
  SystemTimer(std::shared_ptr<SystemTimers> timers, std::uint64_t id)
      : timers_(std::move(timers)), id_(id) {}
  SystemTimer(const SystemTimer&) = delete;
  SystemTimer& operator=(const SystemTimer&) = delete;
  ~SystemTimer() override { timers_->cancel(id_); }

 private:
  const std::shared_ptr<SystemTimers> timers_;
  const std::uint64_t id_;
};

/// On failure the timer cancels itself, after the lock has been released.
std::unique_ptr<Timers::Timer> SystemTimers::set(Time when, std::weak_ptr<DispatchQueue> queue,
                                                 Job job) {
  if (isInherited() || !job) return nullptr;
  const std::uint64_t id = ++lastID_;
  auto timer = std::make_unique<SystemTimer>(shared_from_this(), id);
  const MutexLock lock(mutex_);
  if (isStopped_) return nullptr;
  waiting_.emplace(id, Waiting{when, std::move(queue), std::move(job)});
  if (!isServed_ && !startThread()) return nullptr;
  changed_.notify_all();
  return timer;
}

void SystemTimers::cancel(std::uint64_t id) {
  if (isInherited()) return;
  AllWaiting::node_type cancelled;  // the job is destroyed without the lock
  {
    const MutexLock lock(mutex_);
    cancelled = waiting_.extract(id);
    if (waiting_.empty()) changed_.notify_all();
  }
}

bool SystemTimers::startThread() {
  try {
    thread_ = std::thread([this] { serve(); });
  } catch (const std::exception&) {  // no thread left
    return false;
  }
  return isServed_ = true;
}

void SystemTimers::serve() {
  system::nameThisThread("KivTimers");
  MutexLock lock(mutex_);
  while (!isStopped_ && !waiting_.empty()) {
    const auto first = next();
    const Time left = first->second.when - now();
    if (left > Time(0)) {
      lock.waitFor(changed_, std::min(left, longestWait));
      continue;
    }
    auto due = waiting_.extract(first);
    lock.unlock();
    const bool isDone = fire(due.mapped());
    if (isDone) due = {};
    lock.lock();
    if (isDone) continue;
    due.mapped().when = now() + retryDelay;
    waiting_.insert(std::move(due));
  }
  isServed_ = false;
  // Nobody will join this thread, unless stop() has taken it.
  if (thread_.joinable()) thread_.detach();
}

SystemTimers::AllWaiting::iterator SystemTimers::next() {
  return std::min_element(waiting_.begin(), waiting_.end(), [](const auto& a, const auto& b) {
    return a.second.when < b.second.when;
  });
}

/// False if there was no memory for the job.
bool SystemTimers::fire(const Waiting& due) noexcept {
  try {
    if (const auto queue = due.queue.lock()) queue->async(due.job);
  } catch (const std::exception&) {
    return false;
  }
  return true;
}

void SystemTimers::stop() {
  std::thread thread;
  {
    const MutexLock lock(mutex_);
    isStopped_ = true;
    thread.swap(thread_);
    changed_.notify_all();
  }
  if (!thread.joinable()) return;
  if (thread.get_id() == std::this_thread::get_id()) {
    thread.detach();
  } else {
    thread.join();
  }
}

/// Never destroyed: timers may be set and cancelled while the process exits.
std::shared_ptr<SystemTimers>& timersOfProcess() {
  static auto& timers = *new std::shared_ptr<SystemTimers>([] {
    std::atexit([] { timersOfProcess()->stop(); });
    callInForkedChildren([] {
      // The parent's timers are never destroyed here: their thread does not exist in the child.
      static_cast<void>(new std::shared_ptr<SystemTimers>(timersOfProcess()));
      timersOfProcess() = std::make_shared<SystemTimers>();
    });
    return std::make_shared<SystemTimers>();
  }());
  return timers;
}

}  // namespace

Timers::Timer::~Timer() = default;
Timers::~Timers() = default;

std::shared_ptr<Timers> Timers::system() {
  return timersOfProcess();
}

}  // namespace kiv
