// Without an explicit directory, the packaged resources are found next to the executable, whatever
// its argv[0].

#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/Support/TemporaryDirectory.h"
#include "Tests/Tools/kivresource/ToolProcess.h"

namespace {

using kiv::test::runTool;
using testing::AllOf;
using testing::Contains;
using testing::EndsWith;
using testing::StartsWith;

constexpr const char* placeholder = "InnerAdResources.bundle/kivresource-placeholder-728x90.png";
constexpr const char* config =
    R"({"items":[{"engine":"eco_standard","name":"N","type":"t","banner_id":"a","priority":1,)"
    R"("updated":1,"market_url":"m","image_728x90":"any/kivresource-placeholder-728x90.png"}]})";

class PackagedBundleTest : public testing::Test {
 protected:
  /// Runs the tool with argv[0] `name` in a subdirectory of the temporary directory. Returns the
  /// lines of `list` after a `load` without a server.
  [[nodiscard]] std::vector<std::string> pathsOf(const std::string& program,
                                                 const std::string& name,
                                                 const std::string& directory = "") const {
    const std::vector<std::string> called{"bash",
                                          "-c",
                                          R"(cd "$1" && exec -a "$2" "$3" "${@:5}")",
                                          "bash",
                                          directory_.path(directory),
                                          name,
                                          program};
    runTool({"load", "-", "--root", root()}, config, {}, called);
    return runTool({"list", "--root", root()}, {}, {}, called).lines;
  }
  [[nodiscard]] std::string root() const { return directory_.path("root"); }
  /// Creates a foreign bundle and next to it a file with the name of the program.
  void plant(const std::string& directory) const {
    directory_.write(directory + "/kivresource", "#!/bin/false\n");
    directory_.write(directory + "/" + placeholder, "planted");
  }
  static auto placeholderIn(const std::string& directory) {
    return Contains(AllOf(StartsWith("    " + directory), EndsWith(placeholder)));
  }
  static std::string placeOfTheTool() {
    return std::filesystem::canonical(KIVRESOURCE_TOOL).parent_path().string() + "/";
  }
  /// Copies the tool to another directory, away from the files of its build.
  [[nodiscard]] std::string copyOfTheTool(const std::string& directory) const {
    std::filesystem::create_directories(directory_.path(directory));
    auto copy = directory_.path(directory + "/kivresource");
    std::filesystem::copy_file(KIVRESOURCE_TOOL, copy);
    return copy;
  }

  const kiv::test::TemporaryDirectory directory_;
};

TEST_F(PackagedBundleTest, LiesBesideAProgramOfTheBuild) {
  EXPECT_THAT(pathsOf(KIVRESOURCE_TOOL, KIVRESOURCE_TOOL), placeholderIn(placeOfTheTool()));
}

TEST_F(PackagedBundleTest, OneInTheCurrentDirectoryIsNotTakenWhereTheProgramWasFoundByItsName) {
  plant("planted");
  EXPECT_THAT(pathsOf(KIVRESOURCE_TOOL, "kivresource", "planted"), placeholderIn(placeOfTheTool()));
}

TEST_F(PackagedBundleTest, OneBesideWhatTheProgramClaimsToBeIsNotTaken) {
  plant("planted");
  plant("planted/bin");
  plant("planted/share/KivResource");
  for (const char* name : {"./kivresource", "bin/kivresource", "../planted/kivresource", ""}) {
    EXPECT_THAT(pathsOf(KIVRESOURCE_TOOL, name, "planted"), placeholderIn(placeOfTheTool()))
        << name;
  }
  EXPECT_THAT(pathsOf(KIVRESOURCE_TOOL, directory_.path("planted/kivresource")),
              placeholderIn(placeOfTheTool()));
}

TEST_F(PackagedBundleTest, AProgramInBinFindsThatOfItsPrefix) {
  const std::string program = copyOfTheTool("prefix/bin");
  plant("prefix/share/KivResource");
  EXPECT_THAT(pathsOf(program, "kivresource"),
              placeholderIn(directory_.path("prefix/share/KivResource/")));
}

TEST_F(PackagedBundleTest, AProgramThatIsCalledByALinkFindsThatOfItsPrefix) {
  const std::string program = copyOfTheTool("prefix/bin");
  plant("prefix/share/KivResource");
  plant("links");
  std::filesystem::remove(directory_.path("links/kivresource"));
  std::filesystem::create_symlink(program, directory_.path("links/kivresource"));
  EXPECT_THAT(pathsOf(directory_.path("links/kivresource"), "kivresource", "links"),
              placeholderIn(directory_.path("prefix/share/KivResource/")));
}

TEST_F(PackagedBundleTest, APrefixBeginsAtADirectoryOfPrograms) {
  const std::string program = copyOfTheTool("shared/somebody");
  plant("shared/share/KivResource");
  plant("share/KivResource");
  EXPECT_THAT(pathsOf(program, program), testing::Not(placeholderIn(directory_.path())));
}

TEST_F(PackagedBundleTest, AProgramThatLeftItsBuildKnowsNoSourceTree) {
  const std::string program = copyOfTheTool("elsewhere");
  const auto lines = pathsOf(program, program);
  EXPECT_THAT(lines, testing::Not(placeholderIn(KIVRESOURCE_SOURCES)));
}

}  // namespace
