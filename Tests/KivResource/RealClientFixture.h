#pragma once

#include <string>

#include "Tests/Support/LoopbackServer.h"
#include "Tests/Support/MainQueue.h"
#include "Tests/Support/ManagerFixture.h"

namespace kiv::test {

/// A test with a manager whose client is its own, and a server on the loopback interface.
class RealClientFixture : public ManagerFixture {
 protected:
  RealClientFixture() { useServer(server.url()); }

  /// A new manager with its own client, as after a restart of the host.
  void restart() {
    ManagerFixture::restart();
    manager->setLoader(std::make_shared<KivResourceRESTModule>());
  }

  /// The same with that URL as the main server's.
  void useServer(const std::string& url) {
    KivAppConfiguration::sharedInstance()->setMainACSDomain(url);
    restart();
  }

  [[nodiscard]] bool waitForFinishes(std::size_t count = 1) const {
    return waitUntil([&] { return observer->count("finished") >= count; });
  }

  /// An update, from its beginning to its end.
  void update(std::initializer_list<Dictionary> items) {
    observer->clear();
    beginUpdate(items);
    ASSERT_TRUE(waitForFinishes());
  }

  LoopbackServer server;
};

}  // namespace kiv::test
