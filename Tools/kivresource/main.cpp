// The command-line host of the framework.

#include "Tools/kivresource/CommandLine.h"

int main(int count, char** arguments) {
  const auto parsed = tool::parseCommandLine(count, arguments);
  return parsed.options ? parsed.options->command(*parsed.options) : parsed.status;
}
