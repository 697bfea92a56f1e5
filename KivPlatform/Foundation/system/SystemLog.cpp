#include "KivPlatform/Foundation/system/SystemLog.h"

#include <cstdio>
#include <mutex>
#include <string>
#include <utility>

#include "KivPlatform/Foundation/system/PlatformLog.h"
#include "KivPlatform/Foundation/text/ControlCharacters.h"

namespace kiv {

namespace {

struct Sink {
  std::mutex mutex;
  SystemLog::Handler handler;
};

/// Never destroyed: threads may still write while the process exits.
Sink& sink() {
  static auto& shared = *new Sink;
  return shared;
}

}  // namespace

void SystemLog::write(std::string_view line) {
  const std::string clean = escapingControlCharacters(line);
  Sink& shared = sink();
  const std::lock_guard lock(shared.mutex);
  if (shared.handler) {
    shared.handler(clean);
  } else {
    writePlatformLog(clean);
    std::fprintf(stderr, "%s\n", clean.c_str());
  }
}

void SystemLog::setHandler(Handler handler) {
  const std::lock_guard lock(sink().mutex);
  sink().handler = std::move(handler);
}

}  // namespace kiv
