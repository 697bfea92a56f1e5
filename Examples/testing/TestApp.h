#pragma once

#include <KivResource/KivResource.h>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "AdSlots.h"
#include "FakeNetwork.h"
#include "ManualClock.h"

/// A folder of its own, which is removed with everything in it.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  [[nodiscard]] std::string path(const std::string& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

/// Counts what observers of the manager are told.
struct Callbacks final : KivResourceManagerObserver {
  int loaded = 0;
  int failed = 0;
  int finished = 0;

  void resourceManager_didLoadResource(const std::shared_ptr<KivResourceManager>&,
                                       const std::shared_ptr<KivResource>&) override {
    ++loaded;
  }
  void resourceManager_didFailToLoadResource_withError(const std::shared_ptr<KivResourceManager>&,
                                                       const std::shared_ptr<KivResource>&,
                                                       const std::optional<kiv::Error>&) override {
    ++failed;
  }
  void resourceManagerDidFinishLoading(const std::shared_ptr<KivResourceManager>&) override {
    ++finished;
  }
};

/// The application under test on a storage root, with the slots "start" and "page": a cache of its
/// own, and nothing real around it but the folder. The main queue is drained by the test alone, so
/// everything happens on the thread of the test, in one order.
class TestApp {
 public:
  static constexpr const char* mainServer = "https://main.test/";
  static constexpr const char* mirror = "https://mirror.test/";

  explicit TestApp(const std::string& root);
  ~TestApp();
  TestApp(const TestApp&) = delete;
  TestApp& operator=(const TestApp&) = delete;

  /// Starts a pass with a configuration of these items.
  void load(const std::vector<kiv::Dictionary>& items);
  /// Lets everything happen that waits for nothing: neither for the test, nor for the clock.
  void settle();
  /// The same after some time.
  void pass(kiv::Timers::Time time);
  /// What was told since the last call: loaded, failed, finished.
  std::string takeCallbacks();
  /// What was drawn since the last call: the slot and the contents of the file.
  std::vector<std::string> takeDrawn();

  const std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();
  const std::shared_ptr<FakeNetwork> network = std::make_shared<FakeNetwork>(clock);
  /// For an updater of the test.
  const std::shared_ptr<FakeNetwork> configNetwork = std::make_shared<FakeNetwork>(clock);
  std::shared_ptr<KivResourceCache> cache;
  std::shared_ptr<KivResourceManager> manager;
  std::shared_ptr<AdSlots> slots;
  std::string drawnPath;  ///< The last one.

 private:
  std::shared_ptr<Callbacks> callbacks_ = std::make_shared<Callbacks>();
  std::vector<std::string> drawn_;
};

/// The item of a banner in the slot "start", and of a page in the slot "page".
kiv::Dictionary banner(const std::string& ID, int updated, const std::string& link,
                       int priority = 1);
kiv::Dictionary page(const std::string& ID, int updated, const std::string& link);
/// The text of a configuration.
std::string configOf(const std::vector<kiv::Dictionary>& items);
/// The contents of a file; "(no file)" if there is none.
std::string contentsOf(const std::string& path);
