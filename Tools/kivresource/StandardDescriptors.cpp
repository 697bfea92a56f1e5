#include "Tools/kivresource/StandardDescriptors.h"

#include <fcntl.h>
#include <unistd.h>

namespace tool {

bool openStandardDescriptors() {
  for (int number = STDIN_FILENO; number <= STDERR_FILENO; ++number) {
    if (fcntl(number, F_GETFD) >= 0) continue;
    // open() returns the lowest free number, which must be this one.
    if (open("/dev/null", O_RDWR) != number) return false;
  }
  return true;
}

}  // namespace tool
