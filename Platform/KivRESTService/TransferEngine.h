#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "Platform/KivRESTService/Backlog.h"
#include "Platform/KivRESTService/CurlHandles.h"
#include "Platform/KivRESTService/CurlLibrary.h"
#include "Platform/KivRESTService/KivRESTServiceSettings.h"
#include "Platform/KivRESTService/TransferJob.h"
#include "Platform/KivRESTService/TransferLoop.h"

namespace kiv {

/// The transfer thread of a client, and the orders that other threads give it.
///
/// The thread starts with the first job and goes when it has had nothing to do for a while, or when
/// its jobs are cancelled; the next job starts a new one. Operations may be called from any thread.
class TransferEngine {
 public:
  using ProgressHandler = std::function<void(ProgressReport report)>;

  /// `ended` is called on the transfer thread once for every job that ends, and `progressed` no
  /// more than ten times a second while somebody wants to know. Neither must wait for other threads
  /// that use the engine, and neither is called after stop() has returned. What `ended` is given
  /// counts in the backlog, from which the caller removes it.
  TransferEngine(KivRESTServiceSettings settings, std::shared_ptr<Backlog> backlog,
                 TransferLoop::EndHandler ended, ProgressHandler progressed);
  /// Stops.
  ~TransferEngine();
  TransferEngine(const TransferEngine&) = delete;
  TransferEngine& operator=(const TransferEngine&) = delete;

  /// Hands a job to the transfer thread. False where there is no way to run it: no thread can be
  /// started, or the engine has stopped.
  bool add(TransferJob job);
  /// Where bodies go on their way, see KivRESTServiceSettings. Without effect once the transfer
  /// thread runs.
  void setSpoolDirectory(std::string path);
  /// Has progress reported, or no longer.
  void reportProgress(bool isWanted);
  /// As they are in use.
  [[nodiscard]] const KivRESTServiceSettings& settings() const noexcept { return settings_; }

  /// Drops every job added so far and closes their connections at once. One that has ended may be
  /// on its way to the handler.
  void cancelAll();
  /// Drops every job, ends the thread, and returns when it has ended. Nothing runs afterwards.
  void stop();

 private:
  bool startThread();
  void wakeUp();
  void serve(void* multiHandle);
  void takeOrders(TransferLoop& loop);
  MultiHandle leaveIfDone(const TransferLoop& loop);
  void reportProgressOf(TransferLoop& loop);
  [[nodiscard]] bool progressIsWanted();
  [[nodiscard]] std::chrono::milliseconds longestWait(const TransferLoop& loop);

  KivRESTServiceSettings settings_;
  const std::shared_ptr<Backlog> backlog_;
  const TransferLoop::EndHandler ended_;
  const ProgressHandler progressed_;

  std::mutex mutex_;
  std::thread thread_;
  MultiHandle multiHandle_;  // there while the thread serves
  std::vector<TransferJob> added_;
  bool cancelled_ = false;
  bool stopped_ = false;
  bool reportsProgress_ = false;

  std::chrono::steady_clock::time_point idleUntil_;  // the transfer thread's own

  std::optional<StopAtExit> exitHook_;
};

}  // namespace kiv
