#pragma once

namespace tool {

/// How the program ends. One that a signal stopped ends with 128 and the signal's number.
namespace exitStatus {
inline constexpr int success = 0;
inline constexpr int failure = 1;  ///< A resource failed, or something could not be done.
inline constexpr int usage = 2;    ///< Wrong usage, or a configuration that cannot be read.
inline constexpr int signalled = 128;
}  // namespace exitStatus

}  // namespace tool
