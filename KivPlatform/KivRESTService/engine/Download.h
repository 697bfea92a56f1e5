#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KivPlatform/Foundation/values/URL.h"
#include "KivPlatform/KivRESTService/KivRESTServiceMetrics.h"
#include "KivPlatform/KivRESTService/KivRESTServiceRequest.h"
#include "KivPlatform/KivRESTService/KivRESTServiceValidators.h"
#include "KivPlatform/KivRESTService/engine/TransferJob.h"
#include "KivPlatform/KivRESTService/policy/SpeedPolicy.h"
#include "KivPlatform/KivRESTService/policy/TransferPlan.h"

namespace kiv {

class Transfer;
class TransferWorker;

/// A file that the client downloads, for all tasks with the same URLs and validators. The scheduler
/// owns it. While it runs, only the worker's thread uses its transfer.
struct Download {
  using Time = std::chrono::steady_clock::time_point;

  enum class State {
    waiting,  ///< For a free slot.
    running,
    pausing,  ///< Until the next attempt is due.
    asking,   ///< Until the host has said whether it may start.
    refused,  ///< By the host's start condition.
    /// Until the host has given the headers of its next request. There is a transfer only if that
    /// request follows a redirect.
    preparing,
  };

  Download(TransferJob job, const TransferSettings& settings);
  ~Download();
  Download(const Download&) = delete;
  Download& operator=(const Download&) = delete;

  /// The key by which tasks share a download: all of their URLs, and their validators.
  static std::string keyOf(const TransferJob& job);

  /// Identifies the download, and with it its attempt, since only one runs at a time: the ID of its
  /// first task.
  [[nodiscard]] std::uint64_t downloadID() const { return tasks.front(); }
  [[nodiscard]] const URL& url() const { return urls[server]; }
  /// The total running time of its attempts, the current one included.
  [[nodiscard]] SpeedPolicy::Duration age(Time now) const {
    return ranBefore + (now - attemptBegun);
  }
  /// The indexes in `urls` of the URLs on that origin that may be tried now.
  [[nodiscard]] std::vector<std::size_t> placesToTry(const std::string& name, Time now) const;
  /// Ends the attempt: records its result in the plan and in the metrics.
  void record(AttemptResult result, RetryPolicy& policy, Time now);
  /// The outcome of the download; completes its metrics.
  TransferOutcome end(Time now);
  [[nodiscard]] KivRESTServiceTaskProgress progress() const;

  const std::string key;
  std::vector<std::uint64_t> tasks;  ///< Their IDs, in the order of queuing.
  std::uint64_t priority;            ///< The highest of its tasks'.
  const std::vector<URL> urls;
  std::vector<std::string> servers;  ///< The origin of each URL.
  const std::optional<KivRESTServiceValidators> validators;

  State state = State::waiting;
  TransferPlan plan;
  Time notBefore{};                    ///< The earliest start of the next attempt.
  bool mayUseHTTP2 = true;             ///< False after HTTP/2 has failed for this file.
  std::size_t server = 0;              ///< Index of the current or last attempt's URL.
  std::unique_ptr<Transfer> transfer;  ///< While running; see `preparing`.
  TransferWorker* worker = nullptr;    ///< While running.

  std::uint64_t lastQuestion = 0;          ///< Number of the last question for headers.
  KivRESTServiceRequest::Headers headers;  ///< The host's answer, until the request is sent.

  Time attemptBegun{};                ///< Start of the current or last attempt.
  SpeedPolicy::Duration ranBefore{};  ///< Total time of the finished attempts.
  SpeedMeter speed;                   ///< Of the current request.

  std::optional<Time> begun;
  SpeedPolicy::Duration suspended{};  ///< By the host, since it began; extends the deadline.
  Time suspendedSince{};              ///< While asking or refused.
  KivRESTServiceMetrics metrics;
  double bytesPerSecond = 0;       ///< At the last measurement.
  std::int64_t measuredBytes = 0;  ///< Received at the last measurement.
};

}  // namespace kiv
