#include "Benchmarks/scale/Rows.h"

#include <stdexcept>
#include <string>

#include "Benchmarks/scale/Reference.h"
#include "KivResource/KivResourceFactory.h"
#include "KivResource/KivResourceManager.h"

namespace kiv::bench {

namespace {

void expect(std::size_t actual, std::size_t expected, std::string_view what) {
  if (actual == expected) return;
  throw std::runtime_error(std::string(what) + ": " + std::to_string(actual) + " instead of " +
                           std::to_string(expected));
}

/// Receives all callbacks on the main queue, as a host does, and counts them.
class Counter final : public KivResourceManagerObserver {
 public:
  void resourceManager_didLoadResource(const std::shared_ptr<KivResourceManager>&,
                                       const std::shared_ptr<KivResource>&) override {
    ++loaded;
  }
  void resourceManagerDidFinishLoading(const std::shared_ptr<KivResourceManager>&) override {
    ++finished;
  }
  std::size_t loaded = 0;
  std::size_t finished = 0;
};

void restore(const Workload& workload, Stopwatch& stopwatch) {
  workload.putWholeList();
  const auto manager = stopwatch.time([] { return KivResourceManager::newInstance(); });
  expect(manager->loadedResources()->size(), workload.size(), "resources restored");
}

/// What a host waits for at its start.
void restoreAndQuery(const Workload& workload, Stopwatch& stopwatch) {
  workload.putWholeList();
  const auto found =
      stopwatch.time([] { return KivResourceManager::newInstance()->allLoadedResources().size(); });
  expect(found, workload.size(), "resources found after restoring");
}

void restoreReference(const Workload& workload, Stopwatch& stopwatch) {
  workload.putWholeList();
  const auto files = stopwatch.time([&] { return readParseAndAskForFiles(workload.listPath()); });
  if (files < workload.size()) throw std::runtime_error("files are missing");
}

void makeResources(const Workload& workload, Stopwatch& stopwatch) {
  workload.putWholeList();
  const auto made = stopwatch.time(
      [&] { return KivResourceFactory::resourcesArrayForResourcesConfig(workload.config()); });
  expect(made.size(), workload.size(), "resources made");
}

/// An update pass with the configuration, from restoring the saved list to the last callback.
void update(const Value& config, std::size_t announced, std::size_t left, Stopwatch& stopwatch) {
  const auto manager = KivResourceManager::newInstance();
  const auto counter = std::make_shared<Counter>();
  manager->addObserver(counter);
  stopwatch.time([&] {
    manager->updateResourcesForConfig(config);
    DispatchQueue::main()->drain();
    return true;
  });
  expect(counter->loaded, announced, "resources announced");
  expect(counter->finished, 1, "passes finished");
  expect(manager->loadedResources()->size(), left, "resources left");
}

void updateCurrent(const Workload& workload, Stopwatch& stopwatch) {
  workload.putWholeList();
  update(workload.config(), workload.size(), workload.size(), stopwatch);
}

void updateWithNewTenth(const Workload& workload, Stopwatch& stopwatch) {
  workload.putListWithoutTenth();
  update(workload.config(), workload.size(), workload.size(), stopwatch);
}

void updateDroppingHalf(const Workload& workload, Stopwatch& stopwatch) {
  workload.putWholeList();
  update(workload.configOfHalf(), workload.half(), workload.half(), stopwatch);
}

void replaceTenth(const Workload& workload, Stopwatch& stopwatch) {
  workload.putWholeList();
  update(workload.configWithNewerTenth(), workload.size(), workload.size(), stopwatch);
}

std::shared_ptr<KivResourceManager> restored(const Workload& workload) {
  workload.putWholeList();
  auto manager = KivResourceManager::newInstance();
  (void)manager->loadedResourcesWithID("");  // the first question makes the index
  return manager;
}

void queryEachIdentifier(const Workload& workload, Stopwatch& stopwatch) {
  const auto manager = restored(workload);
  const auto found = stopwatch.time([&] {
    std::size_t count = 0;
    for (const std::string& identifier : workload.identifiers())
      count += manager->loadedResourcesWithID(identifier).size();
    return count;
  });
  expect(found, workload.size(), "resources found by identifier");
}

void queryEachType(const Workload& workload, Stopwatch& stopwatch) {
  const auto manager = restored(workload);
  const auto found = stopwatch.time([&] {
    std::size_t count = 0;
    for (const std::string& type : Workload::types())
      count += manager->loadedResourcesWithType(type).size();
    return count;
  });
  expect(found, workload.size(), "resources found by type");
}

void queryAll(const Workload& workload, Stopwatch& stopwatch) {
  const auto manager = restored(workload);
  const auto found = stopwatch.time([&] { return manager->allLoadedResources().size(); });
  expect(found, workload.size(), "resources found");
}

void saveList(const Workload& workload, Stopwatch& stopwatch) {
  const auto manager = restored(workload);
  stopwatch.time([&] {
    manager->saveLoadedResorcesList();
    return true;
  });
}

}  // namespace

const std::vector<Row>& rows() {
  static const std::vector<Row> rows = {
      {restoreRow, restore},
      {restoreAndQueryRow, restoreAndQuery},
      {restoreReferenceRow, restoreReference},
      {updateCurrentRow, updateCurrent},
      {factoryReferenceRow, makeResources},
      {"update, a tenth new with stored files", updateWithNewTenth},
      {"update that drops half", updateDroppingHalf},
      {"update that replaces a tenth, files shared", replaceTenth},
      {"query each identifier", queryEachIdentifier},
      {"query each type", queryEachType},
      {"query everything", queryAll},
      {"save the list", saveList},
  };
  return rows;
}

}  // namespace kiv::bench
