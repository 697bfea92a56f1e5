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

/// Only wait() and move() may run at the same time as other operations; the callers serialise
/// everything else.
class TransferWorker {
 public:
  using Time = SpeedPolicy::Time;

  struct Ended {
    Download& download;
    int result;  ///< A CURLcode.
  };

  TransferWorker();
  ~TransferWorker();
  TransferWorker(const TransferWorker&) = delete;
  TransferWorker& operator=(const TransferWorker&) = delete;

  /// The number of transfers that run or are assigned.
  [[nodiscard]] std::size_t load() const noexcept { return assigned_.size() + running_.size(); }
  /// True while the worker's thread runs.
  [[nodiscard]] bool isOpen() const noexcept { return multiHandle_ != nullptr; }
  /// Assigns a download with a prepared transfer to the worker's thread.
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

  /// Asks the worker's thread to end its transfers, so that they start again. No effect if there
  /// are none.
  void askToRestart() noexcept { isToRestart_ = load() > 0; }
  [[nodiscard]] bool isToRestart() const noexcept { return isToRestart_; }
  /// True if a restart was asked for since the last call.
  [[nodiscard]] bool takeRestart() noexcept { return std::exchange(isToRestart_, false); }
  /// Sets the limit of each transfer, in bytes per second; 0 for none. Takes effect with
  /// applySpeedLimit().
  void limitSpeeds(std::int64_t bytesPerSecond) noexcept {
    speedLimit_ = bytesPerSecond;
    isSpeedLimitNew_ = true;
  }

  /// An ended transfer's handle for reuse; empty if there is none.
  EasyHandle takeSpareHandle();
  /// Keeps the handle for reuse; an empty one is ignored.
  void keepSpareHandle(EasyHandle handle);

  // --- On the worker's thread ---

  /// Called before each turn with the thread's handles; no effect if the worker is open.
  void open(const WorkerHandles& handles) noexcept;
  /// Called when the thread ends. Stops all transfers; their connections end with the multi handle.
  void close();
  /// Starts a prepared transfer; false if that failed. If it may share an HTTP/2 connection, it is
  /// held while another transfer makes the first connection to its origin.
  bool run(Download& download);
  /// The same, but never holds it.
  bool runAtOnce(Download& download);
  /// Takes the held transfers that need not wait any more. The caller runs them again.
  std::vector<Download*> takeReleased();
  /// Takes the held transfers to that origin.
  std::vector<Download*> takeHeld(const std::string& origin);
  void releaseDropped();
  /// Waits until a transfer can be moved or the thread is woken up, at most for `longest` or half a
  /// second. If the thread cannot be woken up, waits for a short interval. False if libcurl failed,
  /// which happens only when memory has run out.
  bool wait(std::chrono::milliseconds longest);
  /// Moves the transfers as far as possible without waiting. False as for wait().
  bool move();
  /// The bytes received since the last call, including those of transfers that have ended but have
  /// not been taken.
  std::int64_t takeBytesCome();
  /// Takes the transfers that have ended.
  std::vector<Ended> takeEnded();
  /// A running or held download for which the predicate holds, or nullptr.
  [[nodiscard]] Download* findRunning(const std::function<bool(Download&)>& predicate) const;
  /// The local ports of the HTTP/2 connections on which several transfers wait and nothing has come
  /// for `limit`.
  std::vector<long> silentConnections(std::chrono::milliseconds limit, Time now);
  /// Stops a running download, which then counts as ended with that CURLcode.
  Ended stop(Download& download, int result);
  /// Stops all running downloads and returns them.
  std::vector<Download*> takeRunning();
  /// Applies the limit of limitSpeeds() to the running transfers. To be called before move().
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
  std::vector<Download*> held_;                   // of running_, in order of arrival
  std::map<long, SilenceMeter> silences_;         // by local port
  Time silencesDue_{};
  bool isToRestart_ = false;
  std::int64_t speedLimit_ = 0;
  bool isSpeedLimitNew_ = false;
  std::vector<std::unique_ptr<Download>> dropped_;
  std::vector<EasyHandle> spareHandles_;
};

}  // namespace kiv
