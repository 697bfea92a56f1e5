#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "KivPlatform/Foundation/queues/DispatchQueue.h"
#include "KivPlatform/Foundation/values/JSON.h"
#include "KivResource/KivResourceManager.h"
#include "Tests/Support/CacheFixture.h"
#include "Tests/Support/FakeRESTService.h"
#include "Tests/Support/LogCapture.h"
#include "Tests/Support/RecordingObserver.h"
#include "Tests/Support/ResourceItems.h"

namespace kiv::test {

/// A test with a manager on real storage and a fake client. Everything runs on the main thread,
/// which is the thread of the test; callbacks run when the test drains the main queue.
class ManagerFixture : public CacheFixture {
 protected:
  ManagerFixture() {
    KivAppConfiguration::sharedInstance()->setMainACSDomain("http://main.test/files");
    restart();
  }

  ~ManagerFixture() override {
    // A pending download owns its manager, which owns its client: completing it breaks the cycle.
    manager->loader()->canselLoading();
    kiv::DispatchQueue::main()->drain();
  }

  /// Creates a new manager and client on the same storage, as after a restart of the host.
  void restart() {
    kiv::DispatchQueue::main()->drain();
    if (manager) manager->loader()->canselLoading();
    manager = KivResourceManager::newInstance();
    client = std::make_shared<FakeRESTService>();
    manager->loader()->setRestService(client);
    observer = std::make_shared<RecordingObserver>();
    manager->addObserver(observer);
  }

  /// Returns and clears the recorded events.
  std::vector<std::string> takeEvents() {
    while (kiv::DispatchQueue::main()->drain() > 0) {
    }
    return std::exchange(observer->events, {});
  }

  /// The identifiers in the registry, in order.
  [[nodiscard]] std::vector<std::string> registry() const {
    std::vector<std::string> identifiers;
    for (const auto& resource : *manager->loadedResources()) {
      identifiers.push_back(resource->resourceID());
    }
    return identifiers;
  }

  /// The dictionaries of the saved list on disk.
  [[nodiscard]] kiv::Array savedList() const {
    const auto list = kiv::JSON::read(kiv::Data(read(listPath())));
    return list ? list->array() : kiv::Array();
  }

  static constexpr auto banner = &bannerOf;
  static constexpr auto video = &videoOf;
  static constexpr auto page = &pageOf;
  static constexpr auto plain = &plainOf;

  static kiv::Value config(std::initializer_list<kiv::Dictionary> items) {
    kiv::Array array;
    for (const auto& item : items)
      array.append(item);
    return kiv::Dictionary{{"items", array}};
  }

  /// Starts a pass with a configuration that contains the items.
  void beginLoad(std::initializer_list<kiv::Dictionary> items) {
    manager->loadResourcesForConfig(config(items));
  }
  void beginUpdate(std::initializer_list<kiv::Dictionary> items) {
    manager->updateResourcesForConfig(config(items));
  }

  /// The resource at that index of the registry.
  [[nodiscard]] std::shared_ptr<KivResource> entry(std::size_t index) const {
    return (*manager->loadedResources())[index];
  }

  /// Runs a load pass with the items in which every download succeeds, and clears the recorded
  /// events.
  void load(std::initializer_list<kiv::Dictionary> items) {
    beginLoad(items);
    while (!client->tasks.empty())
      client->succeed("");
    takeEvents();
    observer->clear();
    client->urls.clear();
  }

  std::shared_ptr<KivResourceManager> manager;
  std::shared_ptr<FakeRESTService> client;
  std::shared_ptr<RecordingObserver> observer;
  LogCapture log;
};

using Events = std::vector<std::string>;
using Names = std::vector<std::string>;

}  // namespace kiv::test
