#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <optional>
#include <utility>
#include <vector>

#include "KivPlatform/Foundation/values/URL.h"
#include "KivPlatform/KivRESTService/KivRESTServiceMetrics.h"
#include "KivPlatform/KivRESTService/KivRESTServiceValidators.h"
#include "KivPlatform/KivRESTService/policy/AttemptResult.h"

// What passes between the client's queue and the transfer threads. The threads never see a task
// itself, which belongs to that queue; they know it by its ID.

namespace kiv {

/// What the transfer threads know of a task.
struct TransferJob {
  /// The task's ID. IDs increase in the order of queuing.
  std::uint64_t id = 0;
  std::uint64_t priority = 0;
  /// The URLs of the file: that of the request, then the mirrors.
  std::vector<URL> servers;
  /// The validators of the task.
  std::optional<KivRESTServiceValidators> validators = {};
};

/// How a task ended.
struct TaskResult {
  std::uint64_t id = 0;  ///< The task's.
  TransferOutcome outcome;
  KivRESTServiceMetrics metrics;
  std::int64_t pendingBytes = 0;  ///< Bytes of the body; pending until the task is completed.
};

/// A list, so that results can be moved between lists without allocating.
using TaskResults = std::list<TaskResult>;
using TaskResultHandler = std::function<void(TaskResults results)>;

/// The progress of a client, and of its tasks by ID.
struct ProgressReport {
  KivRESTServiceProgress client;
  std::vector<std::pair<std::uint64_t, KivRESTServiceTaskProgress>> tasks;
};

}  // namespace kiv
