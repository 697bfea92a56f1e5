// The service within this process, on its main queue.

#include <filesystem>
#include <memory>
#include <optional>
#include <sys/stat.h>

#include "Examples/service/Service.h"
#include "Tests/Examples/service/ServiceFixture.h"
#include "Tests/Support/LogCapture.h"
#include "Tests/Support/MainQueue.h"
#include "Tests/Support/ManualTimers.h"

namespace {

using namespace kiv::test;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;
using testing::StartsWith;

class ServiceTest : public ServiceFixture {
 protected:
  ~ServiceTest() override {
    if (service_) service_->stop();
    service_.reset();
    kiv::DispatchQueue::main()->drain();
  }

  std::shared_ptr<Service> open(std::optional<kiv::Error>* error = nullptr) {
    const auto settings = ServiceSettings::read(kiv::JSON::toCompactString(settings_));
    if (!settings) return nullptr;
    return Service::open(*settings, error, timers_);
  }
  void start() {
    service_ = open();
    ASSERT_TRUE(service_);
    service_->start();
  }
  /// Starts with one banner. The next check replaces its file and adds a banner, whose file waits
  /// at the gate.
  void startWithReplacement(const Gate& gate) {
    serveFile("a.png", "a");
    serveFile("a2.png", "a2");
    server_.serve("/files/b.png", Response::ok("b").after(gate));
    server_.serve("/c.json", {configuration({banner("a")}),
                              configuration({bannerOf("a", 2, "a2.png"), banner("b")})});
    start();
    ASSERT_TRUE(waitForLines("pass 1 done"));
  }
  [[nodiscard]] std::size_t count(std::string_view part) const {
    std::size_t lines = 0;
    for (const auto& line : log_.lines())
      if (line.find(part) != std::string::npos) ++lines;
    return lines;
  }
  /// The lines of the service, without those of the framework.
  [[nodiscard]] std::vector<std::string> ownLines() const {
    auto lines = log_.lines();
    std::erase_if(lines, [](const std::string& line) { return !line.starts_with("<"); });
    return lines;
  }
  /// Waits for that many lines that contain the text.
  [[nodiscard]] bool waitForLines(std::string_view part, std::size_t number = 1) const {
    return waitUntil([&] { return count(part) >= number; });
  }

