#include "TestApp.h"

#include <fstream>
#include <iostream>
#include <iterator>
#include <random>
#include <string_view>
#include <utility>

#include <gtest/gtest.h>

TemporaryFolder::TemporaryFolder() {
  std::random_device random;
  do {
    path_ = std::filesystem::path(testing::TempDir()) / ("ad-slots-" + std::to_string(random()));
  } while (!std::filesystem::create_directory(path_));  // false if another test has it
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

TestApp::TestApp(const std::string& root) {
  // Tests leave nothing in the log of the system.
  kiv::SystemLog::setHandler([](std::string_view line) { std::cerr << std::string(line) + "\n"; });
  KivResourceCacheOptions options;
  options.rootPath = root;
  options.mainACSDomain = mainServer;
  options.reserveACSDomain = mirror;
  options.packagedResourcesPath = "";  // whatever the framework ships has no effect on the tests
  cache = KivResourceCache::open(options);
  manager = cache->manager();
  manager->setLoader(std::make_shared<KivResourceRESTModule>(network));
  manager->addObserver(callbacks_);
  slots = AdSlots::open(manager, {"start", "page"},
                        [this](const std::string& slot, const std::string& path) {
                          drawnPath = path;
                          drawn_.push_back(slot + ": " + (path.empty() ? "" : contentsOf(path)));
                        });
}

TestApp::~TestApp() {
  slots.reset();
  settle();  // no job of this application is left for the next test
}

void TestApp::load(const std::vector<kiv::Dictionary>& items) {
  slots->load(*kiv::JSON::read(configOf(items)));
}

void TestApp::settle() {
  const auto main = kiv::DispatchQueue::main();
  do {
    while (main->drain() > 0) {
    }
  } while (network->answer() || configNetwork->answer());
}

void TestApp::pass(kiv::Timers::Time time) {
  clock->advance(time);
  settle();
}

std::string TestApp::takeCallbacks() {
  const Callbacks told = std::exchange(*callbacks_, {});
  return std::to_string(told.loaded) + " loaded, " + std::to_string(told.failed) + " failed, " +
         std::to_string(told.finished) + " finished";
}

std::vector<std::string> TestApp::takeDrawn() {
  return std::exchange(drawn_, {});
}

kiv::Dictionary banner(const std::string& ID, int updated, const std::string& link, int priority) {
  return {{"engine", "eco_standard"},
          {"name", ID},
          {"type", "start"},
          {"banner_id", ID},
          {"priority", priority},
          {"updated", updated},
          {"market_url", "https://market.test"},
          {"image_728x90", link}};
}

kiv::Dictionary page(const std::string& ID, int updated, const std::string& link) {
  return {{"engine", "eco_fs"}, {"name", ID},         {"type", "page"}, {"banner_id", ID},
          {"priority", 1},      {"updated", updated}, {"html", link}};
}

std::string configOf(const std::vector<kiv::Dictionary>& items) {
  kiv::Array array;
  for (const kiv::Dictionary& item : items)
    array.append(item);
  return kiv::JSON::toCompactString(kiv::Dictionary{{"items", array}});
}

std::string contentsOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return "(no file)";
  return {std::istreambuf_iterator<char>(file), {}};
}
