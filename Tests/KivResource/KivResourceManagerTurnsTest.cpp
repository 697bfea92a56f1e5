// Downloads that complete in one turn of the queue must have the same result as downloads that
// complete in separate turns: the same registry, list, files and callbacks.
//
// Each scenario is run twice, on separate storage, and the states are compared after every turn of
// the second run. KIVRESOURCE_TURN_SCENARIOS sets the number of scenarios (default 2,000);
// KIVRESOURCE_TEST_SEED repeats those of an earlier run.

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iostream>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KivPlatform/AppConfiguration/KivAppConfiguration.h"
#include "KivPlatform/Foundation/system/Bundle.h"
#include "KivPlatform/Foundation/values/JSON.h"
#include "KivResource/KivResourceManager.h"
#include "Tests/Support/FakeRESTService.h"
#include "Tests/Support/FaultyFileManager.h"
#include "Tests/Support/LogCapture.h"
#include "Tests/Support/ReadFile.h"
#include "Tests/Support/RecordingObserver.h"
#include "Tests/Support/TemporaryDirectory.h"
#include "Tests/Support/ZipBuilder.h"

namespace kiv::test {
namespace {

namespace fs = std::filesystem;

// --- Scenarios -----------------------------------------------------------------------------------

enum class Result { file, otherBytes, notFound, broken, nothing };

/// One call to a manager. For a completion, `number` selects one of the pending tasks and is part
/// of the downloaded bytes.
struct Event {
  enum class Kind { complete, update, load, loadType, stop, addObserver, removeObserver };
  Kind kind = Kind::complete;
  unsigned number = 0;
  Result result = Result::file;
  kiv::Array items = {};
};

/// Events that are performed in one turn in the shared run, and in separate turns in the other run.
struct Turn {
  enum class Before { nothing, restart, restartByLink, breakList, healList };
  Before before = Before::nothing;
  std::vector<Event> events;
};

using Scenario = std::vector<Turn>;

/// Generates scenarios with few names and identifiers, so that they often collide.
class Maker {
 public:
  explicit Maker(std::uint64_t seed) : random_(seed) {}

  Scenario scenario() {
    Scenario turns;
    const unsigned count = 2 + below(6);
    for (unsigned turn = 0; turn < count; ++turn)
      turns.push_back(this->turn());
    Turn last;
    last.events.assign(12, Event{});
    turns.push_back(last);
    return turns;
  }

 private:
  unsigned below(unsigned bound) { return static_cast<unsigned>(random_() % bound); }
  bool oneOf(unsigned chances) { return below(chances) == 0; }

  template <std::size_t count>
  std::string any(const char* const (&names)[count]) {
    return names[below(count)];
  }

  Turn turn() {
    Turn turn;
    if (oneOf(3)) turn.before = static_cast<Turn::Before>(1 + below(4));
    turn.events.push_back(pass());
    const unsigned completions = below(9);
    for (unsigned count = 0; count < completions; ++count)
      turn.events.push_back(oneOf(9) ? call() : completion());
    // Moves the pass to the end, so that its downloads complete in later turns.
    if (oneOf(2)) std::rotate(turn.events.begin(), turn.events.begin() + 1, turn.events.end());
    return turn;
  }

  Event completion() {
    Event event;
    event.number = below(1000);
    event.result = oneOf(4) ? static_cast<Result>(below(5)) : Result::file;
    return event;
  }

  Event call() {
    switch (below(5)) {
      case 0:
        return Event{Event::Kind::stop};
      case 1:
        return Event{Event::Kind::addObserver};
      case 2:
        return Event{Event::Kind::removeObserver};
      default:
        return pass();
    }
  }

  Event pass() {
    Event event;
    constexpr Event::Kind kinds[] = {Event::Kind::update, Event::Kind::update, Event::Kind::load,
                                     Event::Kind::loadType};
    event.kind = kinds[below(4)];
    const unsigned count = 1 + below(5);
    for (unsigned item = 0; item < count; ++item)
      event.items.append(this->item());
    return event;
  }

  kiv::Dictionary item() {
    const char* const identifiers[] = {"1", "2", "3", "4"};
    const char* const types[] = {"t", "u"};
    kiv::Dictionary item{{"name", "n"},
                         {"type", any(types)},
                         {"banner_id", any(identifiers)},
                         {"priority", 1},
                         {"updated", 1 + below(4)}};
    switch (below(7)) {
      case 0:
      case 1:
        item.set("engine", "eco_standard");
        item.set("market_url", "m");
        item.set("image_728x90", file());
        break;
      case 2:
      case 3:
        item.set("engine", "eco_video");
        item.set("title", "t");
        item.set("market_url", "m");
        item.set("image", file());
        item.set("video_file_landscape", file());
        break;
      case 4:
      case 5:
        item.set("engine", "eco_fs");
        item.set("html", page());
        break;
      default:
        item.set("engine", "eco_other");
    }
    return item;
  }