  const LogCapture log_;
  const std::shared_ptr<ManualTimers> timers_ = std::make_shared<ManualTimers>();
  std::shared_ptr<Service> service_;
};

TEST_F(ServiceTest, TellsOfAPassInLines) {
  settings_.set("reserve", server_.url("/reserve"));
  serveFile("a.png", "a");
  server_.serve("/files/b.png", Response::status(404));
  server_.serve("/reserve/b.png", Response::status(403));
  server_.serve("/c.json", configuration({banner("a"), banner("b"), {{"name", "no item"}}}));
  start();
  ASSERT_TRUE(waitForLines("pass 1 done"));
  const auto lines = ownLines();
  ASSERT_EQ(lines.size(), 5U);
  EXPECT_THAT(lines[0], StartsWith("<6>started in "));
  EXPECT_THAT(lines[1],
              AllOf(StartsWith("<6>check updated by " + server_.url("/c.json") + ", status 200"),
                    HasSubstr(", next in ")));
  EXPECT_THAT(lines[2], AllOf(StartsWith("<4>pass 1: b.png of b failed: "),
                              HasSubstr(server_.url("/files/b.png") + " (status 404)"),
                              HasSubstr(server_.url("/reserve/b.png") + " (status 403)")));
  EXPECT_THAT(lines[3], StartsWith("<4>pass 1: item 2 invalid: "));
  EXPECT_THAT(lines[4],
              StartsWith("<6>pass 1 done: 3 items, 1 added, 1 failed, 1 invalid, 1 bytes in "));
  EXPECT_THAT(index(), ElementsAre(Pair("a", stored("a.png"))));
}

TEST_F(ServiceTest, AFailedCheckIsToldAndTheNextOneIsPlanned) {
  server_.serve("/c.json", {Response::ok("<html>"), configuration({})});
  start();
  ASSERT_TRUE(waitForLines("<4>check failed"));
  EXPECT_EQ(count("pass"), 0U);
  timers_->advance(std::chrono::minutes(2));
  EXPECT_TRUE(waitForLines("<6>check updated"));
}

TEST_F(ServiceTest, TheIndexHasWhatAProgramNeedsToShow) {
  for (const auto* name : {"a.png", "icon.png", "film.mp4", "page.html"})
    serveFile(name, name);
  server_.serve("/c.json",
                configuration({bannerOf("b", 3, "a.png"), videoOf("v", 4, "icon.png", "film.mp4"),
                               pageOf("p", 5, "page.html"), plainOf("o", 6)}));
  start();
  ASSERT_TRUE(waitForLines("pass 1 done"));
  const auto path = directory() + "/cache/index.json";
  const auto read = kiv::JSON::read(readFile(path));
  ASSERT_TRUE(read);
  EXPECT_EQ(read->dictionary()["version"], kiv::Value(1));
  std::map<std::string, kiv::Dictionary> entries;
  for (const auto& entry : read->dictionary()["resources"].array())
    entries[entry.dictionary()["id"].string()] = entry.dictionary();
  ASSERT_EQ(entries.size(), 4U);
  EXPECT_EQ(entries["b"],
            (kiv::Dictionary{{"id", "b"},
                             {"kind", "banner"},
                             {"type", "banner"},
                             {"updated", 3},
                             {"name", "Banner b"},
                             {"link", "market"},
                             {"files", kiv::Dictionary{{"image", stored("a.png")}}}}));
  EXPECT_EQ(entries["v"]["files"], kiv::Value(kiv::Dictionary{{"icon", stored("icon.png")},
                                                              {"video", stored("film.mp4")}}));
  EXPECT_EQ(entries["p"]["files"], kiv::Value(kiv::Dictionary{{"html", stored("page.html")}}));
  EXPECT_TRUE(entries["o"]["kind"].isNull());
  EXPECT_TRUE(entries["o"]["files"].dictionary().empty());
  struct stat status {};
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_NE(status.st_mode & S_IRUSR, 0U);
  EXPECT_EQ(std::filesystem::canonical(stored("a.png")), stored("a.png"));
}

TEST_F(ServiceTest, AnUnchangedIndexIsNotWrittenAgain) {
  serveFile("a.png", "a");
  server_.serve("/c.json", {configuration({banner("a")}), configuration({{banner("a")}, {}})});
  start();
  ASSERT_TRUE(waitForLines("pass 1 done"));
  const auto path = directory() + "/cache/index.json";
  struct stat before {};
  ASSERT_EQ(stat(path.c_str(), &before), 0);
  service_->checkNow();
  ASSERT_TRUE(waitForLines("pass 2 done"));
  struct stat after {};
  ASSERT_EQ(stat(path.c_str(), &after), 0);
  EXPECT_EQ(before.st_ino, after.st_ino);
}

TEST_F(ServiceTest, ThePublishedPathsFollowARunningPass) {
  const Gate gate;
  ASSERT_NO_FATAL_FAILURE(startWithReplacement(gate));
  timers_->advance(std::chrono::seconds(1));
  kiv::DispatchQueue::main()->drain();
  service_->checkNow();
  ASSERT_TRUE(waitUntil([&] { return !std::filesystem::exists(stored("a.png")); }));
  // The callback of the new version sets the timer of the publication.
  ASSERT_TRUE(waitUntil([&] {
    timers_->advance(std::chrono::seconds(1));
    return index() == decltype(index()){{"a", stored("a2.png")}};
  }));
  EXPECT_EQ(count("pass 2"), 0U);
  gate.open();
  ASSERT_TRUE(waitForLines("pass 2 done"));
  EXPECT_EQ(index().size(), 2U);
}

TEST_F(ServiceTest, StopPublishesWhatARunningPassHasLoaded) {
  const Gate gate;
  ASSERT_NO_FATAL_FAILURE(startWithReplacement(gate));
  service_->checkNow();
  ASSERT_TRUE(waitUntil([&] { return !std::filesystem::exists(stored("a.png")); }));
  service_->stop();
  service_.reset();
  EXPECT_THAT(index(), ElementsAre(Pair("a", stored("a2.png"))));
}

TEST_F(ServiceTest, ARevalidationIsToldAndSoIsItsEndByStop) {
  server_.serve("/files/a.png",
                {Response::ok("a").header("ETag", "\"1\""),
                 Response::ok("new").header("ETag", "\"2\""), Response::status(404)});
  server_.serve("/c.json", configuration({banner("a")}));
  start();
  ASSERT_TRUE(waitForLines("pass 1 done"));
  service_->revalidate();
  ASSERT_TRUE(waitForLines("<6>revalidation done: 1 files, 1 replaced"));
  EXPECT_EQ(count("<6>replaced: " + stored("a.png")), 1U);
  EXPECT_EQ(readFile(stored("a.png")), "new");
  service_->revalidate();
  ASSERT_TRUE(waitForLines("<6>revalidation done: 1 files, 1 failed"));
  EXPECT_EQ(count("<4>revalidation: a.png failed: "), 1U);

  const Gate gate;
  server_.serve("/files/a.png", Response::ok("late").after(gate));
  service_->revalidate();
  service_->revalidate();
  ASSERT_TRUE(waitForLines("revalidation refused"));
  ASSERT_TRUE(waitUntil([&] { return server_.requests("/files/a.png").size() == 4; }));
  service_->stop();
  service_.reset();
  EXPECT_TRUE(waitForLines("<6>revalidation stopped: 1 files, 1 notEnded"));
}

TEST_F(ServiceTest, OnlyOrphansAreTrimmedUnlessTheRuleSaysMore) {
  settings_.set("limit", 1);
  serveFile("a.png", "a");
  serveFile("b.png", "b");
  server_.serve("/c.json",
                {configuration({banner("a"), banner("b")}), configuration({banner("a")})});
  start();
  ASSERT_TRUE(waitForLines("pass 1 done"));
  EXPECT_EQ(count("files removed"), 0U);
  EXPECT_EQ(count("<4>trim: above the limit"), 1U);
  service_->checkNow();
  ASSERT_TRUE(waitForLines("pass 2 done"));
  EXPECT_EQ(count("<6>trim: 0 resources and 1 files removed, "), 1U);
  EXPECT_FALSE(std::filesystem::exists(stored("b.png")));
  EXPECT_THAT(index(), ElementsAre(Pair("a", stored("a.png"))));
}

TEST_F(ServiceTest, ResourcesAreTrimmedByTheRule) {
  settings_.set("limit", 1);
  settings_.set("trimRule", "leastRecentlyShown");
  serveFile("a.png", "a");
  server_.serve("/c.json", configuration({banner("a")}));
  start();
  ASSERT_TRUE(waitForLines("pass 1 done"));
  EXPECT_EQ(count("<6>trim: 1 resources and 1 files removed, "), 1U);
  EXPECT_THAT(index(), IsEmpty());
}

TEST_F(ServiceTest, ARevalidationDuringAPassLeavesTheTrimToItsEnd) {
  settings_.set("limit", 1);
  const Gate gate;
  serveFile("a.png", "a");
  server_.serve("/files/b.png", Response::ok("b").after(gate));
  server_.serve("/c.json", {configuration({banner("a")}), configuration({banner("b")})});
  start();
  ASSERT_TRUE(waitForLines("pass 1 done"));
  service_->checkNow();
  ASSERT_TRUE(waitUntil([&] { return server_.requests("/files/b.png").size() == 1; }));
  service_->revalidate();
  ASSERT_TRUE(waitForLines("revalidation done"));
  EXPECT_EQ(count("trimmed"), 0U);
  gate.open();
  ASSERT_TRUE(waitForLines("pass 2 done"));
  EXPECT_EQ(count("<6>trim: 0 resources and 1 files removed, "), 1U);
}

TEST_F(ServiceTest, WithinTheLimitNothingIsSaid) {
  settings_.set("limit", 1'000'000'000);
  serveFile("a.png", "a");
  server_.serve("/c.json", {configuration({banner("a")}), configuration({})});
  start();
  ASSERT_TRUE(waitForLines("pass 1 done"));
  EXPECT_EQ(count("trim"), 0U);
}

TEST_F(ServiceTest, AHoldEndsByItselfWithinAMinute) {
  scratch_.write("service/hold", "");
  server_.serve("/c.json", configuration({}));
  start();
  ASSERT_TRUE(waitForLines("downloads are held"));
  EXPECT_THAT(server_.requests(), IsEmpty());
  std::filesystem::remove(directory() + "/hold");
  timers_->advance(std::chrono::minutes(1));
  EXPECT_TRUE(waitForLines("pass 1 "));
}

TEST_F(ServiceTest, FilesAreHeldToo) {
  serveFile("a.png", "a");
  // The file appears while the configuration is on its way.
  server_.serve("/c.json", LoopbackServer::Handler([&](const Request&) {
                  scratch_.write("service/hold", "");
                  return configuration({banner("a")});
                }));
  start();
  ASSERT_TRUE(waitForLines("downloads are held"));
  EXPECT_THAT(server_.requests("/files/a.png"), IsEmpty());
  std::filesystem::remove(directory() + "/hold");
  service_->checkNow();
  EXPECT_TRUE(waitForLines("pass 1 done: 1 items, 1 added"));
}

TEST_F(ServiceTest, ADirectoryHasOneService) {
  server_.serve("/c.json", configuration({}));
  start();
  std::optional<kiv::Error> error;
  EXPECT_EQ(open(&error), nullptr);
  ASSERT_TRUE(error);
  EXPECT_THAT(error->localizedDescription(), HasSubstr("another service uses the directory"));
  service_->stop();
  service_.reset();
  kiv::DispatchQueue::main()->drain();
  service_ = open();
  EXPECT_TRUE(service_);
}

TEST_F(ServiceTest, ADirectoryThatCannotBeMadeIsAnError) {
  scratch_.write("service", "a file");
  std::optional<kiv::Error> error;
  EXPECT_EQ(open(&error), nullptr);
  EXPECT_TRUE(error);
}

TEST_F(ServiceTest, AnIndexThatCannotBeWrittenIsToldAndTriedAgain) {
  std::filesystem::create_directories(directory() + "/cache/index.json");
  server_.serve("/c.json", configuration({}));
  start();
  ASSERT_TRUE(waitForLines("pass 1 "));
  EXPECT_EQ(count("<3>index.json was not written: "), 2U);
}

}  // namespace
