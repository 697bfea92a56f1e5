// The handler is copied under the lock and called without it, so that a handler that logs, or waits
// for a thread that logs, does not deadlock.

#include "KivPlatform/Foundation/system/SystemLog.h"

#include <cstdio>
#include <memory>
#include <string>
#include <utility>

#include "KivPlatform/Foundation/Mutex.h"
#include "KivPlatform/Foundation/system/ForkGuard.h"
#include "KivPlatform/Foundation/system/OperatingSystem.h"
#include "KivPlatform/Foundation/text/ControlCharacters.h"

namespace kiv {

namespace {

struct Setting {
  Mutex mutex;
  const ForkGuard forkGuard{mutex, ForkGuard::Rank::log};
  std::shared_ptr<const SystemLog::Handler> handler KIV_GUARDED_BY(mutex);
};

/// Never destroyed: threads may still write while the process exits.
Setting& setting() {
  static auto& shared = *new Setting;
  return shared;
}

/// Created before any thread may hold another mutex that is guarded in this way.
[[maybe_unused]] const Setting& createdAtStart = setting();

std::shared_ptr<const SystemLog::Handler> currentHandler() {
  const MutexLock lock(setting().mutex);
  return setting().handler;
}

}  // namespace

void SystemLog::write(std::string_view line) {
  const std::string clean = escapingControlCharacters(line);
  const auto handler = currentHandler();
  if (!handler) {
    system::writeLog(clean);
    std::fprintf(stderr, "%s\n", clean.c_str());
    return;
  }
  try {
    (*handler)(clean);
  } catch (...) {  // the log is the last resort
  }
}

void SystemLog::setHandler(Handler handler) {
  std::shared_ptr<const Handler> next;
  if (handler) next = std::make_shared<const Handler>(std::move(handler));
  const MutexLock lock(setting().mutex);
  setting().handler.swap(next);  // The former handler is destroyed without the lock.
}

}  // namespace kiv
