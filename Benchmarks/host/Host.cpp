// The host that the benchmarks measure: loads a configuration into a storage root and waits for the
// end of the pass.
//
//     kivresource-bench-host [OPTION]... ROOT SERVER CONFIGURATION
//
//     --http1              does not offer HTTP/2
//     --authorities=FILE   trusts these certificate authorities only
//     --bandwidth=BYTES    the limit per second
//     --add                loads the configuration without removing what it does not name
//     --ping               prints how long a job had to wait for the manager's queue, at most
//     --drain              runs the queue by drain(), as a toolkit's event loop does, and prints
//                          the time of the longest call
//     --stop-after=MS      stops loading that long after the start of the pass, and prints how
//                          long that took, from the request on another thread; nothing if the
//                          pass had ended
//
// Times are printed in milliseconds. Fails if a resource did not become ready, unless it was
// stopped.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <semaphore>
#include <string>
#include <string_view>
#include <vector>

#include "Benchmarks/host/QueueProbe.h"
#include "KivResource/KivResource.h"

namespace {

struct Options {
  KivRESTServiceSettings settings;
  bool removesOthers = true;
  bool ping = false;
  bool drain = false;
  std::chrono::milliseconds stopAfter{0};
  std::vector<std::string> names;
};

class Observer : public KivResourceManagerObserver {
 public:
  void resourceManager_didLoadResource(const std::shared_ptr<KivResourceManager>&,
                                       const std::shared_ptr<KivResource>&) override {
    ++ready;
  }
  void resourceManager_didFailToLoadResource_withError(
      const std::shared_ptr<KivResourceManager>&, const std::shared_ptr<KivResource>&,
      const std::optional<kiv::Error>& error) override {
    if (++failed == 1 && error) std::fprintf(stderr, "%s\n", error->description().c_str());
  }
  void resourceManagerDidFinishLoading(const std::shared_ptr<KivResourceManager>&) override {
    finished = true;
    kiv::DispatchQueue::main()->stop();
  }

  bool finished = false;
  std::size_t ready = 0;
  std::size_t failed = 0;
};

std::optional<Options> optionsOf(int count, char** arguments) {
  Options options;
  for (int index = 1; index < count; ++index) {
    const std::string_view argument = arguments[index];
    const auto value = argument.substr(std::min(argument.find('=') + 1, argument.size()));
    if (argument == "--http1") {
      options.settings.http2 = false;
    } else if (argument.starts_with("--authorities=")) {
      options.settings.certificateAuthoritiesPath = value;
    } else if (argument.starts_with("--bandwidth=")) {
      options.settings.bandwidth = std::atoll(value.data());
    } else if (argument == "--add") {
      options.removesOthers = false;
    } else if (argument == "--ping") {
      options.ping = true;
    } else if (argument == "--drain") {
      options.drain = true;
    } else if (argument.starts_with("--stop-after=")) {
      options.stopAfter = std::chrono::milliseconds(std::atoi(value.data()));
    } else if (argument.starts_with("--")) {
      return std::nullopt;
    } else {
      options.names.emplace_back(argument);
    }
  }
  if (options.names.size() != 3) return std::nullopt;
  return options;
}

/// Calls drain() whenever jobs are waiting, until the pass has finished. Returns the time of the
/// longest call in milliseconds.
double drainUntilFinished(const Observer& observer) {
  const auto queue = kiv::DispatchQueue::main();
  std::binary_semaphore wakeUp{0};
  std::atomic<bool> awake = false;
  queue->setWakeUpHandler([&] {
    if (!awake.exchange(true)) wakeUp.release();
  });
  std::chrono::duration<double, std::milli> longest{0};
  while (!observer.finished) {
    wakeUp.acquire();
    awake = false;
    const auto begin = std::chrono::steady_clock::now();
    queue->drain();
    longest = std::max<decltype(longest)>(longest, std::chrono::steady_clock::now() - begin);
  }
  queue->setWakeUpHandler({});
  return longest.count();
}

/// Runs the pass until its finish callback.
void load(const Options& options, const kiv::Value& config, const Observer& observer) {
  const auto manager = KivResourceManager::sharedInstance();
  const auto queue = kiv::DispatchQueue::main();
  std::optional<kiv::bench::QueueProbe> probe;
  if (options.ping) probe.emplace(queue);
  std::optional<kiv::bench::StopProbe> stop;
  if (options.stopAfter.count() > 0) {
    stop.emplace(queue, options.stopAfter, [manager] { manager->stopLoading(); });
  }
  if (options.removesOthers) {
    manager->updateResourcesForConfig(config);
  } else {
    manager->loadResourcesForConfig(config);
  }
  if (options.drain) {
    const double longest = drainUntilFinished(observer);
    if (options.stopAfter.count() == 0) std::printf("measured: %.1f\n", longest);
  } else {
    queue->run();
  }
  if (probe) std::printf("measured: %.1f\n", probe->longestWait());
  if (stop && stop->took() >= 0) std::printf("measured: %.1f\n", stop->took());
}

}  // namespace

int main(int count, char** arguments) {
  const auto options = optionsOf(count, arguments);
  if (!options) {
    std::fputs("usage: kivresource-bench-host [OPTION]... ROOT SERVER CONFIGURATION\n", stderr);
    return 2;
  }
  KivStorageService::setRootPath(options->names[0]);
  KivAppConfiguration::sharedInstance()->setMainACSDomain(options->names[1]);
  KivRESTService::setDefaultSettings(options->settings);
  kiv::SystemLog::setHandler([](std::string_view) {});
  const auto text = kiv::FileManager::defaultManager().contentsAtPath(options->names[2]);
  const kiv::Value config = text ? kiv::JSON::read(*text).value_or(nullptr) : nullptr;
  if (config.isNull()) {
    std::fprintf(stderr, "%s is no configuration\n", options->names[2].c_str());
    return 2;
  }
  const auto observer = std::make_shared<Observer>();
  KivResourceManager::sharedInstance()->addObserver(observer);
  load(*options, config, *observer);
  const auto wanted = config.dictionary()["items"].array().size();
  if (options->stopAfter.count() > 0) return 0;
  if (observer->ready == wanted && observer->failed == 0) return 0;
  std::fprintf(stderr, "%zu of %zu resources are ready\n", observer->ready, wanted);
  return 1;
}
