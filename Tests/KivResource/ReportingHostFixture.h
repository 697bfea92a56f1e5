#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/Foundation/values/JSON.h"
#include "Tests/KivResource/KnownFiles.h"
#include "Tests/KivResource/ReportingHostProcess.h"
#include "Tests/Support/LoopbackServer.h"
#include "Tests/Support/ManagerFixture.h"

namespace kiv::test {

/// The version of each resource, by identifier.
using Versions = std::map<std::string, std::uint64_t>;

/// A pass of a host.
struct Pass {
  bool isUpdate = false;
  Versions versions;  ///< the resources in its configuration
};

/// A test whose passes run in separate processes, with a server of files from KnownFiles.h. The
/// manager of the test itself inspects the root afterwards.
class ReportingHostFixture : public ManagerFixture {
 protected:
  ReportingHostFixture() { leaveRoot(); }

  static void leaveRoot() { KivStorageService::setRootPath(""); }

  /// Starts a manager on the root, as the next start of a host would.
  void lookAtRoot() {
    leaveRoot();
    KivStorageService::setRootPath(root());
    restart();
  }

  /// "ad-..." is a banner, "film-..." a video whose versions share one icon, "page-..." and
  /// "large-..." an archive, and anything else a page of one file.
  static Dictionary item(const std::string& identifier, std::uint64_t version) {
    const std::string name = identifier + "-" + std::to_string(version);
    if (identifier.starts_with("ad-")) return banner(identifier, version, name + ".png");
    if (identifier.starts_with("film-")) {
      return video(identifier, version, identifier + "-icon.png", name + ".mp4");
    }
    const bool isArchive = identifier.starts_with("page-") || identifier.starts_with("large-");
    return page(identifier, version, name + (isArchive ? ".zip" : ".html"));
  }

  /// The last components of the links of the resource.
  static std::vector<std::string> namesOf(const std::string& identifier, std::uint64_t version) {
    std::vector<std::string> names;
    const Dictionary dictionary = item(identifier, version);
    for (const char* const key : {"image_728x90", "image", "video_file_landscape", "html"}) {
      if (dictionary[key].isString()) names.push_back(dictionary[key].string());
    }
    return names;
  }

  /// Adds the files of all resources of the pass to the server, writes its configuration to a file,
  /// and returns the host's step.
  std::string stepFor(const Pass& pass) {
    Array items;
    for (const auto& [identifier, version] : pass.versions) {
      items.append(item(identifier, version));
      for (const std::string& name : namesOf(identifier, version))
        serve(name);
    }
    return stepForItems(pass.isUpdate ? "update:" : "load:", items);
  }

  std::string stepForItems(const std::string& kind, const Array& items) {
    const auto bytes = JSON::write(Dictionary{{"items", items}});
    return kind + configurations_.write(std::to_string(++configurationCount_), bytes->view());
  }

  /// Runs the steps in a host that is not killed.
  void runHost(const std::vector<std::string>& steps) {
    ReportingHostProcess host(root(), server.url(), steps);
    ASSERT_TRUE(host.hasStarted());
    while (const auto line = host.readLine())
      EXPECT_FALSE(line->starts_with("failed")) << *line;
    EXPECT_EQ(host.waitForExit(), 0);
  }

  [[nodiscard]] Versions loadedVersions() const {
    Versions versions;
    for (const auto& resource : *manager->loadedResources()) {
      const bool isNew = versions.emplace(resource->resourceID(), resource->updated()).second;
      EXPECT_TRUE(isNew) << resource->resourceID() << " is loaded twice";
    }
    return versions;
  }

  /// True if a host would find the stored file by its name.
  [[nodiscard]] bool isStored(const std::string& name) const {
    if (!name.ends_with(".zip")) return exists(stored(name));
    return exists(stored(std::string(path::deletingPathExtension(name)) + "/index.html"));
  }
  [[nodiscard]] std::set<std::string> storedOf(const Versions& versions) const {
    std::set<std::string> names;
    for (const auto& [identifier, version] : versions) {
      for (std::string& name : namesOf(identifier, version)) {
        if (isStored(name)) names.insert(std::move(name));
      }
    }
    return names;
  }

  /// Expects a consistent root: the saved list, if there is one, is valid JSON; all files of loaded
  /// resources and all other stored files are complete; no temporary files are left of interrupted
  /// saves and removals.
  void expectSoundRoot() const {
    if (exists(listPath())) {
      EXPECT_TRUE(JSON::read(Data(read(listPath())))) << "the list does not parse";
    }
    for (const auto& resource : *manager->loadedResources())
      EXPECT_TRUE(kiv::test::isWhole(*resource)) << resource->resourceID();
    if (exists(stored(""))) {
      for (const auto& entry : std::filesystem::directory_iterator(stored(""))) {
        const std::string file = entry.path().string();
        const bool isWhole = entry.is_directory()
                                 ? isWholeArchive(file)
                                 : holdsBytesNamed(file, path::lastPathComponent(file));
        EXPECT_TRUE(isWhole) << file;
      }
    }
    const std::string temporaries = root() + "/.KivStorageService";
    EXPECT_TRUE(!exists(temporaries) || std::filesystem::is_empty(temporaries));
  }

  /// The resources that have an entry in the saved list.
  [[nodiscard]] Versions listedVersions() const {
    Versions versions;
    for (const Value& entry : savedList()) {
      versions[entry.dictionary()["banner_id"].string()] =
          entry.dictionary()["updated"].unsignedInteger();
    }
    return versions;
  }

  /// `handler` is called on a thread of the server for each request before it is answered. The
  /// previous handler is not called after this returns. Requests of a killed host may still arrive.
  void setRequestHandler(std::function<void()> handler) {
    const std::lock_guard guard(handlerMutex_);
    requestHandler_ = std::move(handler);
  }

  void serve(const std::string& name) {
    if (!served_.insert(name).second) return;
    server.serve("/" + name, [this, bytes = downloadNamed(name)](const Request&) {
      noteRequest();
      return Response::ok(bytes);
    });
  }

 private:
  void noteRequest() {
    const std::lock_guard guard(handlerMutex_);
    requestHandler_();
  }

  std::mutex handlerMutex_;
  std::function<void()> requestHandler_ = [] {};

 protected:
  LoopbackServer server;  // its destructor joins the threads that use the members above

 private:
  TemporaryDirectory configurations_;
  int configurationCount_ = 0;
  std::set<std::string> served_;
};

}  // namespace kiv::test
