#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "KivPlatform/KivRESTService/KivRESTServiceMetrics.h"
#include "KivPlatform/KivRESTService/policy/TransferJob.h"

namespace kiv {

/// How a task ended.
struct TaskResult {
  TransferOutcome outcome;
  KivRESTServiceMetrics metrics;
  std::int64_t pendingBytes =
      0;  ///< Bytes of the body that are pending until the task is completed.
};

/// Results by task ID.
using TaskResults = std::vector<std::pair<std::uint64_t, TaskResult>>;

/// The progress of a client, and of its tasks by ID.
struct ProgressReport {
  KivRESTServiceProgress client;
  std::vector<std::pair<std::uint64_t, KivRESTServiceTaskProgress>> tasks;
};

}  // namespace kiv
