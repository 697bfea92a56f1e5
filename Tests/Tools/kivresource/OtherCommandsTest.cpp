// The commands audit, clean, trim, serve and gallery.

#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Tests/Support/ReadFile.h"
#include "Tests/Tools/kivresource/ToolFixture.h"

namespace {

using namespace kiv::test;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

class OtherCommandsTest : public ToolFixture {
 protected:
  /// Loads a banner with this identifier and file name.
  void loadBanner(const std::string& id, const std::string& name) {
    server_.serve("/" + name, Response::ok("bytes"));
    const auto load = runWith({"load", "-"}, bannerItem(id, name, 1, "javascript:x"));
    ASSERT_EQ(load.status, 0) << load.errors;
  }
  /// Loads the banner `id`, whose file is named after it, from the server at the URL.
  [[nodiscard]] ToolRun loadFrom(const std::string& url, const std::string& id) const {
    return runTool({"load", "-", "--root", root(), "--main", url},
                   configOf(bannerItem(id, id + ".png")));
  }
};

// --- audit and clean -----------------------------------------------------------------------------

TEST_F(OtherCommandsTest, AuditOfACompleteCacheFindsNothing) {
  loadBanner("a", "a.png");
  const auto audit = run({"audit"});
  EXPECT_EQ(audit.status, 0);
  EXPECT_EQ(audit.lines.front(), "nothing is missing, orphaned or temporary");
}

TEST_F(OtherCommandsTest, AuditShowsWhatIsMissingAndOrphaned) {
  loadBanner("a", "a.png");
  std::filesystem::remove(stored("a.png"));
  directory_.write("ro ot'/KivResource/Resources/orphan.png");
  const auto audit = run({"audit"});
  EXPECT_EQ(audit.status, 1);
  EXPECT_THAT(audit.lines, Contains("    " + stored("a.png") + "  0 B  of a"));
  EXPECT_THAT(audit.lines, Contains(StartsWith("    " + stored("orphan.png"))));
  EXPECT_THAT(
      run({"audit", "--json"}).lines,
      ElementsAre(StartsWith(R"({"missing":[{"path":")" + stored("a.png") +
                             R"(","size":0,"resourceID":"a"}],"unreadable":[],"orphaned")")));
}

TEST_F(OtherCommandsTest, CleanRemovesOrphansAndNothingElse) {
  loadBanner("a", "a.png");
  const std::string orphan = directory_.write("ro ot'/KivResource/Resources/orphan.png");
  const auto dry = run({"clean", "--dry-run"});
  EXPECT_EQ(dry.status, 0);
  EXPECT_THAT(dry.lines, ElementsAre("to be removed", StartsWith("    " + orphan)));
  EXPECT_TRUE(std::filesystem::exists(orphan));
  EXPECT_THAT(run({"clean"}).lines, ElementsAre("removed", StartsWith("    " + orphan)));
  EXPECT_FALSE(std::filesystem::exists(orphan));
  EXPECT_TRUE(std::filesystem::exists(stored("a.png")));
  EXPECT_THAT(run({"clean"}).lines, ElementsAre("nothing to remove"));
}

TEST_F(OtherCommandsTest, CleanRefusesWhereTheSavedListCannotBeRead) {
  const std::string orphan = directory_.write("ro ot'/KivResource/Resources/orphan.png");
  directory_.write("ro ot'/KivResource/resources_config.json", "nonsense");
  const auto clean = run({"clean"});
  EXPECT_EQ(clean.status, 1);
  EXPECT_THAT(clean.lines, IsEmpty());
  EXPECT_THAT(clean.errors, HasSubstr("\nkivresource: "));
  EXPECT_TRUE(std::filesystem::exists(orphan));
}

TEST_F(OtherCommandsTest, TrimRemovesOrphansAndThenWhatTheOrderSays) {
  loadBanner("a", "a.png");
  const std::string orphan =
      directory_.write("ro ot'/KivResource/Resources/orphan.png", std::string(5000, 'o'));
  const auto dry = run({"trim", "0", "--dry-run"});
  EXPECT_EQ(dry.status, 1) << "a resource is loaded";
  EXPECT_THAT(dry.lines, ElementsAre("to be removed", StartsWith("    " + orphan),
                                     AllOf(HasSubstr(" would be used after, which is more than "),
                                           EndsWith("0 B"))));
  EXPECT_TRUE(std::filesystem::exists(orphan));
  const auto enough = run({"trim", "1GB"});
  EXPECT_EQ(enough.status, 0);
  EXPECT_THAT(enough.lines, ElementsAre(EndsWith(" used after")));
  EXPECT_THAT(run({"trim", "0", "--json"}).lines,
              ElementsAre(StartsWith(R"({"removed":[{"path":")" + orphan + R"(","size":)")));
  EXPECT_FALSE(std::filesystem::exists(orphan));
  EXPECT_TRUE(std::filesystem::exists(stored("a.png")));
  const auto all = run({"trim", "0", "--loaded", "oldest"});
  EXPECT_THAT(all.lines,
              ElementsAre("removed", AllOf(StartsWith("    " + stored("a.png")), EndsWith(" of a")),
                          HasSubstr(" used after")));
  EXPECT_THAT(run({"list", "--json"}).lines, ElementsAre(HasSubstr(R"("resources":[])")));
}

