#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/Support/LoopbackServer.h"
#include "Tests/Support/TemporaryDirectory.h"
#include "Tests/Tools/kivresource/ToolProcess.h"

namespace kiv::test {

/// The JSON of a banner that is named after its identifier.
inline std::string bannerItem(const std::string& id, const std::string& link, int updated = 1,
                              const std::string& market = "m") {
  return R"({"engine":"eco_standard","name":"Name of )" + id + R"(","type":"t","banner_id":")" +
         id + R"(","priority":1,"updated":)" + std::to_string(updated) + R"(,"market_url":")" +
         market + R"(","image_728x90":")" + link + R"("})";
}

/// The JSON of a configuration with these items.
inline std::string configOf(const std::string& items) {
  return R"({"items":[)" + items + "]}";
}

/// A test that runs the tool with its own storage root and server.
class ToolFixture : public testing::Test {
 protected:
  /// The storage root. Its name needs quoting in URLs and in a shell.
  [[nodiscard]] std::string root() const { return directory_.path("ro ot'"); }
  [[nodiscard]] std::string stored(const std::string& name) const {
    return root() + "/KivResource/Resources/" + name;
  }
  [[nodiscard]] std::string list() const { return root() + "/KivResource/resources_config.json"; }

  /// The arguments with the options for the root and the server appended.
  [[nodiscard]] std::vector<std::string> general(std::vector<std::string> arguments) const {
    arguments.insert(arguments.end(), {"--root", root(), "--main", server_.url()});
    return arguments;
  }
  [[nodiscard]] ToolRun run(const std::vector<std::string>& arguments,
                            std::string_view input = {}) const {
    return runTool(general(arguments), input);
  }
  /// Runs a command with a configuration that contains these items on standard input.
  [[nodiscard]] ToolRun runWith(const std::vector<std::string>& arguments,
                                const std::string& items) const {
    return run(arguments, configOf(items));
  }

  const TemporaryDirectory directory_;
  LoopbackServer server_;
};

}  // namespace kiv::test
