// The command-line host of the framework.

#include <exception>
#include <string>
#include <system_error>

#include "Tools/kivresource/CommandLine.h"
#include "Tools/kivresource/ExitStatus.h"
#include "Tools/kivresource/Host.h"
#include "Tools/kivresource/StandardDescriptors.h"

namespace {

int run(int count, const char* const* arguments) {
  const auto parsed = tool::parseCommandLine(count, arguments);
  return parsed.options ? parsed.options->command(*parsed.options) : parsed.status;
}

}  // namespace

int main(int count, char** arguments) {
  try {
    if (!tool::openStandardDescriptors()) {
      tool::complain("/dev/null cannot be opened");
      return tool::exitStatus::failure;
    }
    return tool::endOutput(run(count, arguments));
  } catch (const std::system_error& error) {  // usually a thread that cannot be started
    tool::complain(std::string("the system refuses a thread or another resource: ") + error.what());
  } catch (const std::exception& error) {
    tool::complain(error.what());
  }
  return tool::exitStatus::failure;
}
