#include <algorithm>
#include <chrono>
#include <filesystem>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KivPlatform/Foundation/files/Path.h"
#include "KivResource/KivResource.h"
#include "Tests/KivResource/RealClientFixture.h"
#include "Tests/Support/FaultyFileManager.h"
#include "Tests/Support/PowerCutFileManager.h"
#include "Tests/Support/ZipBuilder.h"

namespace kiv::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using Outcome = KivResourceRevalidationOutcome;
using FileOutcome = KivResourceRevalidationFileOutcome;

/// What every test needs: reports, and the record.
template <class Fixture>
class WithRevalidation : public Fixture {
 protected:
  using Reports = std::vector<KivResourceRevalidationReport>;

  void begin(const KivResourceRevalidation& what = {}) {
    this->manager->revalidate([all = reports_](const auto& report) { all->push_back(report); },
                              what);
  }

  /// Waits for the report of what was begun; expects that exactly one comes.
  KivResourceRevalidationReport finish() {
    EXPECT_TRUE(waitUntil([&] { return !reports_->empty(); }));
    while (DispatchQueue::main()->drain() > 0) {
    }
    EXPECT_EQ(reports_->size(), 1U);
    auto taken = std::exchange(*reports_, {});
    return taken.empty() ? KivResourceRevalidationReport() : taken.front();
  }

  KivResourceRevalidationReport revalidate(const KivResourceRevalidation& what = {}) {
    begin(what);
    return finish();
  }

  /// Name and outcome of each file.
  static Names filesOf(const KivResourceRevalidationReport& report) {
    Names files;
    for (const auto& file : report.files) {
      files.push_back(std::string(path::lastPathComponent(file.path)) + " " +
                      std::string(kiv::nameOf(file.outcome)));
    }
    return files;
  }

  [[nodiscard]] std::string recordPath() const {
    return this->root() + "/KivResource/resources_validators.json";
  }
  [[nodiscard]] std::string record() const { return this->read(recordPath()); }

  static std::string archive(const std::string& page, const std::string& other = "") {
    ZipBuilder zip;
    zip.addFile("index.html", page);
    zip.addFile("other.txt", other);
    return zip.build();
  }

  std::shared_ptr<Reports> reports_ = std::make_shared<Reports>();
};

// --- With the real client ------------------------------------------------------------------------

class KivResourceRevalidationEndToEnd : public WithRevalidation<RealClientFixture> {
 protected:
  /// Answers 304 to the validator's condition, otherwise the contents.
  void serveTagged(const std::string& path, const std::string& body, const std::string& tag) {
    server.serve(path, [=](const Request& request) {
      if (request.header("If-None-Match") == tag) return Response::status(304);
      return Response::ok(body).header("ETag", tag);
    });
  }
};

TEST_F(KivResourceRevalidationEndToEnd, AsksWithTheTagAndReplacesWhatHasChanged) {
  serveTagged("/x/a.png", "old", "\"1\"");
  update({banner("a", 1, "x/a.png")});
  EXPECT_THAT(filesOf(revalidate()), ElementsAre("a.png unchanged"));
  EXPECT_EQ(server.requests("/x/a.png")[1].header("If-None-Match"), "\"1\"");

  serveTagged("/x/a.png", "new", "\"2\"");
  observer->clear();
  const auto list = read(listPath());
  const auto report = revalidate();
  EXPECT_EQ(report.outcome, Outcome::done);
  EXPECT_THAT(filesOf(report), ElementsAre("a.png replaced"));
  EXPECT_EQ(report.files[0].link, "x/a.png");
  EXPECT_EQ(report.files[0].path, stored("a.png"));
  EXPECT_THAT(report.files[0].resourceIDs, ElementsAre("a"));
  EXPECT_EQ(report.files[0].statusCode, 200);
  EXPECT_EQ(report.bytes, 3);
  EXPECT_EQ(read(stored("a.png")), "new");
  EXPECT_THAT(takeEvents(), IsEmpty());
  EXPECT_EQ(read(listPath()), list);

  EXPECT_THAT(filesOf(revalidate()), ElementsAre("a.png unchanged"));
  EXPECT_EQ(server.requests("/x/a.png")[3].header("If-None-Match"), "\"2\"");
}

TEST_F(KivResourceRevalidationEndToEnd, AsksWithTheTagAboutWhatWasShown) {
  serveTagged("/a.png", "old", "\"1\"");
  update({banner("a", 1, "a.png")});
  const auto old = std::filesystem::last_write_time(stored("a.png")) - std::chrono::hours(1);
  std::filesystem::last_write_time(stored("a.png"), old);
  ASSERT_TRUE(Lease::take(*manager->allLoadedResources().at(0)));
  ASSERT_GT(std::filesystem::last_write_time(stored("a.png")), old);
  EXPECT_THAT(filesOf(revalidate()), ElementsAre("a.png unchanged"));
  EXPECT_EQ(server.requests("/a.png")[1].header("If-None-Match"), "\"1\"");
}

