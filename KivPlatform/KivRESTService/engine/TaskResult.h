#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "KivPlatform/KivRESTService/KivRESTServiceMetrics.h"
#include "KivPlatform/KivRESTService/policy/TransferJob.h"

namespace kiv {

/// What a task ends with.
struct TaskResult {
  TransferOutcome outcome;
  KivRESTServiceMetrics metrics;
  std::int64_t pendingBytes = 0;  ///< Of its body, no longer pending with it.
};

/// The results of tasks, which are named by their numbers.
using TaskResults = std::vector<std::pair<std::uint64_t, TaskResult>>;

/// How far a client has come, and its tasks, which are named by their numbers.
struct ProgressReport {
  KivRESTServiceProgress client;
  std::vector<std::pair<std::uint64_t, KivRESTServiceTaskProgress>> tasks;
};

}  // namespace kiv
