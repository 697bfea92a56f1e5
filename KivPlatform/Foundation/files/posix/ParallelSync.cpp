// The threads take the files in turn. They are started only if the first sync, which the calling
// thread times, turns out to be slow.

#include "KivPlatform/Foundation/files/posix/ParallelSync.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <exception>
#include <pthread.h>
#include <thread>

namespace kiv::posix {

namespace {

/// Including the calling thread.
constexpr std::size_t mostThreads = 16;

/// If a sync is faster than this, for example in memory, starting threads takes longer than it
/// saves.
constexpr std::chrono::microseconds slowSync{20};

/// system::nameThisThread() cannot be used here: Foundation/system includes this folder.
void nameThisThread() noexcept {
  constexpr const char* name = "KivStorageSync";
#if defined(__APPLE__)
  pthread_setname_np(name);
#else
  pthread_setname_np(pthread_self(), name);
#endif
}

class ParallelSync {
 public:
  explicit ParallelSync(const std::vector<WritableFile*>& files)
      : files_(files), results_(files.size()) {}

  std::vector<Status> run() {
    const auto begin = std::chrono::steady_clock::now();
    synchronizeNext();
    const bool isSlow = std::chrono::steady_clock::now() - begin >= slowSync;
    synchronizeRest(isSlow ? mostThreads : 1);
    if (thrown_) std::rethrow_exception(thrown_);
    return std::move(results_);
  }

 private:
  void synchronizeRest(std::size_t threads) noexcept {
    std::array<std::thread, mostThreads - 1> helpers;
    const std::size_t left = files_.size() - std::min(files_.size(), next_.load());
    const std::size_t wanted = std::min(threads, left);
    for (std::size_t index = 0; index + 1 < wanted && startHelper(helpers[index]);)
      ++index;
    work();
    for (std::thread& helper : helpers) {
      if (helper.joinable()) helper.join();
    }
  }

  /// False if the system has no thread left. The threads that run then do all the work.
  bool startHelper(std::thread& helper) noexcept {
    try {
      helper = std::thread([this] {
        nameThisThread();
        work();
      });
      return true;
    } catch (const std::exception&) {
      return false;
    }
  }

  void work() noexcept {
    while (synchronizeNext()) {
    }
  }

  /// False if there is no further file.
  bool synchronizeNext() noexcept {
    const std::size_t index = next_++;
    if (index >= files_.size()) return false;
    try {
      results_[index] = files_[index]->synchronize();
    } catch (const std::exception&) {  // no memory for the error
      if (!hasThrown_.exchange(true)) thrown_ = std::current_exception();
    }
    return true;
  }

  const std::vector<WritableFile*>& files_;
  std::vector<Status> results_;
  std::atomic<std::size_t> next_ = 0;
  std::atomic<bool> hasThrown_ = false;
  std::exception_ptr thrown_;  ///< Written by the thread that has set the flag.
};

}  // namespace

std::vector<Status> synchronizeInParallel(const std::vector<WritableFile*>& files) {
  return ParallelSync(files).run();
}

}  // namespace kiv::posix
