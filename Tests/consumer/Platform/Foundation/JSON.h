#pragma once

// A header of the consumer's own, in a directory with a common name, which no header of the
// framework may find in place of its own.

inline constexpr int consumersJSON = 1;
