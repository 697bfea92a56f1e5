#pragma once

#include <chrono>
#include <functional>

#include "KivPlatform/Foundation/queues/DispatchQueue.h"

namespace kiv::test {

/// How long a test waits for an event before it fails. Generous: a correct test never reaches it.
inline constexpr std::chrono::seconds patience{30};

/// Drains the main queue until the predicate is true; false after the time-out. The predicate is
/// evaluated before each drain. Call it on the main thread.
[[nodiscard]] bool waitUntil(const std::function<bool()>& predicate);

/// Runs the job on a new serial queue and waits for it to finish.
void runOn(DispatchQueue& queue, const std::function<void()>& job);

}  // namespace kiv::test
