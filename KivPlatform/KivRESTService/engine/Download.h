#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/Foundation/values/URL.h"
#include "KivPlatform/KivRESTService/KivRESTServiceMetrics.h"
#include "KivPlatform/KivRESTService/curl/Transfer.h"
#include "KivPlatform/KivRESTService/policy/SpeedPolicy.h"
#include "KivPlatform/KivRESTService/policy/TransferJob.h"
#include "KivPlatform/KivRESTService/policy/TransferPlan.h"

namespace kiv {

class TransferWorker;

/// One file that the client fetches, for one task or for several that want the same. Belongs to the
/// scheduler; its transfer to the thread of the worker while it runs.
struct KIV_EXPORT Download {
  using Time = std::chrono::steady_clock::time_point;

  enum class State {
    waiting,  ///< For a free place.
    running,
    pausing,  ///< Until the next try.
  };

  Download(TransferJob job, const KivRESTServiceSettings& settings);

  /// What tasks have in common that can share a download: all of their URLs.
  static std::string keyOf(const TransferJob& job);

  /// Tells the try that runs from all others.
  [[nodiscard]] std::uint64_t attemptID() const { return tasks.front(); }
  [[nodiscard]] const URL& url() const { return urls[server]; }
  /// How long its tries have run, with the one that runs now.
  [[nodiscard]] SpeedPolicy::Duration age(Time now) const {
    return ranBefore + (now - attemptBegun);
  }
  /// Where in the list that server stands, as far as it may be tried now.
  [[nodiscard]] std::vector<std::size_t> placesToTry(const std::string& name, Time now) const;
  /// Ends the try: notes how it came out, for the plan and for the metrics.
  void record(AttemptResult result, RetryPolicy& policy, Time now);
  /// What the download ends with, and completes its metrics.
  TransferOutcome end(Time now);
  [[nodiscard]] KivRESTServiceTaskProgress progress() const;

  const std::string key;
  std::vector<std::uint64_t> tasks;  ///< Their numbers, in order of queuing.
  std::uint64_t priority;            ///< The largest of the tasks'.
  const std::vector<URL> urls;
  std::vector<std::string> servers;  ///< Of the URLs.

  State state = State::waiting;
  TransferPlan plan;
  Time notBefore{};                    ///< When its next try may begin.
  std::size_t server = 0;              ///< The place of the one being tried, or tried last.
  std::unique_ptr<Transfer> transfer;  ///< While it runs,
  TransferWorker* worker = nullptr;    ///< there.

  Time attemptBegun{};                ///< That runs, or ran last.
  SpeedPolicy::Duration ranBefore{};  ///< Its tries in all, without the one that runs.
  SpeedMeter speed;                   ///< Of the request that runs.

  std::optional<Time> begun;
  KivRESTServiceMetrics metrics;
  double bytesPerSecond = 0;       ///< As last measured,
  std::int64_t measuredBytes = 0;  ///< with the bytes that were here then.
};

}  // namespace kiv
