#pragma once

#include <chrono>
#include <functional>

namespace kiv::test {

/// How long a test waits for what must happen before it fails. Generous: it is reached only where
/// something is broken.
inline constexpr std::chrono::seconds patience{30};

/// Runs the jobs of the main queue until the predicate holds, which is asked before each round;
/// false where it has not held within the patience. To be called on the main thread.
[[nodiscard]] bool waitUntil(const std::function<bool()>& predicate);

}  // namespace kiv::test
