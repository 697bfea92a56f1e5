#pragma once

// A header of the consumer in a directory with a common name. The framework's headers must not
// include it instead of their own.

inline constexpr int consumersJSON = 1;
