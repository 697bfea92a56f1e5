#pragma once

#include <memory>

namespace kiv {

struct QueueState;

/// Registers a serial queue: its thread is stopped when the process exits, and a forked child,
/// which has no such thread, gets a new state.
void addSerialQueue(const std::shared_ptr<QueueState>& queue);

/// Registers an atexit handler that stops the serial queues, so that they stop before the handlers
/// registered so far run, such as the clean-up of a library that their jobs use. The first queue
/// does so itself; call it again after initialising another such library. False if that failed.
bool stopSerialQueuesAtExit() noexcept;

}  // namespace kiv
