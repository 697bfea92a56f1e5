#include "KivPlatform/Foundation/system/PlatformLog.h"

#if __has_include(<syslog.h>)

#include <syslog.h>

void kiv::writePlatformLog(const std::string& line) {
  syslog(LOG_USER | LOG_NOTICE, "%s", line.c_str());
}

#else

void kiv::writePlatformLog(const std::string&) {}

#endif
