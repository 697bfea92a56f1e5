#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "KivPlatform/KivRESTService/KivRESTServiceFigures.h"
#include "KivPlatform/KivRESTService/policy/TransferJob.h"

namespace kiv {

/// What a task ends with.
struct TaskResult {
  TransferOutcome outcome;
  KivRESTServiceFigures figures;
  std::int64_t backlog = 0;  ///< The bytes that leave the backlog with it.
};

/// The results of tasks, which are named by their numbers.
using TaskResults = std::vector<std::pair<std::uint64_t, TaskResult>>;

/// How far a client has come, and its tasks, which are named by their numbers.
struct ProgressReport {
  KivRESTServiceProgress client;
  std::vector<std::pair<std::uint64_t, KivRESTServiceTaskProgress>> tasks;
};

}  // namespace kiv
