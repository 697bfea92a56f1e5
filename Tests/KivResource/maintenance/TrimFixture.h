#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivResource/maintenance/KivResourceTrim.h"
#include "Tests/Support/ManagerFixture.h"
#include "Tests/Support/ZipBuilder.h"

namespace kiv::test {

/// A test that trims a cache.
class TrimFixture : public ManagerFixture {
 protected:
  using Maintenance = KivResourceMaintenance;
  using Rule = KivResourceTrimOptions::Rule;
  using Mode = Maintenance::Mode;
  using Path = std::filesystem::path;

  static constexpr std::size_t fileSize = 10'000;

  static std::string bytes() { return std::string(fileSize, 'x'); }
  static std::string archive() {
    return ZipBuilder().addFile("index.html", bytes()).addFile("css/page.css", bytes()).build();
  }

  /// Loads the resources with files of that size.
  void loadAll(std::initializer_list<Dictionary> items) {
    beginLoad(items);
    while (!client->tasks.empty()) {
      const std::string url = client->tasks.front()->request()->url.absoluteString();
      client->succeed(url, url.ends_with(".zip") ? archive() : bytes());
    }
    takeEvents();
  }
  /// The banners a, b and c with the stamps 1, 2 and 3.
  void loadThree() {
    loadAll({banner("a", 1, "x/a.png"), banner("b", 2, "x/b.png"), banner("c", 3, "x/c.png")});
  }
  void makeOrphan(const std::string& name, int day) {
    write(stored(name), bytes());
    setTime(name, day);
  }
  /// Sets when the file was last shown, some days after 2001.
  void setTime(const std::string& name, int day) const {
    using namespace std::chrono_literals;
    const auto now = std::filesystem::file_time_type::clock::now();
    std::filesystem::last_write_time(stored(name), now - std::chrono::hours(24 * (5000 - day)));
  }

  static std::uint64_t used() { return Maintenance::space().value().cacheUsed; }
  std::uint64_t sizeOf(const std::string& name) const {
    return FileManager::defaultManager().sizeOfItemAtPath(stored(name)).value_or(0);
  }

  static KivResourceTrimOptions withRule(Rule rule, std::uint64_t bound) {
    KivResourceTrimOptions options;
    options.bytes = bound;
    options.rule = rule;
    return options;
  }

  KivResourceTrim trimOnce(const KivResourceTrimOptions& options, Mode mode) {
    std::optional<Error> error;
    auto result = Maintenance::trim(*manager, options, mode, &error);
    EXPECT_TRUE(result) << (error ? error->localizedDescription() : "");
    return result.value_or(KivResourceTrim());
  }

  /// Trims, after a dry run that changes nothing and gives the same answer.
  KivResourceTrim trim(const KivResourceTrimOptions& options) {
    const auto before = disk();
    const auto resources = manager->loadedResources()->resources();
    const KivResourceTrim dry = trimOnce(options, Mode::dryRun);
    EXPECT_EQ(disk(), before);
    EXPECT_EQ(manager->loadedResources()->resources(), resources);
    const KivResourceTrim result = trimOnce(options, Mode::remove);
    EXPECT_EQ(summary(dry), summary(result));
    EXPECT_EQ(dry.usedBefore, result.usedBefore);
    EXPECT_GE(dry.usedAfter, result.usedAfter) << "the list gets shorter";
    EXPECT_EQ(result.usedAfter, used());
    EXPECT_EQ(result.isBoundKept, result.usedAfter <= options.bytes);
    EXPECT_TRUE(takeEvents().empty()) << "observers are told nothing";
    return result;
  }
  KivResourceTrim trim(Rule rule, std::uint64_t bound) { return trim(withRule(rule, bound)); }

  /// The names of what was removed, without the resources directory.
  static Names removed(const KivResourceTrim& result) {
    Names names;
    for (const auto& item : result.removed)
      names.push_back(Path(item.path).filename());
    return names;
  }
  static Names resources(const KivResourceTrim& result) {
    Names names;
    for (const auto& resource : result.resources)
      names.push_back(resource.resourceID);
    return names;
  }
  /// What is in the resources directory, sorted.
  [[nodiscard]] std::vector<std::string> storedNames() const {
    std::set<std::string> names;
    if (exists(stored(""))) {
      for (const auto& entry : std::filesystem::directory_iterator(stored("")))
        names.insert(entry.path().filename());
    }
    return {names.begin(), names.end()};
  }
  /// Expects that the files of all listed resources are there, as the next start would find them.
  void expectSoundList() {
    restart();
    EXPECT_EQ(registry().size(), savedList().size()) << "the list names a file that is gone";
  }

 private:
  /// Each item below the root with its size and time.
  [[nodiscard]] std::map<std::string, std::tuple<std::uintmax_t, std::int64_t>> disk() const {
    std::map<std::string, std::tuple<std::uintmax_t, std::int64_t>> items;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root())) {
      const auto identity =
          FileManager::defaultManager().identityOfFileAtPath(entry.path().string());
      items[entry.path()] = {identity ? identity->length : 0, identity ? identity->changed : 0};
    }
    return items;
  }
  static std::string summary(const KivResourceTrim& result) {
    std::string text;
    for (const auto& item : result.removed) {
      text +=
          item.path + " " + std::to_string(item.size.value_or(0)) + " " + item.resourceID + "\n";
    }
    for (const auto& resource : result.resources)
      text += resource.resourceID + " " + std::to_string(resource.updated) + "\n";
    for (const auto& [item, error] : result.refused)
      text += "refused " + item.path + "\n";
    return text + (result.isBoundKept ? "kept" : "not kept") + (result.listError ? " error" : "");
  }
};

}  // namespace kiv::test
