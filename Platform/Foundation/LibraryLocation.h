#pragma once

#include <optional>
#include <string>

namespace kiv {

/// The directory of the file that this code was loaded from: the shared library, or the program
/// that it is linked into. Nothing where the system does not tell.
std::optional<std::string> directoryOfThisLibrary();

}  // namespace kiv
