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

/// A test with a manager on real storage and a client that the test answers for. Everything runs on
/// the test's own thread, which is the main one; callbacks arrive when the test drains them.
class ManagerFixture : public CacheFixture {
 protected:
  ManagerFixture() {
    KivAppConfiguration::sharedInstance()->setMainACSDomain("http://main.test/files");
    restart();
  }

  ~ManagerFixture() override {
    // A download that a test leaves in flight holds its manager, and that its client.
    manager->loader()->canselLoading();
    kiv::DispatchQueue::main()->drain();
  }

  /// A new manager on the same storage, as after a restart of the host, with a new client.
  void restart() {
    kiv::DispatchQueue::main()->drain();
    if (manager) manager->loader()->canselLoading();
    manager = KivResourceManager::newInstance();
    client = std::make_shared<FakeRESTService>();
    manager->loader()->setRestService(client);
    observer = std::make_shared<RecordingObserver>();
    manager->addObserver(observer);
  }

  /// The events since the last call, in order.
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

  /// Begin a pass with a configuration of the items.
  void beginLoad(std::initializer_list<kiv::Dictionary> items) {
    manager->loadResourcesForConfig(config(items));
  }
  void beginUpdate(std::initializer_list<kiv::Dictionary> items) {
    manager->updateResourcesForConfig(config(items));
  }

  /// The resource at that place of the registry.
  [[nodiscard]] std::shared_ptr<KivResource> entry(std::size_t index) const {
    return (*manager->loadedResources())[index];
  }

  /// Brings the items into the registry by a load pass whose downloads all succeed, and forgets
  /// what was heard.
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
