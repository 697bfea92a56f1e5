// A host that loads one resource and exits at the end of its standard input, during the download of
// another one. Run by KivResourceManagerEndToEndTest.
//
//     LeavingHost return|exit|serial root server

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string_view>

#include "KivResource/KivResource.h"
#include "Tests/Support/ResourceItems.h"

namespace {

struct Observer final : KivResourceManagerObserver {
  void resourceManager_didLoadResource(const std::shared_ptr<KivResourceManager>&,
                                       const std::shared_ptr<KivResource>& resource) override {
    if (resource->resourceID() != "whole") std::_Exit(3);
    hasLoaded = true;
  }
  void resourceManager_didFailToLoadResource_withError(const std::shared_ptr<KivResourceManager>&,
                                                       const std::shared_ptr<KivResource>&,
                                                       const std::optional<kiv::Error>&) override {
    std::_Exit(4);
  }
  std::atomic<bool> hasLoaded = false;
};

void startPass(const std::shared_ptr<Observer>& observer) {
  const auto manager = KivResourceManager::sharedInstance();
  manager->addObserver(observer, kiv::DispatchQueue::main());
  manager->loadResourcesForConfig(
      kiv::Dictionary{{"items", kiv::Array{kiv::test::bannerOf("stalls", 1, "stalls.png"),
                                           kiv::test::bannerOf("whole", 1, "whole.png")}}});
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 4) return 2;
  const std::string_view way = arguments[1];
  KivStorageService::setRootPath(arguments[2]);
  KivAppConfiguration::sharedInstance()->setMainACSDomain(arguments[3]);
  const auto observer = std::make_shared<Observer>();
  const auto queue =
      way == "serial" ? kiv::DispatchQueue::serial("manager") : kiv::DispatchQueue::main();
  queue->async([observer] { startPass(observer); });
  while (!observer->hasLoaded)
    kiv::DispatchQueue::main()->drainFor(std::chrono::seconds(1));
  while (std::getchar() != EOF) {
  }
  if (way == "exit") std::exit(0);
  return 0;
}