TEST_F(KivResourceRevalidationEndToEnd, RemembersAfterARestart) {
  serveTagged("/a.png", "old", "W/\"weak\"");
  update({banner("a", 1, "a.png")});
  restart();
  EXPECT_THAT(filesOf(revalidate()), ElementsAre("a.png unchanged"));
  EXPECT_EQ(server.requests("/a.png")[1].header("If-None-Match"), "W/\"weak\"");
  EXPECT_EQ(server.requests("/a.png").size(), 2U);
}

TEST_F(KivResourceRevalidationEndToEnd, AsksWithTheDateIfThereIsNoTag) {
  const std::string date = "Sun, 06 Nov 1994 08:49:37 GMT";
  server.serve("/a.png", [=](const Request& request) {
    if (request.header("If-Modified-Since") == date) return Response::status(304);
    return Response::ok("old").header("Last-Modified", date);
  });
  update({banner("a", 1, "a.png")});
  const auto report = revalidate();
  EXPECT_THAT(filesOf(report), ElementsAre("a.png unchanged"));
  EXPECT_EQ(report.files[0].statusCode, 304);
}

TEST_F(KivResourceRevalidationEndToEnd, WithoutValidatorsTheContentsAreCompared) {
  server.serve("/a.png", Response::ok("same"));
  server.serve("/empty.png", Response::ok(""));
  update({banner("a", 1, "a.png"), banner("b", 1, "empty.png")});
  const auto version = std::filesystem::last_write_time(stored("a.png"));
  const auto report = revalidate();
  EXPECT_THAT(filesOf(report),
              testing::UnorderedElementsAre("a.png unchanged", "empty.png unchanged"));
  EXPECT_EQ(report.files[0].statusCode, 200);
  EXPECT_EQ(std::filesystem::last_write_time(stored("a.png")), version);
  server.serve("/a.png", Response::ok("diff"));  // of the same length
  EXPECT_THAT(filesOf(revalidate()),
              testing::UnorderedElementsAre("a.png replaced", "empty.png unchanged"));
  EXPECT_EQ(read(stored("a.png")), "diff");
}

TEST_F(KivResourceRevalidationEndToEnd, AnEqualFileTeachesTheNewValidators) {
  server.serve("/a.png", Response::ok("same"));
  update({banner("a", 1, "a.png")});
  serveTagged("/a.png", "same", "\"late\"");
  EXPECT_THAT(filesOf(revalidate()), ElementsAre("a.png unchanged"));
  restart();
  EXPECT_THAT(filesOf(revalidate()), ElementsAre("a.png unchanged"));
  EXPECT_EQ(server.requests("/a.png")[2].header("If-None-Match"), "\"late\"");
}

TEST_F(KivResourceRevalidationEndToEnd, LargeFilesAreComparedAndReplaced) {
  std::string large(3'000'000, 'x');
  server.serve("/a.png", Response::ok(large));
  update({banner("a", 1, "a.png")});
  EXPECT_THAT(filesOf(revalidate()), ElementsAre("a.png unchanged"));
  large.back() = 'y';
  server.serve("/a.png", Response::ok(large));
  EXPECT_THAT(filesOf(revalidate()), ElementsAre("a.png replaced"));
  EXPECT_TRUE(read(stored("a.png")) == large);
}

TEST_F(KivResourceRevalidationEndToEnd, TheMirrorHelpsAndIsNotAskedAboutTheValidatorsOfTheServer) {
  LoopbackServer mirror;
  KivAppConfiguration::sharedInstance()->setReserveACSDomain(mirror.url());
  serveTagged("/a.png", "same", "\"1\"");
  update({banner("a", 1, "a.png")});
  server.serve("/a.png", Response::status(404));
  mirror.serve("/a.png", Response::ok("same").header("ETag", "\"1\""));
  EXPECT_THAT(filesOf(revalidate()), ElementsAre("a.png unchanged"));
  ASSERT_EQ(mirror.requests().size(), 1U);
  EXPECT_FALSE(mirror.requests()[0].header("If-None-Match"));
  // From now on the validators are the mirror's.
  serveTagged("/a.png", "other", "\"1\"");
  EXPECT_THAT(filesOf(revalidate()), ElementsAre("a.png replaced"));
  EXPECT_FALSE(server.requests("/a.png").back().header("If-None-Match"));
}

TEST_F(KivResourceRevalidationEndToEnd, AfterARedirectTheContentsAreCompared) {
  server.serve("/a.png", Response::redirect(302, "/b.png"));
  serveTagged("/b.png", "old", "\"1\"");
  update({banner("a", 1, "a.png")});
  EXPECT_THAT(filesOf(revalidate()), ElementsAre("a.png unchanged"));
  for (const Request& request : server.requests())
    EXPECT_FALSE(request.header("If-None-Match")) << request.path;
  serveTagged("/b.png", "new", "\"2\"");
  EXPECT_THAT(filesOf(revalidate()), ElementsAre("a.png replaced"));
  EXPECT_EQ(read(stored("a.png")), "new");
}

