#pragma once

namespace kiv {

/// Has the serial queues of the process stopped when it exits, before what has been registered with
/// atexit so far, such as the end of a library that their jobs use. The first queue does so itself;
/// to be called again after another such library has been prepared. False where that failed.
bool stopSerialQueuesAtExit() noexcept;

}  // namespace kiv
