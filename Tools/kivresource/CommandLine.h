#pragma once

#include <optional>

#include "Tools/kivresource/Options.h"

namespace tool {

/// What a command line came to: something to do, or, where all is said already, an exit status.
struct ParsedCommandLine {
  std::optional<Options> options;
  int status = 0;
};

/// Reads the command line and the environment. Help goes to standard output, and wrong usage is one
/// line on standard error.
ParsedCommandLine parseCommandLine(int count, const char* const* arguments);

}  // namespace tool