TEST_F(OtherCommandsTest, TrimWantsASizeAndAnOrderThatItKnows) {
  for (const char* const size : {"", "-1", "1.5M", "5 M", "M", "B", "1MiB", "18446744073709551616",
                                 "18446744073709552k", "1kk", "0x10", "+1"}) {
    const auto trim = run({"trim", size});
    EXPECT_EQ(trim.status, 2) << size;
    EXPECT_THAT(trim.lines, IsEmpty());
  }
  EXPECT_THAT(run({"trim", "5X"}).errors, HasSubstr("\"5X\" is no size"));
  EXPECT_EQ(run({"trim"}).status, 2);
  EXPECT_EQ(run({"trim", "0", "--loaded", "newest"}).status, 2);
  for (const char* const size : {"0", "1", "20k", "500M", "2gb", "1T", "18446744073709551615"})
    EXPECT_NE(run({"trim", size}).status, 2) << size;
}

TEST_F(OtherCommandsTest, LookingAtAnEmptyCacheMakesNothing) {
  EXPECT_EQ(run({"list"}).status, 0);
  EXPECT_EQ(run({"audit"}).status, 0);
  EXPECT_EQ(run({"clean", "--dry-run"}).status, 0);
  EXPECT_FALSE(std::filesystem::exists(root()));
}

// --- serve ---------------------------------------------------------------------------------------

TEST_F(OtherCommandsTest, ServesADirectoryAndTellsOfRequests) {
  for (const char* name : {"site/a.png", "site/b.png", "site/c.png"})
    directory_.write(name);
  ToolProcess serve(
      {"serve", directory_.path("site"), "--fault", "/b.png=404", "--fault", "c.png=break"});
  const std::string url = serve.readLine().value_or("");
  ASSERT_THAT(url, StartsWith("http://127.0.0.1:"));
  EXPECT_EQ(loadFrom(url, "a").status, 0);
  EXPECT_EQ(serve.readLine(), "GET /a.png 200");
  EXPECT_EQ(loadFrom(url, "b").status, 1);
  EXPECT_EQ(serve.readLine(), "GET /b.png 404");
  const auto broken = loadFrom(url, "c");
  EXPECT_EQ(broken.status, 1);
  EXPECT_EQ(broken.lines.front(), "failed  c  Name of c: Could not load \"" + url +
                                      "/c.png\": the connection ended before the response was "
                                      "whole.");
  serve.sendSignal(SIGINT);
  EXPECT_THAT(serve.readLines(), Contains("GET /c.png 200"));
  EXPECT_EQ(serve.waitForExit(), 130);
}

TEST_F(OtherCommandsTest, ServeSaysWhyItCannot) {
  const auto none = runTool({"serve", directory_.path("none")});
  EXPECT_EQ(none.status, 2);
  EXPECT_EQ(none.errors,
            "kivresource: " + directory_.path("none") + ": there is no such directory\n");
  ToolProcess serve({"serve", directory_.path()});
  const std::string url = serve.readLine().value_or("");
  const std::string port = url.substr(url.rfind(':') + 1);
  const auto second = runTool({"serve", directory_.path(), "--port", port});
  EXPECT_EQ(second.status, 2);
  EXPECT_EQ(second.errors, "kivresource: port " + port + " is taken\n");
}

TEST_F(OtherCommandsTest, ServeCanKeepQuiet) {
  directory_.write("site/a.png", "bytes of a");
  ToolProcess serve({"serve", directory_.path("site"), "--quiet"});
  const std::string url = serve.readLine().value_or("");
  EXPECT_EQ(loadFrom(url, "a").status, 0);
  serve.sendSignal(SIGINT);
  EXPECT_TRUE(serve.readLines().empty());
}

// --- gallery -------------------------------------------------------------------------------------

TEST_F(OtherCommandsTest, GalleryShowsWhatIsLoadedAndNothingOfItsMarkup) {
  loadBanner("<script>", "a.png");
  const std::string page = directory_.path("gallery.html");
  const auto gallery = run({"gallery", page});
  EXPECT_EQ(gallery.status, 0) << gallery.errors;
  EXPECT_THAT(gallery.lines, ElementsAre(page + " shows 1 resource"));
  EXPECT_THAT(readFile(page),
              HasSubstr("\"file://" + directory_.path("ro%20ot%27/KivResource/Resources/a.png\"")));
  EXPECT_THAT(readFile(page), HasSubstr("&lt;script&gt;"));
  EXPECT_THAT(readFile(page), Not(HasSubstr("<script>")));
  EXPECT_THAT(readFile(page), Not(HasSubstr("javascript:")));
}

TEST_F(OtherCommandsTest, GalleryThatCannotBeWrittenIsStatus1) {
  const auto gallery = run({"gallery", directory_.path("none/gallery.html")});
  EXPECT_EQ(gallery.status, 1);
  EXPECT_THAT(gallery.errors, HasSubstr("none/gallery.html: No such file or directory\n"));
}

}  // namespace
