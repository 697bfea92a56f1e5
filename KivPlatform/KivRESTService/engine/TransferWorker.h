#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "KivPlatform/KivRESTService/curl/CurlHandles.h"
#include "KivPlatform/KivRESTService/engine/Download.h"
#include "KivPlatform/KivRESTService/engine/WakeUpPipe.h"

namespace kiv {

/// What a transfer thread moves its transfers and is woken up with.
struct WorkerHandles {
  std::unique_ptr<MultiHandle> multiHandle;
  std::unique_ptr<WakeUpPipe> wakeUp;

  explicit operator bool() const noexcept { return multiHandle && *multiHandle; }
};

/// What one transfer thread works at: the transfers that it moves.
///
/// Of the operations only wait() and move() may run while other threads use the rest, which is for
/// them to put in order.
class TransferWorker {
 public:
  struct Ended {
    Download& download;
    int result;  ///< libcurl's.
  };

  /// The transfers that run, or are to.
  [[nodiscard]] std::size_t load() const noexcept { return assigned_.size() + running_.size(); }
  /// Leaves a download, whose transfer is prepared, to the worker's thread.
  void assign(Download& download) { assigned_.push_back(&download); }
  /// True where a transfer with that server runs, and its file has begun to come.
  [[nodiscard]] bool isAnsweredBy(const std::string& server) const;
  [[nodiscard]] bool hasAssigned() const noexcept { return !assigned_.empty(); }
  /// Takes back those that the thread has not taken yet.
  std::vector<Download*> takeAssigned() { return std::exchange(assigned_, {}); }
  /// Ends a download of the worker. Its connection is closed by the worker's thread.
  void drop(std::unique_ptr<Download> download);
  /// True while there are such connections.
  [[nodiscard]] bool hasDropped() const noexcept { return !dropped_.empty(); }

  /// A handle that another transfer has left; empty where there is none.
  EasyHandle takeSpareHandle();
  /// Does nothing with an empty one.
  void keepSpareHandle(EasyHandle handle);

  // --- On the worker's thread ---

  /// The thread serves, with handles of its own: called before each turn; or it ends, which closes
  /// all connections.
  void open(const WorkerHandles& handles) noexcept;
  void close();
  /// Has a prepared transfer run; false where that failed.
  bool run(Download& download);
  void releaseDropped();
  /// Returns when something can be moved, when the thread is woken up, or after that time, half a
  /// second at most; at short intervals where the thread cannot be woken up. False where libcurl
  /// itself failed, which it does for want of memory only.
  bool wait(std::chrono::milliseconds longest);
  /// Moves the transfers that can be moved; false as above.
  bool move();
  /// The bytes that have come since this was last called, with those of transfers that have ended
  /// and have not been taken yet.
  std::int64_t takeBytesCome();
  /// Those that have ended, which run no more.
  std::vector<Ended> takeEnded();
  /// One that runs and for which the predicate holds; nullptr where there is none.
  [[nodiscard]] Download* findRunning(const std::function<bool(Download&)>& predicate) const;
  /// Stops one that runs, as libcurl itself does after a time-out.
  Ended stop(Download& download);
  /// Stops all that run.
  std::vector<Download*> takeRunning();
  void limitSpeeds(std::int64_t bytesPerSecond);

 private:
  std::optional<int> wakeUpDescriptor();

  MultiHandle* multiHandle_ = nullptr;
  const WakeUpPipe* wakeUp_ = nullptr;
  std::optional<int> wakeUpDescriptor_;
  std::chrono::steady_clock::time_point wakeUpSeenAt_{};
  std::vector<Download*> assigned_;
  std::unordered_map<void*, Download*> running_;  // by easy handle
  std::vector<std::unique_ptr<Download>> dropped_;
  std::vector<EasyHandle> spareHandles_;
};

}  // namespace kiv
