#pragma once

#include <cstdint>

#include "KivPlatform/Foundation/values/URL.h"

// What the host can change while transfers run, and the questions of its start condition.

namespace kiv {

/// What the host has set last.
struct TransferControls {
  bool isPaused = false;
  std::int64_t bandwidth = 0;  ///< In bytes per second; 0 for no limit.
  /// The host is asked before each start.
  bool hasStartCondition = false;
  /// Grows when the host's answers may have changed.
  std::uint64_t conditionVersion = 0;
};

/// Whether a transfer may start. The task's ID identifies the question as well, since a download
/// has one at a time.
struct StartQuestion {
  std::uint64_t task = 0;  ///< The first of the tasks that share the transfer.
  URL url;                 ///< The URL that is about to be requested.
};

struct StartAnswer {
  std::uint64_t task = 0;
  /// TransferControls::conditionVersion from before the host was asked.
  std::uint64_t version = 0;
  bool mayStart = true;
};

}  // namespace kiv