TEST_F(KivResourceRevalidationEndToEnd, AFailureLeavesTheFileAndItsValidators) {
  serveTagged("/a.png", "old", "\"1\"");
  update({banner("a", 1, "a.png")});
  for (const Response& response :
       {Response::status(404), Response::status(304).header("ETag", "\"9\"").thenClose(),
        Response::ok("cut off").closeAt(3), Response::ok("no end").withoutLength()}) {
    server.serve("/a.png", response);
    const auto report = revalidate();
    const bool isUnchanged = filesOf(report)[0] == "a.png unchanged";
    EXPECT_EQ(isUnchanged, report.files[0].statusCode == 304);
    EXPECT_NE(isUnchanged, report.files[0].error.has_value());
    EXPECT_EQ(read(stored("a.png")), "old");
  }
}

TEST_F(KivResourceRevalidationEndToEnd, AnUnaskedNotModifiedIsNoAnswer) {
  server.serve("/a.png", {Response::ok("old"), Response::status(304)});
  update({banner("a", 1, "a.png")});
  const auto report = revalidate();
  EXPECT_THAT(filesOf(report), ElementsAre("a.png failed"));
  EXPECT_EQ(report.files[0].error->code, 102);
}

TEST_F(KivResourceRevalidationEndToEnd, ABodyThatIsTooLargeIsRefused) {
  server.serve("/a.png", Response::ok("old"));
  update({banner("a", 1, "a.png")});
  KivRESTServiceSettings settings;
  settings.largestBody = 10;
  manager->loader()->setRestService(std::make_shared<KivRESTService>(settings));
  server.serve("/a.png", Response::ok("eleven bytes"));
  const auto report = revalidate();
  EXPECT_THAT(filesOf(report), ElementsAre("a.png failed"));
  EXPECT_EQ(report.files[0].error->code, static_cast<int>(KivRESTServiceErrorCode::bodyTooLarge));
  EXPECT_EQ(read(stored("a.png")), "old");
}

TEST_F(KivResourceRevalidationEndToEnd, AnArchiveIsReplacedAsAWholeAndALeaseKeepsTheFormer) {
  server.serve("/p.zip", Response::ok(archive("old", "old")));
  update({page("p", 1, "p.zip")});
  EXPECT_THAT(filesOf(revalidate()), ElementsAre("index.html unchanged"));
  restart();
  EXPECT_THAT(filesOf(revalidate()), ElementsAre("index.html unchanged"));
  auto lease = Lease::take(*entry(0));
  ASSERT_TRUE(lease);
  ZipBuilder zip;
  zip.addFile("index.html", "new");
  server.serve("/p.zip", Response::ok(zip.build()));
  EXPECT_THAT(filesOf(revalidate()), ElementsAre("index.html replaced"));
  EXPECT_EQ(read(stored("p/index.html")), "new");
  EXPECT_FALSE(exists(stored("p/other.txt")));
  const std::string leased = lease->resource()->useFilePaths()[0];
  EXPECT_EQ(read(leased), "old");
  EXPECT_EQ(read(std::string(path::deletingLastPathComponent(leased)) + "/other.txt"), "old");
  EXPECT_THAT(filesOf(revalidate()), ElementsAre("index.html unchanged"));
}

TEST_F(KivResourceRevalidationEndToEnd, AnArchiveThatIsNotValidLeavesTheOldOne) {
  serveTagged("/p.zip", archive("old"), "\"1\"");
  update({page("p", 1, "p.zip")});
  server.serve("/p.zip", Response::ok("no archive").header("ETag", "\"2\""));
  EXPECT_THAT(filesOf(revalidate()), ElementsAre("index.html failed"));
  EXPECT_EQ(read(stored("p/index.html")), "old");
  serveTagged("/p.zip", archive("old"), "\"1\"");
  EXPECT_THAT(filesOf(revalidate()), ElementsAre("index.html unchanged"));
  EXPECT_EQ(server.requests("/p.zip").back().header("If-None-Match"), "\"1\"");
}

TEST_F(KivResourceRevalidationEndToEnd, CredentialsAreNowhere) {
  const std::string url = "http://user:secret@" + server.url().substr(7);
  useServer(url);
  server.serve("/a.png", {Response::ok("old").header("ETag", "\"1\""),
                          Response::ok("new").header("ETag", "\"2\""), Response::status(404)});
  update({banner("a", 1, "a.png")});
  log.clear();
  const auto replaced = revalidate();
  EXPECT_THAT(filesOf(replaced), ElementsAre("a.png replaced"));
  const auto failed = revalidate();
  EXPECT_THAT(filesOf(failed), ElementsAre("a.png failed"));
  EXPECT_THAT(record(), Not(HasSubstr("secret")));
  EXPECT_THAT(record(), Not(HasSubstr("127.0.0.1")));
  for (const std::string& line : log.lines())
    EXPECT_THAT(line, Not(HasSubstr("secret")));
  EXPECT_THAT(failed.files[0].link, Not(HasSubstr("secret")));
  EXPECT_THAT(failed.files[0].error->description(), Not(HasSubstr("secret")));
}

