#pragma once

#include <string>

#include "Tests/Support/LoopbackServer.h"
#include "Tests/Support/MainQueue.h"
#include "Tests/Support/ManagerFixture.h"

namespace kiv::test {

/// A test with a manager that uses its real client, and a server on the loopback interface.
class RealClientFixture : public ManagerFixture {
 protected:
  RealClientFixture() { useServer(server.url()); }

  /// Creates a new manager with its real client, as after a restart of the host.
  void restart() {
    ManagerFixture::restart();
    manager->setLoader(std::make_shared<KivResourceRESTModule>());
  }

  /// Sets the main server's URL and restarts.
  void useServer(const std::string& url) {
    KivAppConfiguration::sharedInstance()->setMainACSDomain(url);
    restart();
  }

  [[nodiscard]] bool waitForFinishes(std::size_t count = 1) const {
    return waitUntil([&] { return observer->count("finished") >= count; });
  }

  /// Runs an update pass to completion.
  void update(std::initializer_list<Dictionary> items) {
    observer->clear();
    beginUpdate(items);
    ASSERT_TRUE(waitForFinishes());
  }

  LoopbackServer server;
};

}  // namespace kiv::test
