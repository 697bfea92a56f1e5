#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KivPlatform/Foundation/values/JSON.h"
#include "Tests/Support/LoopbackServer.h"
#include "Tests/Support/ReadFile.h"
#include "Tests/Support/ResourceItems.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace kiv::test {

/// A test with a server and the settings of a service that uses it. The configuration is
/// "/c.json", and the files are below "/files/".
class ServiceFixture : public testing::Test {
 protected:
  ServiceFixture() {
    settings_ = {{"directory", directory()},
                 {"configuration", server_.url("/c.json")},
                 {"main", server_.url("/files")},
                 {"transfers", Dictionary{{"proxy", ""}}}};
  }

  [[nodiscard]] std::string directory() const { return scratch_.path("service"); }
  [[nodiscard]] std::string stored(const std::string& name) const {
    return directory() + "/cache/KivResource/Resources/" + name;
  }

  static Response configuration(const std::vector<Dictionary>& items) {
    Array array;
    for (const auto& item : items)
      array.append(item);
    return Response::ok(JSON::toCompactString(Dictionary{{"items", array}}));
  }
  /// A banner whose image is NAME.png.
  static Dictionary banner(const std::string& name, std::uint64_t updated = 1) {
    return bannerOf(name, updated, name + ".png");
  }
  void serveFile(const std::string& name, const std::string& contents) {
    server_.serve("/files/" + name, Response::ok(contents));
  }

  /// What index.json says: the path of the image by identifier.
  [[nodiscard]] std::vector<std::pair<std::string, std::string>> index() const {
    std::vector<std::pair<std::string, std::string>> images;
    const auto read = JSON::read(readFile(directory() + "/cache/index.json"));
    if (!read) return {{"unreadable", read.error().localizedDescription()}};
    for (const auto& entry : read->dictionary()["resources"].array()) {
      images.emplace_back(entry.dictionary()["id"].string(),
                          entry.dictionary()["files"].dictionary()["image"].string());
    }
    return images;
  }

  const TemporaryDirectory scratch_;
  LoopbackServer server_;
  Dictionary settings_;
};

}  // namespace kiv::test
