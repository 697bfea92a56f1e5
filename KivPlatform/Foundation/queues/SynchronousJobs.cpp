// DispatchQueue::sync(). The caller waits on the state of the queue rather than on the job, since a
// queue that is closed at exit never runs its waiting jobs.

#include <algorithm>
#include <cerrno>
#include <exception>
#include <memory>
#include <utility>
#include <vector>

#include "KivPlatform/Foundation/Mutex.h"
#include "KivPlatform/Foundation/queues/QueueState.h"
#include "KivPlatform/Foundation/system/ForkGuard.h"
#include "KivPlatform/Foundation/values/Result.h"

namespace kiv {

namespace {

constexpr const char* waitOperation = "wait for a job of the queue";

/// A thread that waits for a job of a queue. The queues whose jobs the thread is running wait too.
struct Wait {
  const QueueChain& waiting;
  const QueueState* awaited;
};

/// All waits of the process, to find those that would never end.
class Waits {
 public:
  static Waits& shared() {
    // Never destroyed: queues may wait while the process exits.
    static auto& waits = *new Waits;
    return waits;
  }

  /// False if a queue would wait for itself, perhaps through others.
  [[nodiscard]] bool begin(const Wait& wait) {
    const MutexLock lock(mutex_);
    for (const auto* queue = wait.awaited; queue; queue = awaitedBy(queue)) {
      if (contains(wait.waiting, queue)) return false;
    }
    all_.push_back(&wait);
    return true;
  }

  void end(const Wait& wait) {
    const MutexLock lock(mutex_);
    std::erase(all_, &wait);
  }

 private:
  Waits() {
    callInForkedChildren([] { shared().forgetOtherThreads(); });
  }

  /// Called in a forked child: only the thread that forked is left, and it does not wait.
  void forgetOtherThreads() KIV_UNCHECKED_LOCKING { all_.clear(); }

  static bool contains(const QueueChain& queues, const QueueState* queue) {
    return std::find(queues.begin(), queues.end(), queue) != queues.end();
  }

  [[nodiscard]] const QueueState* awaitedBy(const QueueState* queue) const KIV_REQUIRES(mutex_) {
    for (const Wait* wait : all_) {
      if (contains(wait->waiting, queue)) return wait->awaited;
    }
    return nullptr;
  }

  Mutex mutex_;
  const ForkGuard forkGuard_{mutex_, ForkGuard::Rank::waits};
  std::vector<const Wait*> all_ KIV_GUARDED_BY(mutex_);
};

}  // namespace

/// A job that a thread waits for. `state` is guarded by the queue's lock. The rest belongs to the
/// thread that runs the job until `state` is `hasRun`.
struct QueueState::AwaitedJob {
  Job job;
  std::exception_ptr thrown;
  enum class State { waits, runs, hasRun, isAbandoned } state = State::waits;
};

Status QueueState::runAndWait(Job job, const QueueChain& callers) {
  const Wait wait{callers, this};
  if (!Waits::shared().begin(wait)) return systemError(EDEADLK, waitOperation, label);
  struct End {
    const Wait& wait;
    ~End() { Waits::shared().end(wait); }
  } const end{wait};
  return runAndWait(std::move(job));
}

Status QueueState::runAndWait(Job job) {
  using State = AwaitedJob::State;
  const auto awaited = std::make_shared<AwaitedJob>(AwaitedJob{std::move(job), nullptr});
  add([this, awaited] { runAwaited(awaited); });
  MutexLock lock(mutex);
  const bool hasThread = servedBy == ServedBy::host || server != std::thread::id();
  while (awaited->state != State::hasRun) {
    if (awaited->state == State::waits && (isClosed || !hasThread)) {
      awaited->state = State::isAbandoned;
      return systemError(hasThread ? ECANCELED : EAGAIN, waitOperation, label);
    }
    lock.wait(awaitedJobEnded);
  }
  if (awaited->thrown) std::rethrow_exception(awaited->thrown);
  return {};
}

/// The waiting caller rethrows what the job throws. The job's captures are destroyed before the
/// caller continues.
void QueueState::runAwaited(const std::shared_ptr<AwaitedJob>& awaited) {
  {
    const MutexLock lock(mutex);
    if (awaited->state == AwaitedJob::State::isAbandoned) return;
    awaited->state = AwaitedJob::State::runs;
  }
  try {
    awaited->job();
  } catch (...) {
    awaited->thrown = std::current_exception();
  }
  awaited->job = nullptr;
  endAwaited(awaited);
}

/// sync() returns only after everything else that runs at the end of the job.
void QueueState::endAwaited(const std::shared_ptr<AwaitedJob>& awaited) {
  try {
    if (!jobEnds.empty()) {
      return jobEnds.push_back([this, awaited] { endAwaited(awaited); });
    }
  } catch (const std::exception&) {  // out of memory: the call ends early rather than never
  }
  {
    const MutexLock lock(mutex);
    awaited->state = AwaitedJob::State::hasRun;
  }
  awaitedJobEnded.notify_all();
}

}  // namespace kiv
