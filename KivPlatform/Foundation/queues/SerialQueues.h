#pragma once

#include <memory>

namespace kiv {

struct QueueState;

/// Adds a queue to the serial queues of the process: their threads are stopped when it exits, and
/// in a forked child, where those threads are not, they begin anew.
void addSerialQueue(const std::shared_ptr<QueueState>& queue);

/// Has the serial queues of the process stopped when it exits, before what has been registered with
/// atexit so far, such as the end of a library that their jobs use. The first queue does so itself;
/// to be called again after another such library has been prepared. False where that failed.
bool stopSerialQueuesAtExit() noexcept;

}  // namespace kiv
