#pragma once

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "KivPlatform/KivRESTService/policy/TransferSettings.h"
#include "Tests/KivPlatform/KivRESTService/Load.h"
#include "Tests/Support/LoopbackServer.h"
#include "Tests/Support/LoopbackServerSockets.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace kiv::test {

/// A test with a client, a server and a mirror. The first call of client() creates the client with
/// the current settings.
class ClientFixture : public testing::Test {
 protected:
  [[nodiscard]] KivRESTService& client() {
    if (!client_) client_ = std::make_unique<KivRESTService>(settings_);
    return *client_;
  }
  /// Destroys the client as at the end of its process. The next call of client() creates another
  /// one.
  void endClient() { client_.reset(); }

  /// Makes the client keep large bodies on disk.
  void spool() {
    settings_.spoolDirectory = directory_.path("spool");
    settings_.largestBodyInMemory = 1000;
  }

  /// The URL of a path of the server.
  [[nodiscard]] std::string url(std::string_view path = "/a") const { return server_.url(path); }
  /// The URLs of a path of the server and of the mirror.
  [[nodiscard]] std::vector<std::string> urls(std::string_view path = "/a") const {
    return {server_.url(path), mirror_.url(path)};
  }

  /// Runs a task for these URLs to completion.
  [[nodiscard]] Load loaded(const std::vector<std::string>& urls) {
    Load load(client(), urls);
    EXPECT_TRUE(load.waitForEnd());
    return load;
  }
  [[nodiscard]] Load loaded(const std::string& url) { return loaded(std::vector{url}); }
  [[nodiscard]] Load loaded() { return loaded(url()); }

  /// Queues a task for the URL, with a handler.
  std::shared_ptr<KivRESTServiceTask> queue(
      const std::string& url, KivRESTServiceTask::CompletionHandler handler = nullptr) {
    auto task = Load::makeTask({url});
    task->setCompletionHandler(std::move(handler));
    client().queue(task);
    return task;
  }

  const TemporaryDirectory directory_;
  kiv::TransferSettings settings_ = kiv::defaultTransferSettings();
  LoopbackServer server_;
  LoopbackServer mirror_;

 private:
  std::unique_ptr<KivRESTService> client_;
};

}  // namespace kiv::test
