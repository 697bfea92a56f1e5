#pragma once

#include <string>

namespace kiv::storage {

/// The directory where programs keep the data of the user who runs this one, or an empty string.
std::string userDataDirectory();

/// The name of the running program, as a harmless file name.
std::string programName();

}  // namespace kiv::storage
