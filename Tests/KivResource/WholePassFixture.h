#pragma once

#include <algorithm>
#include <map>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "Tests/KivResource/KnownFiles.h"
#include "Tests/Support/ManagerFixture.h"

namespace kiv::test {

/// A pass that is repeated on a root with the same contents each time.
struct WholePass {
  friend void PrintTo(const WholePass& pass, std::ostream* stream) { *stream << pass.title; }

  const char* title;
  bool isUpdate;
  std::vector<Dictionary> before;  ///< loaded when the pass begins
  std::vector<Dictionary> after;   ///< its configuration
  bool isGrouped = false;          ///< all downloads complete in one job
};

/// A test that performs whole passes with known files, each as in a new process.
class WholePassFixture : public ManagerFixture, public testing::WithParamInterface<WholePass> {
 public:
  /// A load, an update that replaces, drops and shares files, and archives that replace each other.
  static std::vector<WholePass> passes() {
    std::vector<WholePass> passes{
        {"Load",
         false,
         {banner("kept", 1, "kept.png")},
         {banner("new", 1, "new.png"), video("film", 1, "icon.png", "film.mp4"),
          banner("kept", 1, "kept.png")}},
        {"Update",
         true,
         {banner("kept", 1, "kept.png"), banner("dropped", 1, "dropped.png"),
          banner("ad", 1, "ad-1.png"), video("film", 1, "icon.png", "film-1.mp4")},
         {banner("kept", 1, "kept.png"), banner("ad", 2, "ad-2.png"),
          video("film", 2, "icon.png", "film-2.mp4"), banner("new", 1, "new.png")}},
        {"Archives",
         true,
         {page("page", 1, "page-1.zip"), page("single", 1, "single-1.html")},
         {page("page", 2, "page-2.zip"), page("single", 2, "single-2.html"),
          page("other", 1, "other.zip")}},
    };
    for (const char* const title : {"GroupedLoad", "GroupedUpdate", "GroupedArchives"}) {
      WholePass grouped = passes[passes.size() - 3];
      grouped.title = title;
      grouped.isGrouped = true;
      passes.push_back(grouped);
    }
    return passes;
  }

 protected:
  using Versions = std::map<std::string, std::uint64_t>;

  /// Prepares the root for the pass and starts a new process on it.
  void begin() {
    leaveRoot();
    std::filesystem::remove_all(root());
    startProcess();
    perform(GetParam().before, false);
    ASSERT_EQ(loadedVersions(), versionsOf(GetParam().before));
    startProcess();
  }

  /// Ends the current process and starts another one on the same root.
  void startProcess() {
    leaveRoot();
    KivStorageService::setRootPath(root());
    restart();
  }

  static void leaveRoot() { KivStorageService::setRootPath(""); }

  /// Runs the pass; all downloads succeed. Returns the events.
  std::vector<std::string> perform(const std::vector<Dictionary>& items, bool isUpdate) {
    Array array;
    for (const auto& item : items)
      array.append(item);
    const Value configuration(Dictionary{{"items", array}});
    if (isUpdate) {
      manager->updateResourcesForConfig(configuration);
    } else {
      manager->loadResourcesForConfig(configuration);
    }
    if (GetParam().isGrouped) {
      DispatchQueue::main()->async([this] { completeDownloads(); });
      DispatchQueue::main()->drain();
    }
    completeDownloads();
    return takeEvents();
  }
  void completeDownloads() {
    while (!client->tasks.empty()) {
      const std::string url = client->tasks.front()->request()->url.absoluteString();
      client->succeed(url, downloadNamed(path::lastPathComponent(url)));
    }
  }
  std::vector<std::string> performThePass() {
    return perform(GetParam().after, GetParam().isUpdate);
  }

  [[nodiscard]] Versions loadedVersions() const {
    Versions versions;
    for (const auto& resource : *manager->loadedResources())
      versions[resource->resourceID()] = resource->updated();
    return versions;
  }
  static Versions versionsOf(const std::vector<Dictionary>& items) {
    Versions versions;
    for (const auto& item : items)
      versions[item["banner_id"].string()] = item["updated"].unsignedInteger();
    return versions;
  }

  void expectEveryLoadedResourceWhole() const {
    for (const auto& resource : *manager->loadedResources())
      EXPECT_TRUE(isWhole(*resource)) << resource->resourceID();
  }

  /// Expects that every resource that was loaded before the pass is loaded, in the old or the new
  /// version. Those that the pass drops may be absent.
  void expectNothingLost() const {
    const auto loaded = loadedVersions();
    const auto next = versionsOf(GetParam().after);
    for (const auto& [identifier, version] : versionsOf(GetParam().before)) {
      if (GetParam().isUpdate && !next.contains(identifier)) continue;
      const auto found = loaded.find(identifier);
      if (found == loaded.end()) {
        ADD_FAILURE() << identifier << " is lost";
      } else {
        EXPECT_TRUE(found->second == version || found->second == next.at(identifier)) << identifier;
      }
    }
  }

  void expectNoTemporary() const {
    const std::string directory = root() + "/.KivStorageService";
    EXPECT_TRUE(!exists(directory) || std::filesystem::is_empty(directory));
  }

  /// Repeats the pass without faults; expects that it completes and fetches no file that is already
  /// stored.
  void expectTheNextPassCompletes() {
    std::set<std::string> storedBefore;
    for (const auto& item : GetParam().after) {
      for (const char* const key : {"image_728x90", "image", "video_file_landscape", "html"}) {
        const std::string name = item[key].string();
        const auto& archive = std::string(path::deletingPathExtension(name)) + "/index.html";
        if (exists(stored(name.ends_with(".zip") ? archive : name))) storedBefore.insert(name);
      }
    }
    const auto events = performThePass();
    EXPECT_EQ(events.size(), GetParam().after.size() + 1);
    EXPECT_TRUE(!events.empty() && events.back() == "finished");
    for (const std::string& url : client->urls) {
      EXPECT_FALSE(storedBefore.contains(std::string(path::lastPathComponent(url)))) << url;
    }
    auto expected = versionsOf(GetParam().after);
    if (!GetParam().isUpdate) expected.merge(versionsOf(GetParam().before));
    EXPECT_EQ(loadedVersions(), expected);
    expectEveryLoadedResourceWhole();
  }
};

constexpr auto titleOfPass = [](const auto& test) { return test.param.title; };

}  // namespace kiv::test
