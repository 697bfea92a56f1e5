#include "KivPlatform/Foundation/system/BootIdentity.h"

#if defined(__APPLE__)
#include <sys/sysctl.h>
#elif defined(__linux__)
#include <fstream>
#endif

std::string kiv::bootIdentity() {
  std::string identity;
#if defined(__APPLE__)
  char text[64] = {};
  std::size_t size = sizeof text;
  if (::sysctlbyname("kern.bootsessionuuid", text, &size, nullptr, 0) == 0) identity = text;
#elif defined(__linux__)
  std::ifstream("/proc/sys/kernel/random/boot_id") >> identity;
#endif
  return identity;
}
