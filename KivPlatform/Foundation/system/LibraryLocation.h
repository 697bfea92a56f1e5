#pragma once

#include <optional>
#include <string>

namespace kiv {

/// The directory of the file that this code was loaded from, as the system tells it: the shared
/// library, or the program that it is linked into. What the program was called with plays no part.
/// Nothing where the system does not tell.
std::optional<std::string> directoryOfThisLibrary();

}  // namespace kiv
