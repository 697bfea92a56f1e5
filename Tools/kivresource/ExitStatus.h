#pragma once

namespace tool {

/// The exit statuses of the program. If a signal stops it, the status is 128 plus the signal's
/// number.
namespace exitStatus {
inline constexpr int success = 0;
inline constexpr int failure = 1;  ///< A resource or an operation failed.
inline constexpr int usage = 2;    ///< Wrong usage, or a configuration that cannot be read.
inline constexpr int signalled = 128;
}  // namespace exitStatus

}  // namespace tool
