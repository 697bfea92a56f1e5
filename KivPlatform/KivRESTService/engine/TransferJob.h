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

// What goes from the client's queue to the transfer threads, and what comes back. The threads never
// see a task itself, which belongs to that queue: tasks are named by their IDs.

namespace kiv {

/// What the transfer threads know of a task.
struct TransferJob {
  /// The task's ID. IDs increase, so they are also the order of queuing.
  std::uint64_t id = 0;
  std::uint64_t priority = 0;
  /// The URLs of the file: the request's, then the mirrors.
  std::vector<URL> servers;
  /// Those of the task.
  std::optional<KivRESTServiceValidators> validators = {};
};

/// How a task ended.
struct TaskResult {
  std::uint64_t id = 0;  ///< The task's.
  TransferOutcome outcome;
  KivRESTServiceMetrics metrics;
  std::int64_t pendingBytes = 0;  ///< Bytes of the body, pending until the task is completed.
};

/// A list, since results move between lists where no memory may be asked for.
using TaskResults = std::list<TaskResult>;
using TaskResultHandler = std::function<void(TaskResults results)>;

/// The progress of a client, and of its tasks by ID.
struct ProgressReport {
  KivRESTServiceProgress client;
  std::vector<std::pair<std::uint64_t, KivRESTServiceTaskProgress>> tasks;
};

}  // namespace kiv