TEST_F(KivResourceRevalidationEndToEnd, AHostThatNeverCallsItSendsTheRequestsOfBefore) {
  serveTagged("/a.png", "a", "\"1\"");
  update({banner("a", 1, "a.png")});
  update({banner("a", 2, "a.png")});  // is found under its name
  const auto requests = server.requests();
  ASSERT_EQ(requests.size(), 1U);
  Names headers;
  for (const auto& [name, value] : requests[0].headers)
    headers.push_back(name);
  EXPECT_THAT(headers, ElementsAre("Host", "User-Agent", "Accept"));
}

TEST_F(KivResourceRevalidationEndToEnd, ACacheOfItsOwnAsksItsServersAboutItsFiles) {
  LoopbackServer other;
  serveTagged("/a.png", "process", "\"1\"");
  other.serve("/a.png", {Response::ok("own"), Response::ok("new")});
  update({banner("a", 1, "a.png")});
  KivResourceCacheOptions options;
  options.rootPath = root() + "-own";
  options.mainACSDomain = other.url();
  const auto cache = KivResourceCache::open(options);
  ASSERT_TRUE(cache);
  manager = cache->manager();
  manager->addObserver(observer);
  update({banner("a", 1, "a.png")});
  const auto report = revalidate();
  EXPECT_THAT(filesOf(report), ElementsAre("a.png replaced"));
  EXPECT_EQ(report.files[0].path, options.rootPath + "/KivResource/Resources/a.png");
  EXPECT_EQ(read(report.files[0].path), "new");
  EXPECT_TRUE(exists(options.rootPath + "/KivResource/resources_validators.json"));
  EXPECT_EQ(read(stored("a.png")), "process");
  restart();
  EXPECT_THAT(filesOf(revalidate()), ElementsAre("a.png unchanged"));
  EXPECT_EQ(server.requests("/a.png").back().header("If-None-Match"), "\"1\"");
}

TEST_F(KivResourceRevalidationEndToEnd, StopLoadingStopsItToo) {
  const Gate gate;
  server.serve("/a.png", {Response::ok("old"), Response::ok("new").after(gate)});
  update({banner("a", 1, "a.png")});
  begin();
  ASSERT_TRUE(server.waitForRequests("/a.png", 2));
  observer->clear();
  manager->stopLoading();
  const auto report = finish();
  EXPECT_EQ(report.outcome, Outcome::stopped);
  EXPECT_THAT(filesOf(report), ElementsAre("a.png notEnded"));
  EXPECT_THAT(takeEvents(), ElementsAre("finished"));
  gate.open();
  EXPECT_EQ(read(stored("a.png")), "old");
}

TEST_F(KivResourceRevalidationEndToEnd, TheReleaseOfTheManagerAbandonsIt) {
  const Gate gate;
  server.serve("/a.png", {Response::ok("old"), Response::ok("new").after(gate)});
  update({banner("a", 1, "a.png")});
  begin();
  ASSERT_TRUE(server.waitForRequests("/a.png", 2));
  const std::weak_ptr<KivResourceManager> released = manager;
  manager = KivResourceManager::newInstance();
  EXPECT_TRUE(released.expired());
  const auto report = finish();
  EXPECT_EQ(report.outcome, Outcome::abandoned);
  EXPECT_THAT(filesOf(report), ElementsAre("a.png notEnded"));
  gate.open();
}

TEST_F(KivResourceRevalidationEndToEnd, ACancelledRequestIsReported) {
  const Gate gate;
  server.serve("/a.png", {Response::ok("old"), Response::ok("new").after(gate)});
  server.serve("/b.png", Response::ok("same"));
  update({banner("a", 1, "a.png"), banner("b", 1, "b.png")});
  begin();
  ASSERT_TRUE(server.waitForRequests("/a.png", 2));
  manager->loader()->restService()->cancelAllTasks();
  EXPECT_EQ(finish().outcome, Outcome::stopped);
  begin();
  ASSERT_TRUE(server.waitForRequests("/a.png", 3));
  manager->setLoader(std::make_shared<KivResourceRESTModule>());
  EXPECT_EQ(finish().outcome, Outcome::stopped);
  gate.open();
}

TEST_F(KivResourceRevalidationEndToEnd, APassRunsBesideIt) {
  const Gate gate;
  server.serve("/a.png", {Response::ok("old"), Response::ok("new").after(gate)});
  server.serve("/b.png", Response::ok("b"));
  update({banner("a", 1, "a.png")});
  begin();
  ASSERT_TRUE(server.waitForRequests("/a.png", 2));
  EXPECT_EQ(manager->loadingResourcesFilesCount(), 0);
  observer->clear();
  update({banner("a", 1, "a.png"), banner("b", 1, "b.png")});
  EXPECT_THAT(takeEvents(), ElementsAre("loaded a", "loaded b", "finished"));
  EXPECT_TRUE(reports_->empty());
  gate.open();
  EXPECT_THAT(filesOf(finish()), ElementsAre("a.png replaced"));
  EXPECT_EQ(read(stored("a.png")), "new");
}