  /// A path with a placeholder for the storage root, which Play replaces.
  std::string file() {
    const char* const links[] = {"x/a.png", "y/a.png", "b.png", "p",
                                 "q.png",   "c.png",   "d.png", "ROOT/KivResource/Resources/a.png"};
    return any(links);
  }
  std::string page() {
    const char* const links[] = {"x/p.zip", "y/p.zip",    "q.zip", "q.png.zip",
                                 "p",       "index.html", "a.png", "ROOT/KivResource/Resources/p"};
    return any(links);
  }

  std::mt19937_64 random_;
};

// --- Running a scenario --------------------------------------------------------------------------

std::string bytesFor(const std::string& url, unsigned number, Result result) {
  const std::string bytes = "bytes " + std::to_string(number);
  if (!url.ends_with(".zip")) return bytes;
  if (result == Result::otherBytes) return bytes;  // not an archive
  return ZipBuilder().addFile("index.html", bytes).addFile("pic.png", bytes).build();
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at))
    text.replace(at, from.size(), to);
  return text;
}

class Play {
 public:
  enum class Turns { shared, own };

  explicit Play(Turns turns) : turns_(turns) {
    fs::create_directories(directory_.path("root/KivResource"));
    fs::create_symlink(directory_.path("root"), directory_.path("link"));
    kiv::Bundle::setFrameworkResourcesPath(directory_.path("packaged"));
    KivAppConfiguration::sharedInstance()->setMainACSDomain("http://main.test");
    start(directory_.path("root"));
  }
  Play(const Play&) = delete;
  Play& operator=(const Play&) = delete;
  ~Play() {
    manager_->loader()->canselLoading();
    kiv::DispatchQueue::main()->drain();
    KivStorageService::setRootPath(std::nullopt);
    kiv::Bundle::setFrameworkResourcesPath(std::nullopt);
    KivAppConfiguration::sharedInstance()->setMainACSDomain(std::nullopt);
  }

  void perform(const Turn& turn) {
    prepare(turn.before);
    if (turns_ == Turns::own) {
      for (const Event& event : turn.events)
        perform(event);  // not inside a job, so its effects are immediate
    } else {
      kiv::DispatchQueue::main()->async([this, &turn] {
        for (const Event& event : turn.events)
          perform(event);
      });
    }
    drain();
  }

  /// The visible state of the manager as text, without the path of its storage root.
  [[nodiscard]] std::string state() const {
    std::ostringstream text;
    text << "downloads " << manager_->loadingResourcesFilesCount() << "\nregistry\n";
    for (const auto& resource : *manager_->loadedResources()) {
      text << "  " << resource->resourceID() << " " << resource->updated() << " "
           << kiv::JSON::toCompactString(*resource->resourceDictionary()) << "\n";
    }
    text << "files\n" << files() << "callbacks\n";
    for (const auto& observer : observers_) {
      for (const std::string& event : observer->events)
        text << "  " << event << "\n";
      text << "  --\n";
    }
    std::string shown = replaced(text.str(), directory_.path("root"), "ROOT");
    return replaced(std::move(shown), directory_.path("link"), "LINK");
  }

 private:
  static void drain() {
    while (kiv::DispatchQueue::main()->drain() > 0) {
    }
  }

  void start(const std::string& root) {
    if (manager_) manager_->loader()->canselLoading();
    KivStorageService::setRootPath(root);
    root_ = root;
    manager_ = KivResourceManager::newInstance();
    client_ = std::make_shared<FakeRESTService>();
    manager_->loader()->setRestService(client_);
    addObserver();
  }

  void addObserver() {
    observers_.push_back(std::make_shared<RecordingObserver>());
    manager_->addObserver(observers_.back());
  }

  void prepare(Turn::Before before) {
    switch (before) {
      case Turn::Before::nothing:
        break;
      case Turn::Before::restart:
        start(directory_.path("root"));
        break;
      case Turn::Before::restartByLink:
        start(directory_.path("link"));
        break;
      case Turn::Before::breakList:
        files_.setFailingMove(listPath());
        break;
      case Turn::Before::healList:
        files_.setFailingMove("");
        break;
    }
  }

