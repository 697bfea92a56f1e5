#pragma once

#include <chrono>
#include <functional>

#include "KivPlatform/Foundation/queues/DispatchQueue.h"

namespace kiv::test {

/// How long a test waits for what must happen before it fails. Generous: it is reached only if
/// something is broken.
inline constexpr std::chrono::seconds patience{30};

/// Runs the jobs of the main queue until the predicate holds, which is asked before each round;
/// false if it has not held within the patience. To be called on the main thread.
[[nodiscard]] bool waitUntil(const std::function<bool()>& predicate);

/// Runs the job on a queue with a thread of its own, and returns when it has run.
void runOn(DispatchQueue& queue, const std::function<void()>& job);

}  // namespace kiv::test