// --- With a client without a network -------------------------------------------------------------

class KivResourceRevalidationTest : public WithRevalidation<ManagerFixture> {
 protected:
  void answerUnchanged(const std::string& urlEnd) {
    for (const auto& task : client->tasks) {
      if (!task->request()->url.absoluteString().ends_with(urlEnd)) continue;
      task->setReturnedValidators(task->validators());
      break;
    }
    ASSERT_TRUE(client->answer(urlEnd, 304));
  }
  /// Completes the first task with status 200 and that tag.
  void succeedTagged(const std::string& urlEnd, const std::string& bytes, const std::string& tag) {
    for (const auto& task : client->tasks) {
      const std::string url = task->request()->url.absoluteString();
      if (!url.ends_with(urlEnd)) continue;
      task->setReturnedValidators(KivRESTServiceValidators{url, tag, ""});
      break;
    }
    ASSERT_TRUE(client->succeed(urlEnd, bytes));
  }
  std::optional<KivRESTServiceValidators> condition() {
    return client->tasks.empty() ? std::nullopt : client->tasks.front()->validators();
  }
};

TEST_F(KivResourceRevalidationTest, AFileOfSeveralResourcesIsAskedForOnce) {
  load({banner("a", 1, "x/s.png"), banner("b", 1, "x/s.png"), video("v", 1, "s.png", "v.mp4")});
  begin();
  EXPECT_EQ(client->urls.size(), 2U);
  EXPECT_EQ(client->tasks[0]->priority(), 2U);  // the highest of its resources
  client->succeed("s.png");
  client->succeed("v.mp4", "other");
  const auto report = finish();
  EXPECT_THAT(filesOf(report), ElementsAre("s.png unchanged", "v.mp4 replaced"));
  EXPECT_THAT(report.files[0].resourceIDs, ElementsAre("a", "b", "v"));
}

TEST_F(KivResourceRevalidationTest, IdentifierAndTypeSelect) {
  load({banner("a", 1, "a.png"), banner("b", 1, "b.png"), video("b", 1, "i.png", "v.mp4")});
  load({page("p", 1, "p.html")});
  begin({.resourceID = "b", .type = "banner"});
  EXPECT_THAT(client->urls, IsEmpty());  // the video has replaced it
  EXPECT_THAT(filesOf(finish()), IsEmpty());
  begin({.type = "page"});
  EXPECT_THAT(client->urls, ElementsAre("http://main.test/files/p.html"));
  client->succeed("");
  EXPECT_THAT(filesOf(finish()), ElementsAre("p.html unchanged"));
  begin({.resourceID = "nobody"});
  EXPECT_EQ(finish().outcome, Outcome::done);
}

TEST_F(KivResourceRevalidationTest, PackagedFilesAndFilesWithoutALinkAreNotAskedFor) {
  write(packaged() + "/InnerAdResources.bundle/inner.png", "packaged");
  load({banner("i", 1, "inner.png"), banner("a", 1, "a.png")});
  std::filesystem::remove(recordPath());
  restart();
  const auto report = revalidate();
  EXPECT_THAT(filesOf(report), ElementsAre("inner.png unknown", "a.png unknown"));
  EXPECT_EQ(report.files[1].link, "");
  EXPECT_THAT(client->urls, IsEmpty());
}

TEST_F(KivResourceRevalidationTest, AFileThatAPassFindsGetsItsLink) {
  load({banner("a", 1, "x/a.png")});
  std::filesystem::remove(recordPath());
  restart();
  load({banner("a", 2, "y/a.png")});
  begin();
  EXPECT_THAT(client->urls, ElementsAre("http://main.test/files/y/a.png"));
  client->succeed("", "other");
  EXPECT_THAT(filesOf(finish()), ElementsAre("a.png replaced"));
}

TEST_F(KivResourceRevalidationTest, AFileOfAFailedResourceIsKnownWhenItIsCompletedLater) {
  beginLoad({video("v", 1, "i.png", "v.mp4")});
  succeedTagged("i.png", "icon", "\"i\"");
  client->fail("v.mp4");
  restart();
  load({video("v", 1, "i.png", "v.mp4")});
  begin();
  ASSERT_EQ(client->tasks.size(), 2U);
  EXPECT_EQ(condition()->entityTag, "\"i\"");
  client->succeed("v.mp4");
  answerUnchanged("i.png");
  EXPECT_EQ(finish().count(FileOutcome::unchanged), 2U);
}

TEST_F(KivResourceRevalidationTest, OnlyOneRunsAtATime) {
  load({banner("a", 1, "a.png")});
  begin();
  manager->revalidate([all = reports_](const auto& report) { all->push_back(report); });
  EXPECT_EQ(finish().outcome, Outcome::refused);
  client->succeed("a.png");
  EXPECT_EQ(finish().outcome, Outcome::done);
}

