#include "Platform/KivRESTService/CurlLibrary.h"

#include <cstdlib>
#include <mutex>
#include <unordered_set>
#include <utility>

#include <curl/curl.h>

namespace kiv {

/// Those that the end of the process has to stop. Never destroyed: more may come and go meanwhile.
struct LivingThreads {
  std::mutex mutex;
  std::unordered_set<const StopAtExit*> all;

  static LivingThreads& shared() {
    static auto& object = *new LivingThreads;
    return object;
  }

  static void stop() {
    const std::lock_guard lock(shared().mutex);
    for (const auto* const living : shared().all)
      living->stop_();
  }
};

bool prepareCurlLibrary() noexcept {
  // Handlers run last in, first out: this one is registered after those of the libraries that
  // libcurl has just prepared, and so runs before them.
  static const bool isReady =
      curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK && std::atexit(&LivingThreads::stop) == 0;
  return isReady;
}

StopAtExit::StopAtExit(std::function<void()> stop) : stop_(std::move(stop)) {
  auto& living = LivingThreads::shared();
  const std::lock_guard lock(living.mutex);
  living.all.insert(this);
}

StopAtExit::~StopAtExit() {
  auto& living = LivingThreads::shared();
  const std::lock_guard lock(living.mutex);
  living.all.erase(this);
}

}  // namespace kiv
