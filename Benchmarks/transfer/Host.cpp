// A minimal host: loads a configuration into a storage root and waits for the callbacks.
//
//     kivresource-transfer-host ROOT SERVER CONFIGURATION
//
// Fails if a resource did not become ready.

#include <cstdio>
#include <memory>
#include <string>

#include "KivResource/KivResource.h"

namespace {

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
    kiv::DispatchQueue::main()->stop();
  }

  std::size_t ready = 0;
  std::size_t failed = 0;
};

}  // namespace

int main(int count, char** arguments) {
  if (count != 4) {
    std::fputs("usage: kivresource-transfer-host ROOT SERVER CONFIGURATION\n", stderr);
    return 2;
  }
  KivStorageService::setRootPath(arguments[1]);
  KivAppConfiguration::sharedInstance()->setMainACSDomain(arguments[2]);
  kiv::SystemLog::setHandler([](std::string_view) {});
  const auto text = kiv::FileManager::defaultManager().contentsAtPath(arguments[3]);
  const kiv::Value config = text ? kiv::JSON::read(*text).value_or(nullptr) : nullptr;
  if (config.isNull()) {
    std::fprintf(stderr, "%s is no configuration\n", arguments[3]);
    return 2;
  }
  const auto manager = KivResourceManager::sharedInstance();
  const auto observer = std::make_shared<Observer>();
  manager->addObserver(observer);
  manager->updateResourcesForConfig(config);
  kiv::DispatchQueue::main()->run();
  const auto wanted = config.dictionary()["items"].array().size();
  if (observer->ready == wanted && observer->failed == 0) return 0;
  std::fprintf(stderr, "%zu of %zu resources are ready\n", observer->ready, wanted);
  return 1;
}