TEST_F(KivResourceRevalidationTest, TheHandlerMayStartAnotherOneOrAPass) {
  load({banner("a", 1, "a.png")});
  manager->revalidate([this](const auto&) {
    begin();
    beginLoad({banner("b", 1, "b.png")});
  });
  client->succeed("a.png");
  takeEvents();
  EXPECT_TRUE(client->succeed("a.png", "new"));
  EXPECT_TRUE(client->succeed("b.png"));
  EXPECT_EQ(finish().count(FileOutcome::replaced), 1U);
}

TEST_F(KivResourceRevalidationTest, AHandlerMayThrowOrBeEmpty) {
  load({banner("a", 1, "a.png")});
  manager->revalidate([](const auto&) { throw std::runtime_error("from the host"); });
  client->succeed("a.png");
  takeEvents();
  manager->revalidate(nullptr);
  client->succeed("a.png");
  takeEvents();
  begin();
  client->succeed("a.png");
  EXPECT_EQ(finish().outcome, Outcome::done);
}

TEST_F(KivResourceRevalidationTest, WithoutALoaderOrAClientEveryFileFails) {
  load({banner("a", 1, "a.png")});
  manager->loader()->setRestService(nullptr);
  auto report = revalidate();
  EXPECT_THAT(filesOf(report), ElementsAre("a.png failed"));
  EXPECT_EQ(report.files[0].error->code, 101);
  manager->setLoader(nullptr);
  report = revalidate();
  EXPECT_EQ(report.files[0].error->code, 101);
  manager->setLoader(std::make_shared<KivResourceRESTModule>());
}

TEST_F(KivResourceRevalidationTest, WhatTheHostsLoaderBringsIsCompared) {
  struct HostsLoader : KivResourceRESTModule {
    void loadDataForResource_usingFileLink_completionHandler(
        const std::shared_ptr<KivResource>&, const std::string&,
        CompletionHandler completion) override {
      completion(Data("from the host"), std::nullopt);
    }
  };
  load({banner("a", 1, "a.png")});
  manager->setLoader(std::make_shared<HostsLoader>());
  EXPECT_THAT(filesOf(revalidate()), ElementsAre("a.png replaced"));
  EXPECT_THAT(filesOf(revalidate()), ElementsAre("a.png unchanged"));
}

TEST_F(KivResourceRevalidationTest, ALoaderThatThrowsFailsTheFile) {
  struct Throwing : KivResourceRESTModule {
    void loadDataForResource_usingFileLink_completionHandler(const std::shared_ptr<KivResource>&,
                                                             const std::string&,
                                                             CompletionHandler) override {
      throw std::bad_alloc();
    }
  };
  load({banner("a", 1, "a.png")});
  manager->setLoader(std::make_shared<Throwing>());
  const auto report = revalidate();
  EXPECT_THAT(filesOf(report), ElementsAre("a.png failed"));
  EXPECT_TRUE(report.isIncomplete);
}

// --- What happens meanwhile ----------------------------------------------------------------------

TEST_F(KivResourceRevalidationTest, AResourceThatIsRemovedMeanwhileKeepsItsFileAsItIs) {
  load({banner("a", 1, "a.png"), banner("b", 1, "b.png")});
  begin();
  beginUpdate({banner("b", 1, "b.png")});
  client->succeed("a.png", "new");
  client->succeed("b.png", "new");
  EXPECT_THAT(filesOf(finish()), ElementsAre("a.png removed", "b.png replaced"));
  EXPECT_EQ(read(stored("a.png")), "bytes");
}

TEST_F(KivResourceRevalidationTest, AResourceThatIsReplacedMeanwhileTakesItsFileWithIt) {
  load({banner("a", 1, "a.png")});
  begin();
  beginLoad({banner("a", 2, "b.png")});
  client->succeed("b.png");
  EXPECT_FALSE(exists(stored("a.png")));
  client->succeed("a.png", "new");
  EXPECT_THAT(filesOf(finish()), ElementsAre("a.png removed"));
  EXPECT_FALSE(exists(stored("a.png")));
}

TEST_F(KivResourceRevalidationTest, AFileThatIsDeletedOrReplacedMeanwhileIsLeftAlone) {
  load({banner("a", 1, "a.png"), banner("b", 1, "b.png"), banner("c", 1, "c.png")});
  begin();
  std::filesystem::remove(stored("a.png"));
  std::filesystem::remove(stored("b.png"));
  write(stored("b.png"), "of another process");
  std::filesystem::remove(stored("c.png"));
  write(stored("c.png"), "bytes");
  client->succeed("a.png", "new");
  client->succeed("b.png", "new");
  client->succeed("c.png", "bytes");
  EXPECT_THAT(filesOf(finish()), ElementsAre("a.png removed", "b.png removed", "c.png removed"));
  EXPECT_FALSE(exists(stored("a.png")));
  EXPECT_EQ(read(stored("b.png")), "of another process");
}

TEST_F(KivResourceRevalidationTest, AFileThatIsMissingIsNotAskedFor) {
  load({banner("a", 1, "a.png")});
  std::filesystem::remove(stored("a.png"));
  EXPECT_THAT(filesOf(revalidate()), ElementsAre("a.png removed"));
  EXPECT_THAT(client->urls, IsEmpty());
}

