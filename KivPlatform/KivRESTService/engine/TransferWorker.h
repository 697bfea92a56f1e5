#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "KivPlatform/KivRESTService/curl/CurlHandles.h"
#include "KivPlatform/KivRESTService/engine/WakeUpPipe.h"
#include "KivPlatform/KivRESTService/policy/SpeedPolicy.h"

namespace kiv {

struct Download;

/// The handles of a transfer thread.
struct WorkerHandles {
  std::unique_ptr<MultiHandle> multiHandle;
  std::unique_ptr<WakeUpPipe> wakeUp;

  explicit operator bool() const noexcept { return multiHandle && *multiHandle; }
};

/// The transfers of one transfer thread.
///
/// Only wait() and move() may run while another thread uses other operations; the callers serialise
/// everything else.
class TransferWorker {
 public:
  using Time = SpeedPolicy::Time;

  struct Ended {
    Download& download;
    int result;  ///< libcurl's.
  };

  TransferWorker();
  ~TransferWorker();
  TransferWorker(const TransferWorker&) = delete;
  TransferWorker& operator=(const TransferWorker&) = delete;

  /// The number of transfers that run or are assigned.
  [[nodiscard]] std::size_t load() const noexcept { return assigned_.size() + running_.size(); }
  /// True while the worker's thread runs.
  [[nodiscard]] bool isOpen() const noexcept { return multiHandle_ != nullptr; }
  /// Assigns a download, whose transfer is prepared, to the worker's thread.
  void assign(Download& download) { assigned_.push_back(&download); }
  /// True if a transfer from that origin runs and its body has begun to arrive.
  [[nodiscard]] bool isAnsweredBy(const std::string& server) const;
  [[nodiscard]] bool hasAssigned() const noexcept { return !assigned_.empty(); }
  /// Takes back the assigned downloads that the thread has not started.
  std::vector<Download*> takeAssigned() { return std::exchange(assigned_, {}); }
  /// Drops a download of the worker. The worker's thread closes its connection later.
  void drop(std::unique_ptr<Download> download);
  /// True if there are dropped downloads with open connections.
  [[nodiscard]] bool hasDropped() const noexcept { return !dropped_.empty(); }

  /// Asks the worker's thread to end the transfers, which are then started again. No effect if
  /// there are none.
  void askToRestart() noexcept { isToRestart_ = load() > 0; }
  [[nodiscard]] bool isToRestart() const noexcept { return isToRestart_; }
  /// Returns whether that was asked for, once.
  [[nodiscard]] bool takeRestart() noexcept { return std::exchange(isToRestart_, false); }
  /// Sets the limit of each of the transfers; 0 for none. It takes effect with applySpeedLimit().
  void limitSpeeds(std::int64_t bytesPerSecond) noexcept {
    speedLimit_ = bytesPerSecond;
    isSpeedLimitNew_ = true;
  }

  /// A handle of an ended transfer for reuse; empty if there is none.
  EasyHandle takeSpareHandle();
  /// Keeps the handle for reuse; an empty one is ignored.
  void keepSpareHandle(EasyHandle handle);

  // --- On the worker's thread ---

  /// open() is called before each turn with the thread's handles, close() when the thread ends,
  /// which closes all connections.
  void open(const WorkerHandles& handles) noexcept;
  void close();
  /// Starts a prepared transfer; false if that failed. One that may share an HTTP/2 connection is
  /// held as long as another one is making the first connection to that origin.
  bool run(Download& download);
  /// The same, but holds none.
  bool runAtOnce(Download& download);
  /// Takes the held transfers that need not wait any more, which are to be run again.
  std::vector<Download*> takeReleased();
  /// Takes the held transfers to that origin.
  std::vector<Download*> takeHeld(const std::string& origin);
  void releaseDropped();
  /// Waits until a transfer can be moved or the thread is woken up, for `longest` and at most half
  /// a second; if the thread cannot be woken up, for a short interval. False if libcurl itself
  /// failed, which only happens when memory has run out.
  bool wait(std::chrono::milliseconds longest);
  /// Moves the transfers as far as possible without waiting; false as above.
  bool move();
  /// The bytes received since the last call, those of ended transfers that have not been taken
  /// included.
  std::int64_t takeBytesCome();
  /// Takes the transfers that have ended.
  std::vector<Ended> takeEnded();
  /// A running download for which the predicate holds, or nullptr.
  [[nodiscard]] Download* findRunning(const std::function<bool(Download&)>& predicate) const;
  /// The local ports of the HTTP/2 connections that have brought nothing for so long, although
  /// several transfers wait.
  std::vector<long> silentConnections(std::chrono::milliseconds limit, Time now);
  /// Stops a running download, which then has ended with that result of libcurl.
  Ended stop(Download& download, int result);
  /// Stops all running downloads.
  std::vector<Download*> takeRunning();
  /// To be called before move().
  void applySpeedLimit();

 private:
  [[nodiscard]] bool hasToWait(const Download& download) const;
  [[nodiscard]] bool isHeld(const Download* download) const;
  std::vector<Download*> takeHeldIf(const std::function<bool(const Download&)>& predicate);
  std::optional<int> wakeUpDescriptor();

  MultiHandle* multiHandle_ = nullptr;
  const WakeUpPipe* wakeUp_ = nullptr;
  std::optional<int> wakeUpDescriptor_;
  std::chrono::steady_clock::time_point wakeUpSeenAt_{};
  std::vector<Download*> assigned_;
  std::unordered_map<void*, Download*> running_;  // by easy handle
  std::vector<Download*> held_;                   // of these, in their order
  std::map<long, SilenceMeter> silences_;         // by local port
  Time silencesDue_{};
  bool isToRestart_ = false;
  std::int64_t speedLimit_ = 0;
  bool isSpeedLimitNew_ = false;
  std::vector<std::unique_ptr<Download>> dropped_;
  std::vector<EasyHandle> spareHandles_;
};

}  // namespace kiv
