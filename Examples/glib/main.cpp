// A host on GLib's main loop, without a window: loads a configuration and prints the results.
//
//   kivresource-glib DIRECTORY SERVER FILE

#include <KivResource/KivResource.h>
#include <cstdio>
#include <fstream>
#include <glib.h>
#include <iterator>

#include "GLibMainQueue.h"

namespace {

/// Called on the main queue; the manager has its own queue.
struct Listener : KivResourceManagerObserver {
  GMainLoop* loop = nullptr;
  int failures = 0;

  void resourceManager_didLoadResource(const std::shared_ptr<KivResourceManager>&,
                                       const std::shared_ptr<KivResource>& resource) override {
    std::printf("loaded %s\n", kiv::escapingControlCharacters(resource->name()).c_str());
  }
  void resourceManager_didFailToLoadResource_withError(
      const std::shared_ptr<KivResourceManager>&, const std::shared_ptr<KivResource>& resource,
      const std::optional<kiv::Error>& error) override {
    const std::string reason = error ? error->localizedDescription() : "no data came";
    std::printf("failed %s: %s\n", kiv::escapingControlCharacters(resource->name()).c_str(),
                reason.c_str());
    ++failures;
  }
  void resourceManagerDidFinishLoading(const std::shared_ptr<KivResourceManager>&) override {
    g_main_loop_quit(loop);
  }
};

}  // namespace

int main(int count, char** arguments) {
  if (count != 4) {
    std::fprintf(stderr, "usage: %s DIRECTORY SERVER FILE\n", arguments[0]);
    return 2;
  }
  KivStorageService::setRootPath(arguments[1]);
  KivAppConfiguration::sharedInstance()->setMainACSDomain(arguments[2]);
  std::ifstream file(arguments[3], std::ios::binary);
  const kiv::Data text(std::string(std::istreambuf_iterator<char>(file), {}));

  const GLibMainQueue mainQueue;
  const auto listener = std::make_shared<Listener>();
  listener->loop = g_main_loop_new(nullptr, FALSE);
  const auto queue = kiv::DispatchQueue::serial("resources");
  queue->async([listener, text] {
    const auto manager = KivResourceManager::sharedInstance();
    manager->addObserver(listener, kiv::DispatchQueue::main());
    manager->updateResourcesForConfig(kiv::JSON::read(text).value_or(kiv::Value()));
  });
  g_main_loop_run(listener->loop);
  g_main_loop_unref(listener->loop);
  return listener->failures == 0 ? 0 : 1;
}
