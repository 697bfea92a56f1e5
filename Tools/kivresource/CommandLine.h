#pragma once

#include <optional>

#include "Tools/kivresource/Options.h"

namespace tool {

/// The result of parsing a command line: a command to run or, if everything was already printed, an
/// exit status.
struct ParsedCommandLine {
  std::optional<Options> options;
  int status = 0;
};

/// Reads the command line and the environment. Prints help to standard output, and a usage error as
/// one line to standard error.
ParsedCommandLine parseCommandLine(int count, const char* const* arguments);

}  // namespace tool