TEST_F(KivResourceRevalidationTest, AnotherManagerThatReplacesTheResourceIsNoticed) {
  load({banner("a", 1, "a.png")});
  begin();
  const auto other = KivResourceManager::newInstance();
  const auto itsClient = std::make_shared<FakeRESTService>();
  other->loader()->setRestService(itsClient);
  other->loadResourcesForConfig(config({banner("a", 2, "b.png")}));
  itsClient->succeed("b.png");
  EXPECT_FALSE(exists(stored("a.png")));
  client->succeed("a.png", "new");
  EXPECT_THAT(filesOf(finish()), ElementsAre("a.png removed"));
  EXPECT_FALSE(exists(stored("a.png")));
}

TEST_F(KivResourceRevalidationTest, TwoManagersOnOneRootKeepWhatEachHasLearnt) {
  const auto other = KivResourceManager::newInstance();
  const auto itsClient = std::make_shared<FakeRESTService>();
  other->loader()->setRestService(itsClient);
  load({banner("a", 1, "x/a.png")});
  other->loadResourcesForConfig(config({banner("b", 1, "y/b.png")}));
  itsClient->succeed("b.png");
  load({banner("c", 1, "z/c.png")});
  restart();
  begin();
  EXPECT_THAT(client->urls, testing::UnorderedElementsAre("http://main.test/files/x/a.png",
                                                          "http://main.test/files/y/b.png",
                                                          "http://main.test/files/z/c.png"));
  manager->stopLoading();
  EXPECT_EQ(finish().outcome, Outcome::stopped);
}

TEST_F(KivResourceRevalidationTest, AFileThatWasChangedSinceIsAskedForWithoutACondition) {
  beginLoad({banner("a", 1, "a.png")});
  succeedTagged("a.png", "old", "\"1\"");
  takeEvents();
  write(stored("a.png"), "damaged");
  begin();
  EXPECT_FALSE(condition());
  client->succeed("a.png", "old");
  EXPECT_THAT(filesOf(finish()), ElementsAre("a.png replaced"));
  EXPECT_EQ(read(stored("a.png")), "old");
}

// --- The record ----------------------------------------------------------------------------------

TEST_F(KivResourceRevalidationTest, TheRecordIsPrivateAndHasWhatIsThere) {
  beginLoad({banner("a", 1, "x/a.png"), banner("b", 1, "b.png")});
  succeedTagged("a.png", "a", "\"1\"");
  client->succeed("b.png");
  takeEvents();
  using std::filesystem::perms;
  EXPECT_EQ(std::filesystem::status(recordPath()).permissions(),
            perms::owner_read | perms::owner_write);
  EXPECT_THAT(record(), HasSubstr("x/a.png"));
  EXPECT_THAT(record(), Not(HasSubstr("main.test")));
  std::filesystem::remove(stored("b.png"));
  load({banner("c", 1, "c.png")});
  EXPECT_THAT(record(), Not(HasSubstr("b.png")));
  EXPECT_THAT(record(), HasSubstr("\\\"1\\\""));
}

TEST_F(KivResourceRevalidationTest, AnUnchangedFileWritesNothing) {
  beginLoad({banner("a", 1, "a.png")});
  succeedTagged("a.png", "a", "\"1\"");
  takeEvents();
  restart();
  const auto identity = FileManager::defaultManager().identityOfFileAtPath(recordPath());
  begin();
  answerUnchanged("a.png");
  EXPECT_EQ(finish().count(FileOutcome::unchanged), 1U);
  EXPECT_TRUE(*identity == *FileManager::defaultManager().identityOfFileAtPath(recordPath()));
}

TEST_F(KivResourceRevalidationTest, ThePassWritesTheRecordOnce) {
  FaultyFileManager files;
  files.setFault(std::nullopt);
  FileManager::setDefaultManager(&files);
  load({banner("a", 1, "a.png"), banner("b", 1, "b.png"), banner("c", 1, "c.png")});
  FileManager::setDefaultManager(nullptr);
  const auto operations = files.operations();
  EXPECT_EQ(std::count_if(operations.begin(), operations.end(),
                          [&](const auto& operation) { return operation.newPath == recordPath(); }),
            1);
}

class HostileRecord : public KivResourceRevalidationTest,
                      public testing::WithParamInterface<std::string> {};

TEST_P(HostileRecord, IsIgnoredAndReplaced) {
  load({banner("a", 1, "a.png")});
  write(root() + "/KivResource/Resources/../victim", "victim");
  write(recordPath(), GetParam());
  log.clear();
  begin();
  for (const std::string& url : client->urls)
    EXPECT_EQ(url, "http://main.test/files/a.png");
  if (client->tasks.empty()) {
    EXPECT_THAT(filesOf(finish()), ElementsAre("a.png unknown"));
  } else {
    client->succeed("");
    finish();
  }
  load({banner("b", 1, "b.png")});
  EXPECT_THAT(record(), HasSubstr("b.png"));
  EXPECT_TRUE(JSON::read(record()));
  EXPECT_EQ(read(root() + "/KivResource/victim"), "victim");
}

