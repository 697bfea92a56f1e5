// If a client still exists at exit, its threads are in libcurl and its TLS library while the atexit
// handlers of these clean up. So another handler, which is registered after theirs and therefore
// runs first, stops the threads.

#include "KivPlatform/KivRESTService/curl/CurlLibrary.h"

#include <cstdlib>
#include <string>
#include <unordered_set>
#include <utility>

#include <curl/curl.h>

#include "KivPlatform/Foundation/Mutex.h"
#include "KivPlatform/Foundation/queues/SerialQueues.h"
#include "KivPlatform/Foundation/system/ForkGuard.h"
#include "KivPlatform/Foundation/values/JSON.h"

namespace kiv {

/// The threads to stop at exit. Never destroyed, since clients may be created and destroyed
/// meanwhile.
struct LivingThreads {
  Mutex stopping;  // held while they are stopped
  Mutex mutex;
  const ForkGuard forkGuard{mutex, ForkGuard::Rank::exit};
  std::unordered_set<const StopAtExit*> all KIV_GUARDED_BY(mutex);

  static LivingThreads& shared() {
    static auto& object = *new LivingThreads;
    return object;
  }

  static void stop() {
    // Does not wait in a child that was forked while its parent was exiting: that would take
    // forever, and the child has nothing to stop.
    if (forkDepth() == 0) {
      shared().stopping.lock();
    } else if (!shared().stopping.try_lock()) {
      return;
    }
    for (const auto* const living : shared().living())
      living->stop_();
    shared().stopping.unlock();
  }

  std::unordered_set<const StopAtExit*> living() {
    const MutexLock lock(mutex);
    return all;
  }
};

bool prepareCurlLibrary() noexcept {
  // atexit handlers run in reverse order. Ours are registered after those of the JSON library and
  // of the libraries that libcurl has just initialised, and so run before them. Jobs of queues use
  // these libraries too.
  static const bool isReady = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK &&
                              JSON::read("[\"\"]").has_value() && stopSerialQueuesAtExit() &&
                              std::atexit(&LivingThreads::stop) == 0;
  return isReady;
}

StopAtExit::StopAtExit(std::function<void()> stop) : stop_(std::move(stop)) {
  auto& living = LivingThreads::shared();
  const MutexLock lock(living.mutex);
  living.all.insert(this);
}

StopAtExit::~StopAtExit() {
  auto& living = LivingThreads::shared();
  const MutexLock stopping(living.stopping);
  const MutexLock lock(living.mutex);
  living.all.erase(this);
}

}  // namespace kiv