  [[nodiscard]] std::string listPath() const {
    return root_ + "/KivResource/resources_config.json";
  }

  void perform(const Event& event) {
    using Kind = Event::Kind;
    switch (event.kind) {
      case Kind::complete:
        return complete(event);
      case Kind::update:
        return manager_->updateResourcesForConfig(config(event));
      case Kind::load:
        return manager_->loadResourcesForConfig(config(event));
      case Kind::loadType:
        return manager_->loadResourcesWithType_forConfig("t", config(event));
      case Kind::stop:
        return manager_->stopLoading();
      case Kind::addObserver:
        return addObserver();
      case Kind::removeObserver:
        return manager_->removeObserver(observers_.back());
    }
  }

  [[nodiscard]] kiv::Value config(const Event& event) const {
    const std::string text = kiv::JSON::toCompactString(event.items);
    auto items = kiv::JSON::read(kiv::Data(replaced(text, "ROOT", root_)));
    return kiv::Dictionary{{"items", std::move(items).value_or(kiv::Value())}};
  }

  void complete(const Event& event) {
    if (client_->tasks.empty()) return;
    const auto task = client_->tasks[event.number % client_->tasks.size()];
    std::erase(client_->tasks, task);
    std::optional<kiv::HTTPResponse> response(kiv::HTTPResponse(200));
    std::optional<kiv::Data> data;
    std::optional<kiv::Error> error;
    switch (event.result) {
      case Result::file:
      case Result::otherBytes:
        data.emplace(bytesFor(task->request()->url.absoluteString(), event.number, event.result));
        break;
      case Result::notFound:
        response = kiv::HTTPResponse(404);
        break;
      case Result::broken:
        error = FakeRESTService::transferError();
        break;
      case Result::nothing:
        break;
    }
    FakeRESTService::endTask(*task, response, std::move(data), std::move(error));
  }

  [[nodiscard]] std::string files() const {
    std::map<std::string, std::string> contents;
    for (const auto& entry :
         fs::recursive_directory_iterator(directory_.path("root/KivResource"))) {
      contents[entry.path()] = entry.is_directory() ? "a directory" : readFile(entry.path());
    }
    std::string text;
    for (const auto& [path, bytes] : contents)
      text.append("  ").append(path).append(": ").append(bytes).append("\n");
    // The versions of stored files differ: inode numbers and times.
    constexpr std::string_view version = "\"file\": [";
    for (auto place = text.find(version); place != text.npos; place = text.find(version, place))
      text.erase(place, text.find(']', place) - place);
    return text;
  }

  const Turns turns_;
  LogCapture log_;
  TemporaryDirectory directory_;
  FaultyFileManager files_;
  std::string root_;
  std::shared_ptr<KivResourceManager> manager_;
  std::shared_ptr<FakeRESTService> client_;
  std::vector<std::shared_ptr<RecordingObserver>> observers_;
};

std::vector<std::string> states(const Scenario& scenario, Play::Turns turns) {
  Play play(turns);
  std::vector<std::string> states;
  for (const Turn& turn : scenario) {
    play.perform(turn);
    states.push_back(play.state());
  }
  return states;
}

std::uint64_t fromEnvironment(const char* name, std::uint64_t otherwise) {
  const char* const given = std::getenv(name);
  return given ? std::strtoull(given, nullptr, 10) : otherwise;
}

TEST(KivResourceManagerTurnsTest, SharedTurnsLeaveWhatTurnsOfTheirOwnLeave) {
  const auto seed = fromEnvironment("KIVRESOURCE_TEST_SEED", std::random_device()());
  const auto scenarios = fromEnvironment("KIVRESOURCE_TURN_SCENARIOS", 2000);
  std::cout << "KIVRESOURCE_TEST_SEED=" << seed << std::endl;
  std::uint64_t different = 0;
  for (std::uint64_t number = 0; number < scenarios; ++number) {
    const Scenario scenario = Maker(seed + number).scenario();
    const auto own = states(scenario, Play::Turns::own);
    const auto shared = states(scenario, Play::Turns::shared);
    if (own == shared) continue;
    ++different;
    const auto first = std::mismatch(own.begin(), own.end(), shared.begin());
    ADD_FAILURE() << "scenario of seed " << seed + number << ", turn " << first.first - own.begin()
                  << "\n--- turns of their own\n"
                  << *first.first << "--- shared turns\n"
                  << *first.second;
    if (different == 3) break;
  }
  EXPECT_EQ(different, 0U) << "of " << scenarios;
}

}  // namespace
}  // namespace kiv::test