INSTANTIATE_TEST_SUITE_P(
    All, HostileRecord,
    testing::Values(
        "", "{", "[]", "null", "\0\xff", R"({"format":2,"files":[]})", R"({"format":1})",
        R"({"format":1,"files":{"a.png":1}})", R"({"format":1,"files":[1,null,"x",[],{}]})",
        R"({"format":1,"files":[{"link":7,"etag":[],"file":"x","archive":{}}]})",
        R"({"format":1,"files":[{"link":"../victim"},{"link":"/etc/passwd"},{"link":".."}]})",
        R"({"format":1,"files":[{"link":"a.png","file":[1,2],"archive":[1],"url":"xyz"}]})",
        R"({"format":1,"files":[{"link":"a.png","etag":"\"\r\nX: y\"","url":"0"}]})",
        std::string(100'000, '[')));

TEST_F(KivResourceRevalidationTest, ARecordThatIsNoFileOrTooLargeIsIgnored) {
  load({banner("a", 1, "a.png")});
  std::filesystem::remove(recordPath());
  std::filesystem::create_symlink(listPath(), recordPath());
  log.clear();
  EXPECT_THAT(filesOf(revalidate()), ElementsAre("a.png unknown"));
  EXPECT_THAT(log.lines(), testing::Contains(HasSubstr("no regular file")));
  std::filesystem::remove(recordPath());
  write(recordPath(), "");
  std::filesystem::resize_file(recordPath(), std::uintmax_t{1} << 32);
  log.clear();
  EXPECT_THAT(filesOf(revalidate()), ElementsAre("a.png unknown"));
  EXPECT_THAT(log.lines(), testing::Contains(HasSubstr("too large")));
}

TEST_F(KivResourceRevalidationTest, AFailureToWriteTheRecordIsOnlyLogged) {
  std::filesystem::create_directories(recordPath());
  beginLoad({banner("a", 1, "a.png")});
  client->succeed("");
  EXPECT_THAT(takeEvents(), ElementsAre("loaded a", "finished"));
  EXPECT_FALSE(manager->lastSaveError());
  EXPECT_THAT(log.lines(), testing::Contains(HasSubstr("could not be written")));
}

TEST_F(KivResourceRevalidationTest, AReplacementThatFailsAtAnyOperationLeavesOldOrNew) {
  bool isReached = true;
  for (std::uint64_t at = 1; isReached; ++at) {
    load({banner("a", at, "a.png"), page("p", at, "p.html")});
    write(stored("a.png"), "old");
    begin();
    FaultyFileManager files;
    files.setFault(FaultyFileManager::Fault{.at = at, .number = 5});
    FileManager::setDefaultManager(&files);
    client->succeed("a.png", "new");
    client->succeed("p.html");
    const auto report = finish();
    FileManager::setDefaultManager(nullptr);
    isReached = files.count() >= at;
    EXPECT_EQ(report.outcome, Outcome::done);
    const std::string contents = read(stored("a.png"));
    EXPECT_TRUE(contents == "old" || contents == "new") << at << contents;
    EXPECT_TRUE(report.files[0].outcome != FileOutcome::replaced || contents == "new") << at;
    EXPECT_NE(report.files[0].outcome, FileOutcome::unchanged) << at;
  }
}

TEST_F(KivResourceRevalidationTest, APowerCutDuringAReplacementLeavesOldOrNew) {
  using Loss = PowerCutFileManager::Loss;
  for (const auto loss : {Loss::everythingUnsynced, Loss::anyPart}) {
    bool wasCut = true;
    std::uint64_t at = 0;
    for (; wasCut && !HasFailure(); ++at) {
      SCOPED_TRACE("cut after " + std::to_string(at));
      load({banner("a", at + 1, "a.png"), page("p", at + 1, "p.html")});
      write(stored("a.png"), "old");
      write(stored("p.html"), "old");
      PowerCutFileManager files(root());
      FileManager::setDefaultManager(&files);
      begin();
      files.cutAfter(at);
      client->succeed("a.png", "new");
      client->succeed("p.html", "new");
      const auto report = finish();
      wasCut = files.wasCut();
      files.cutAfter(0);  // nothing is tidied up after the power cut
      KivStorageService::setRootPath("");
      files.restart(loss, static_cast<std::uint32_t>(at));
      FileManager::setDefaultManager(nullptr);
      KivStorageService::setRootPath(root());
      restart();
      EXPECT_EQ(report.files.size(), 2U);
      for (const auto& file : report.files) {
        const std::string contents = read(file.path);
        EXPECT_TRUE(contents == "old" || contents == "new") << file.path << contents;
        EXPECT_TRUE(file.outcome != FileOutcome::replaced || contents == "new") << file.path;
      }
      EXPECT_EQ(manager->loadedResources()->resources().size(), 2U);
    }
    EXPECT_GT(at, 10U) << "too few operations to be a replacement";
  }
}

}  // namespace
}  // namespace kiv::test
