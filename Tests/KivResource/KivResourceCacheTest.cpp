// Several caches in one process: each goes by its own root, servers and settings, whatever the
// process and the others do.

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KivPlatform/AppConfiguration/KivAppConfiguration.h"
#include "KivPlatform/Foundation/system/Bundle.h"
#include "KivResource/KivResourceCache.h"
#include "KivResource/KivResourceFactory.h"
#include "KivResource/KivResourceManager.h"
#include "KivResource/KivResourceStandard.h"
#include "KivResource/KivResourceStorageModule.h"
#include "KivResource/KivResourceWeb.h"
#include "KivResource/configuration/KivConfigurationUpdater.h"
#include "KivResource/files/KivResourceLease.h"
#include "KivResource/files/KivResourceLookup.h"
#include "KivResource/maintenance/KivResourceMaintenance.h"
#include "KivResource/maintenance/KivResourceTrim.h"
#include "Tests/Support/FakeRESTService.h"
#include "Tests/Support/ForwardingFileManager.h"
#include "Tests/Support/LoopbackServer.h"
#include "Tests/Support/MainQueue.h"
#include "Tests/Support/ManualTimers.h"
#include "Tests/Support/ReadFile.h"
#include "Tests/Support/RecordingObserver.h"
#include "Tests/Support/ResourceItems.h"
#include "Tests/Support/TemporaryDirectory.h"
#include "Tests/Support/WorkingDirectory.h"
#include "Tests/Support/ZipBuilder.h"

namespace kiv::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using Events = std::vector<std::string>;
using Maintenance = KivResourceMaintenance;

void drain() {
  while (DispatchQueue::main()->drain() > 0) {
  }
}

/// Keeps every path that the framework passes to the file manager.
class PathRecorder : public ForwardingFileManager {
 public:
  /// The paths since the last call that are, or lie below, this one.
  std::set<std::string> takeBelow(const std::string& directory) {
    std::set<std::string> below;
    for (const std::string& path : std::exchange(paths_, {}))
      if (path == directory || path.starts_with(directory + "/")) below.insert(path);
    return below;
  }

 protected:
  std::string onDisk(std::string_view path) override { return *paths_.emplace(path).first; }

 private:
  std::set<std::string> paths_;
};

/// A cache of its own with a client of the test's.
class OwnCache {
 public:
  explicit OwnCache(KivResourceCacheOptions options) : options_(std::move(options)) { open(); }
  OwnCache(const OwnCache&) = delete;
  OwnCache& operator=(const OwnCache&) = delete;
  ~OwnCache() { close(); }

  void open() {
    cache = KivResourceCache::open(options_);
    if (!cache) throw std::runtime_error("The cache was not opened.");
    client = std::make_shared<FakeRESTService>();
    observer = std::make_shared<RecordingObserver>();
    manager()->loader()->setRestService(client);
    manager()->addObserver(observer);
  }
  void close() {
    if (!cache) return;
    manager()->loader()->canselLoading();
    drain();
    cache.reset();
  }
  void restart() {
    close();
    open();
  }

  [[nodiscard]] std::shared_ptr<KivResourceManager> manager() const { return cache->manager(); }
  [[nodiscard]] std::string root() const { return options_.rootPath; }
  [[nodiscard]] std::string stored(const std::string& name) const {
    return root() + "/KivResource/Resources/" + name;
  }

  void beginUpdate(const std::vector<Dictionary>& items) const {
    Array array;
    for (const auto& item : items)
      array.append(item);
    manager()->updateResourcesForConfig(Dictionary{{"items", array}});
  }
  /// An update whose downloads get their own link's name as bytes, archives a page.
  Events update(const std::vector<Dictionary>& items) const {
    beginUpdate(items);
    while (!client->tasks.empty()) {
      const std::string url = client->tasks.front()->request()->url.absoluteString();
      client->succeed("", url.ends_with(".zip")
                              ? ZipBuilder().addFile("index.html", url).addFile("a.css", "").build()
                              : url);
    }
    drain();
    return std::exchange(observer->events, {});
  }

  /// The identifiers in the registry.
  [[nodiscard]] std::vector<std::string> identifiers() const {
    std::vector<std::string> found;
    for (const auto& resource : *manager()->loadedResources())
      found.push_back(resource->resourceID());
    return found;
  }

  std::shared_ptr<KivResourceCache> cache;
  std::shared_ptr<FakeRESTService> client;
  std::shared_ptr<RecordingObserver> observer;

 private:
  const KivResourceCacheOptions options_;
};

/// Two caches of their own. The process has no storage root, no servers and no packaged resources,
/// so that nothing can be taken from it by mistake.
class KivResourceCacheTest : public testing::Test {
 protected:
  KivResourceCacheTest() {
    KivStorageService::setRootPath("");
    Bundle::setFrameworkResourcesPath(scratch.path("no bundle"));
    KivResourceLookup::setRoots(std::vector<std::string>());
  }
  ~KivResourceCacheTest() override {
    KivStorageService::setRootPath(std::nullopt);
    Bundle::setFrameworkResourcesPath(std::nullopt);
    KivResourceLookup::setRoots(std::nullopt);
    KivAppConfiguration::sharedInstance()->setMainACSDomain(std::nullopt);
  }

  [[nodiscard]] KivResourceCacheOptions optionsFor(const std::string& name) const {
    KivResourceCacheOptions options;
    options.rootPath = scratch.path(name);
    options.mainACSDomain = "http://" + name + ".test";
    options.packagedResourcesPath = "";
    return options;
  }

  static Maintenance::Audit auditOf(const OwnCache& cache) {
    std::optional<Error> error;
    auto audit = Maintenance::audit(*cache.manager(), &error);
    if (!audit) throw std::runtime_error(error->localizedDescription());
    return *std::move(audit);
  }
  static std::vector<std::string> pathsOf(const std::vector<Maintenance::Item>& items) {
    std::vector<std::string> paths;
    for (const auto& item : items)
      paths.push_back(item.path);
    return paths;
  }

  const TemporaryDirectory scratch;
  OwnCache a{optionsFor("a")};
  OwnCache b{optionsFor("b")};
};

TEST_F(KivResourceCacheTest, EachLoadsFromItsServerIntoItsRoot) {
  EXPECT_EQ(a.update({bannerOf("x", 1, "i/x.png")}), (Events{"loaded x", "finished"}));
  EXPECT_EQ(b.update({bannerOf("x", 7, "i/x.png"), pageOf("p", 1, "i/p.zip")}),
            (Events{"loaded x", "loaded p", "finished"}));

  EXPECT_EQ(readFile(a.stored("x.png")), "http://a.test/i/x.png");
  EXPECT_EQ(readFile(b.stored("x.png")), "http://b.test/i/x.png");
  EXPECT_EQ(readFile(b.stored("p/index.html")), "http://b.test/i/p.zip");
  EXPECT_FALSE(fs::exists(a.stored("p")));
  EXPECT_THAT(a.identifiers(), ElementsAre("x"));
  EXPECT_THAT(b.identifiers(), ElementsAre("x", "p"));
}

TEST_F(KivResourceCacheTest, EachIsRestoredFromItsOwnList) {
  a.update({bannerOf("x", 1, "x.png")});
  b.update({bannerOf("y", 1, "y.png")});
  a.restart();
  b.restart();
  EXPECT_THAT(a.identifiers(), ElementsAre("x"));
  EXPECT_THAT(b.identifiers(), ElementsAre("y"));
  EXPECT_EQ(a.update({bannerOf("x", 1, "x.png")}), (Events{"loaded x", "finished"}));
  EXPECT_THAT(a.client->urls, IsEmpty());
}

TEST_F(KivResourceCacheTest, EachIsTrimmedByItself) {
  a.update({bannerOf("x", 1, "x.png"), bannerOf("y", 2, "y.png")});
  b.update({bannerOf("x", 1, "x.png")});
  const auto old = fs::file_time_type::clock::now() - std::chrono::hours(48);
  for (const std::string& path : {a.stored("x.png"), a.stored("y.png"), b.stored("x.png")})
    fs::last_write_time(path, old);
  Maintenance::noteShown(*a.manager()->loadedResources()->resources().at(0));
  EXPECT_GT(fs::last_write_time(a.stored("x.png")), old);
  EXPECT_EQ(fs::last_write_time(b.stored("x.png")), old);
  ASSERT_TRUE(Lease::take(*b.manager()->loadedResources()->resources().at(0)));
  EXPECT_GT(fs::last_write_time(b.stored("x.png")), old);

  KivResourceTrimOptions options;
  options.rule = KivResourceTrimOptions::Rule::leastRecentlyShown;
  options.bytes = Maintenance::space(*a.manager())->cacheUsed - 1;
  const auto trim = Maintenance::trim(*a.manager(), options, Maintenance::Mode::remove);
  ASSERT_TRUE(trim);
  EXPECT_TRUE(trim->isBoundKept);
  EXPECT_THAT(pathsOf(trim->removed), ElementsAre(a.stored("y.png")));
  EXPECT_THAT(a.identifiers(), ElementsAre("x"));
  EXPECT_THAT(b.identifiers(), ElementsAre("x"));
}

TEST_F(KivResourceCacheTest, NothingThatOneDoesTouchesTheOthersDirectories) {
  b.update({bannerOf("x", 1, "x.png"), pageOf("p", 1, "p.zip")});
  KivStorageService::setRootPath(scratch.path("process"));
  PathRecorder recorder;

  a.update({bannerOf("x", 1, "x.png"), pageOf("p", 1, "p.zip"), videoOf("v", 1, "v.png", "v.mp4")});
  a.update({bannerOf("x", 2, "x2.png"), pageOf("p", 2, "p.zip")});
  a.beginUpdate({bannerOf("x", 3, "x3.png"), bannerOf("z", 1, "z.png")});
  a.client->fail("z.png");
  a.manager()->stopLoading();
  drain();
  EXPECT_THAT(a.manager()->allLoadedResources(), SizeIs(2));
  EXPECT_THAT(a.manager()->loadedResourcesWithID("x"), SizeIs(1));
  EXPECT_THAT(a.manager()->loadedResourcesWithType("page"), SizeIs(1));
  a.manager()->saveLoadedResorcesList();
  std::vector<Dictionary> many;  // so many that the directory is listed
  for (int i = 0; i < 40; ++i)
    many.push_back(bannerOf(std::to_string(i), 1, std::to_string(i) + ".png"));
  many.push_back(pageOf("p", 2, "p.zip"));
  many.push_back(bannerOf("x", 2, "x2.png"));
  a.update(many);
  EXPECT_THAT(a.manager()->allLoadedResources(), SizeIs(42));
  EXPECT_THAT(a.manager()->loadedResourcesWithType("banner"), SizeIs(41));
  auto lease = Lease::take(*a.manager()->loadedResourcesWithID("p").at(0));
  ASSERT_TRUE(lease);
  std::ofstream(a.stored("orphan")) << "bytes";
  auditOf(a);
  ASSERT_TRUE(Maintenance::cleanUpOrphans(*a.manager(), Maintenance::Mode::remove));
  ASSERT_TRUE(Maintenance::space(*a.manager()));
  EXPECT_FALSE(fs::exists(a.stored("orphan")));
  lease.reset();
  a.restart();
  EXPECT_THAT(a.identifiers(), SizeIs(42));

  auto paths = recorder.takeBelow(scratch.path());
  std::erase_if(paths, [&](const auto& path) { return path.starts_with(a.root()); });
  // Taking a lease asks where the directories of the caches are; that is all.
  paths.erase(b.root() + "/KivResource/Resources");
  paths.erase(b.root() + "/.KivStorageService");
  paths.erase(scratch.path("process/KivResource/Resources"));
  paths.erase(scratch.path("process/.KivStorageService"));
  paths.erase(scratch.path("no bundle/InnerAdResources.bundle"));
  paths.erase(scratch.path());  // a parent of the root
  EXPECT_THAT(paths, IsEmpty());
}

TEST_F(KivResourceCacheTest, AChangeOfTheProcessesSettingsDuringAPassDoesNotMatter) {
  a.beginUpdate({bannerOf("x", 1, "x.png"), bannerOf("y", 1, "y.png"), pageOf("p", 1, "p.zip")});
  a.client->succeed("x.png");
  KivStorageService::setRootPath(scratch.path("other"));
  KivAppConfiguration::sharedInstance()->setMainACSDomain("http://other.test");
  ArchiveLimits limits;
  const ArchiveLimits former = KivStorageService::archiveLimits();
  limits.entries = 1;
  KivStorageService::setArchiveLimits(limits);
  a.client->succeed("p.zip", ZipBuilder().addFile("index.html", "").addFile("b.html", "").build());
  a.client->succeed("y.png");
  KivStorageService::setArchiveLimits(former);
  drain();
  EXPECT_THAT(a.observer->events, ElementsAre("loaded x", "loaded p", "loaded y", "finished"));
  EXPECT_FALSE(fs::exists(scratch.path("other")));

  a.update({bannerOf("z", 1, "z.png")});
  EXPECT_EQ(a.client->urls.back(), "http://a.test/z.png");
}

TEST_F(KivResourceCacheTest, TheServersCanBeChanged) {
  a.cache->appConfiguration()->setMainACSDomain("http://new.test");
  a.cache->appConfiguration()->setReserveACSDomain("http://spare.test");
  a.beginUpdate({bannerOf("x", 1, "x.png")});
  ASSERT_THAT(a.client->tasks, SizeIs(1));
  EXPECT_EQ(a.client->urls.back(), "http://new.test/x.png");
  EXPECT_EQ(a.client->tasks[0]->requestMirrorURLs().at(0).absoluteString(),
            "http://spare.test/x.png");
  EXPECT_FALSE(KivAppConfiguration::sharedInstance()->mainACSDomain());
}

TEST_F(KivResourceCacheTest, ALoaderOfTheHostsGetsTheCachesServersAndSpoolDirectory) {
  const auto loader = std::make_shared<KivResourceRESTModule>();
  a.manager()->setLoader(loader);
  EXPECT_EQ(loader->appConfiguration(), a.cache->appConfiguration());
  EXPECT_EQ(loader->restService()->settings().spoolDirectory, a.root() + "/.KivRESTService");

  const auto named = std::make_shared<KivResourceRESTModule>(nullptr);
  const auto servers = std::make_shared<KivAppConfiguration>();
  named->setAppConfiguration(servers);
  a.manager()->setLoader(named);
  EXPECT_EQ(named->appConfiguration(), servers);
  named->setAppConfiguration(nullptr);
  EXPECT_EQ(named->appConfiguration(), KivAppConfiguration::sharedInstance());
}

TEST_F(KivResourceCacheTest, TheClientHasTheSettingsOfTheCache) {
  KivResourceCacheOptions options = optionsFor("c");
  options.settings = KivRESTService::defaultSettings();
  options.settings->parallelTransfers = 3;
  const auto cache = KivResourceCache::open(options);
  const auto settings = cache->manager()->loader()->restService()->settings();
  EXPECT_EQ(settings.parallelTransfers, 3U);
  EXPECT_EQ(settings.spoolDirectory, options.rootPath + "/.KivRESTService");
}

// --- What a configuration of one cache can do to the other ---------------------------------------

TEST_F(KivResourceCacheTest, AnItemThatNamesAnothersFileIsNotLoadedFromThere) {
  b.update({bannerOf("x", 1, "x.png")});
  a.beginUpdate({bannerOf("thief", 1, b.stored("x.png"))});
  EXPECT_THAT(a.client->urls, ElementsAre("http://a.test" + b.stored("x.png")));
}

TEST_F(KivResourceCacheTest, TheProcessesManagerDoesNotLoadFromACacheEither) {
  b.update({bannerOf("x", 1, "x.png")});
  KivStorageService::setRootPath(scratch.path("process"));
  const auto manager = KivResourceManager::newInstance();
  manager->loader()->setRestService(nullptr);
  manager->loadResourcesForConfig(
      Dictionary{{"items", Array{bannerOf("thief", 1, b.stored("x.png"))}}});
  drain();
  EXPECT_THAT(manager->allLoadedResources(), IsEmpty());
}

TEST_F(KivResourceCacheTest, AnothersFileIsNotRemovedWithAnItemThatNamesIt) {
  b.update({bannerOf("x", 1, "old.png")});
  b.update({bannerOf("x", 2, "x.png"), pageOf("p", 1, "p.zip")});
  ASSERT_FALSE(fs::exists(b.stored("old.png"))) << "b itself may remove its files";
  KivResourceCacheOptions options = optionsFor("trusting");
  options.lookupRoots = std::nullopt;
  const OwnCache trusting(options);
  trusting.update({bannerOf("x", 1, b.stored("x.png")), pageOf("p", 1, b.stored("p/index.html"))});
  ASSERT_THAT(trusting.identifiers(), ElementsAre("x", "p"));
  trusting.update({bannerOf("x", 2, "new.png"), pageOf("p", 2, "new.zip")});
  EXPECT_TRUE(fs::exists(b.stored("x.png")));
  EXPECT_TRUE(fs::exists(b.stored("p/index.html")));
}

TEST_F(KivResourceCacheTest, TheProcessesManagerDoesNotRemoveFilesOfACache) {
  b.update({bannerOf("x", 1, "x.png")});
  KivStorageService::setRootPath(scratch.path("process"));
  KivResourceLookup::setRoots(std::nullopt);
  const auto manager = KivResourceManager::newInstance();
  const auto client = std::make_shared<FakeRESTService>();
  manager->loader()->setRestService(client);
  const auto load = [&](const Dictionary& item) {
    manager->loadResourcesForConfig(Dictionary{{"items", Array{item}}});
  };
  KivAppConfiguration::sharedInstance()->setMainACSDomain("http://process.test");
  load(bannerOf("x", 1, b.stored("x.png")));
  ASSERT_THAT(manager->allLoadedResources(), SizeIs(1));
  load(bannerOf("x", 2, "new.png"));
  ASSERT_TRUE(client->succeed("new.png"));
  drain();
  EXPECT_EQ(manager->allLoadedResources().at(0)->updated(), 2U);
  EXPECT_TRUE(fs::exists(b.stored("x.png")));
}

// --- Outside of the manager's operations ---------------------------------------------------------

TEST_F(KivResourceCacheTest, CopiesOfEachCacheSeeTheirFilesOnAnyThread) {
  a.update({bannerOf("x", 1, "x.png")});
  b.update({pageOf("p", 1, "p.zip")});
  const auto banner = a.manager()->allLoadedResources().at(0);
  const auto page = b.manager()->allLoadedResources().at(0);
  EXPECT_TRUE(banner->filesExist());
  EXPECT_TRUE(page->filesExist());
  EXPECT_TRUE(banner->copyWithZone()->missingFilesLinks().empty());
  fs::remove(a.stored("x.png"));
  EXPECT_FALSE(banner->filesExist());
}

TEST_F(KivResourceCacheTest, FilesOfNoCacheStayRefused) {
  const std::string file = scratch.write("outside.png");
  EXPECT_FALSE(KivResourceLookup::fileExistsAtPath(file));
  KivResourceCacheOptions options = optionsFor("trusting");
  options.lookupRoots = std::nullopt;
  const OwnCache trusting(options);
  EXPECT_FALSE(KivResourceLookup::fileExistsAtPath(file));
  trusting.cache->perform([&] { EXPECT_TRUE(KivResourceLookup::fileExistsAtPath(file)); });
  a.cache->perform([&] { EXPECT_FALSE(KivResourceLookup::fileExistsAtPath(file)); });
}

TEST_F(KivResourceCacheTest, TheRootsOfACacheAreItsOwn) {
  const std::string file = scratch.write("mine/m.png");
  KivResourceCacheOptions options = optionsFor("c");
  options.lookupRoots = std::vector{scratch.path("mine")};
  const OwnCache c(options);
  EXPECT_EQ(c.update({bannerOf("m", 1, file)}), (Events{"loaded m", "finished"}));
  EXPECT_THAT(c.client->urls, IsEmpty());
  EXPECT_TRUE(c.manager()->allLoadedResources().at(0)->filesExist());
  a.beginUpdate({bannerOf("m", 1, file)});
  EXPECT_THAT(a.client->urls, SizeIs(1));
}

TEST_F(KivResourceCacheTest, QueriesOfATrustingCacheFindFilesElsewhere) {
  const std::string file = scratch.write("outside.png");
  KivResourceCacheOptions options = optionsFor("trusting");
  options.lookupRoots = std::nullopt;
  const OwnCache trusting(options);
  trusting.update({bannerOf("x", 1, file)});
  const auto manager = trusting.manager();
  EXPECT_EQ(manager->allLoadedResources().at(0)->useFilePaths(), std::vector{file});
  EXPECT_EQ(manager->loadedResourcesWithID("x").at(0)->useFilePaths(), std::vector{file});
  EXPECT_EQ(manager->loadedResourcesWithType("banner").at(0)->useFilePaths(), std::vector{file});
}

TEST_F(KivResourceCacheTest, AFileOfAClosedCacheIsOneLikeAnyOther) {
  b.update({bannerOf("x", 1, "x.png")});
  const auto copy = b.manager()->allLoadedResources().at(0);
  b.close();
  EXPECT_FALSE(copy->filesExist());
}

TEST_F(KivResourceCacheTest, LeasesAreTakenInTheCacheOfTheResource) {
  a.update({bannerOf("x", 1, "x.png")});
  b.update({pageOf("p", 1, "p.zip")});
  auto image = Lease::take(*a.manager()->allLoadedResources().at(0));
  auto page = Lease::take(*b.manager()->allLoadedResources().at(0));
  ASSERT_TRUE(image && page);
  const auto path = dynamic_cast<const KivResourceWeb&>(*page->resource()).html().value_or("");
  EXPECT_THAT(path, testing::StartsWith(b.root() + "/.KivStorageService/"));
  EXPECT_THAT(pathsOf(auditOf(a).leased), SizeIs(1));
  EXPECT_THAT(pathsOf(auditOf(b).leased), ElementsAre(fs::path(path).parent_path()));
  b.update({pageOf("p", 2, "q.zip")});
  EXPECT_EQ(readFile(path), "http://b.test/p.zip");
  EXPECT_EQ(KivResourceStorageModule::directoryOfPageAtPath(path), std::nullopt);
  b.cache->perform([&] {
    EXPECT_EQ(KivResourceStorageModule::directoryOfPageAtPath(path),
              fs::path(path).parent_path().string());
  });
  b.close();
  EXPECT_EQ(readFile(path), "http://b.test/p.zip");
  page.reset();
  EXPECT_FALSE(fs::exists(path));
}

TEST_F(KivResourceCacheTest, PerformMakesStaticOperationsActOnTheCache) {
  EXPECT_EQ(KivStorageService::rootPath(), "");
  a.cache->perform([&] {
    EXPECT_EQ(KivStorageService::rootPath(), a.root());
    EXPECT_EQ(KivResourceStorageModule::resourcesListPath(),
              a.root() + "/KivResource/resources_config.json");
    b.cache->perform([&] { EXPECT_EQ(KivStorageService::rootPath(), b.root()); });
    KivResourceCache::sharedInstance()->perform(
        [] { EXPECT_EQ(KivStorageService::rootPath(), ""); });
    EXPECT_EQ(KivStorageService::rootPath(), a.root());
    std::thread([] { EXPECT_EQ(KivStorageService::rootPath(), ""); }).join();
  });
  EXPECT_THROW(b.cache->perform([] { throw std::runtime_error("the work's"); }),
               std::runtime_error);
  EXPECT_EQ(KivStorageService::rootPath(), "");
}

/// A kind that looks for its file by itself, through the static operations.
class Poster : public KivResource {
 public:
  static std::shared_ptr<KivResource> make(const Dictionary& dictionary,
                                           const std::string& engine) {
    return initialised(std::make_shared<Poster>(), dictionary, engine);
  }
  [[nodiscard]] bool filesExist() const override {
    return KivResourceStorageModule::pathToResourceFileWithName("poster.png").has_value();
  }
};

TEST_F(KivResourceCacheTest, KindsOfTheHostActOnTheCacheThatUsesThem) {
  ASSERT_TRUE(KivResourceFactory::registerKind("poster", Poster::make));
  a.update({bannerOf("x", 1, "poster.png")});
  const Dictionary item = with(plainOf("p", 1), "engine", "poster");
  EXPECT_EQ(a.update({item}), (Events{"loaded p", "finished"}));
  EXPECT_EQ(b.update({item}), (Events{"finished"}));
  KivResourceFactory::unregisterKind("poster");
}

// --- Opening and closing -------------------------------------------------------------------------

TEST_F(KivResourceCacheTest, APathThatCannotBeARootIsRefused) {
  for (const std::string& path : {std::string(), std::string("/tmp/\0x", 7)}) {
    KivResourceCacheOptions options;
    options.rootPath = path;
    std::optional<Error> error;
    EXPECT_EQ(KivResourceCache::open(options, &error), nullptr);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain, KivStorageServiceErrorDomain);
    EXPECT_EQ(error->code, static_cast<int>(KivStorageServiceErrorCode::noRoot));
    EXPECT_EQ(KivResourceCache::open(options), nullptr);
  }
}

TEST_F(KivResourceCacheTest, ARelativePathIsMadeAbsolute) {
  KivResourceCacheOptions options = optionsFor("c");
  options.rootPath = "relative";
  std::shared_ptr<KivResourceCache> cache;
  {
    const WorkingDirectory directory(scratch.path());
    cache = KivResourceCache::open(options);
  }
  ASSERT_TRUE(cache);
  EXPECT_EQ(cache->rootPath(), scratch.path("relative"));
}

TEST_F(KivResourceCacheTest, PackagedResourcesAreItsOwn) {
  const std::string packaged = scratch.write("own/InnerAdResources.bundle/x.png", "packaged");
  KivResourceCacheOptions options = optionsFor("c");
  options.packagedResourcesPath = scratch.path("own");
  const OwnCache c(options);
  EXPECT_EQ(c.update({bannerOf("x", 1, "i/x.png")}), (Events{"loaded x", "finished"}));
  EXPECT_THAT(c.client->urls, IsEmpty());
  EXPECT_EQ(c.manager()->allLoadedResources().at(0)->useFilePaths(), std::vector{packaged});

  Bundle::setFrameworkResourcesPath(scratch.path("own"));
  a.beginUpdate({bannerOf("x", 1, "i/x.png")});
  EXPECT_THAT(a.client->urls, SizeIs(1)) << "a has none";
  options = optionsFor("d");
  options.packagedResourcesPath = std::nullopt;
  const OwnCache d(options);
  d.update({bannerOf("x", 1, "i/x.png")});
  EXPECT_THAT(d.client->urls, IsEmpty()) << "d has the framework's";
}

TEST_F(KivResourceCacheTest, TheArchiveLimitsAreItsOwn) {
  KivResourceCacheOptions options = optionsFor("c");
  options.archiveLimits.entries = 1;
  const OwnCache c(options);
  EXPECT_EQ(c.update({pageOf("p", 1, "p.zip")}), (Events{"failed p", "finished"}));
  EXPECT_EQ(a.update({pageOf("p", 1, "p.zip")}), (Events{"loaded p", "finished"}));
}

TEST_F(KivResourceCacheTest, TheManagerGoesOnWithoutTheCacheObject) {
  const auto manager = a.manager();
  a.beginUpdate({bannerOf("x", 1, "x.png")});
  a.cache.reset();
  a.client->succeed("x.png");
  drain();
  EXPECT_TRUE(fs::exists(a.stored("x.png")));
  EXPECT_TRUE(manager->allLoadedResources().at(0)->filesExist());
}

TEST_F(KivResourceCacheTest, OpeningRemovesWhatADeadProcessHasLeft) {
  scratch.write("c/.KivStorageService/0123456789abcdef/0", "incomplete");
  const auto cache = KivResourceCache::open(optionsFor("c"));
  EXPECT_FALSE(fs::exists(scratch.path("c/.KivStorageService/0123456789abcdef")));
}

TEST_F(KivResourceCacheTest, CachesOnOneRootShareTheList) {
  OwnCache twin(optionsFor("a"));
  a.update({bannerOf("x", 1, "x.png")});
  const auto lease = Lease::take(*a.manager()->allLoadedResources().at(0));
  ASSERT_TRUE(lease);
  twin.manager()->saveLoadedResorcesList();
  EXPECT_THAT(twin.identifiers(), ElementsAre("x"));
  twin.restart();
  EXPECT_TRUE(lease->resource()->filesExist());
  EXPECT_THAT(twin.identifiers(), ElementsAre("x"));
}

TEST_F(KivResourceCacheTest, TheProcessMayUseTheRootOfACache) {
  a.update({bannerOf("x", 1, "x.png")});
  auto lease = Lease::take(*a.manager()->allLoadedResources().at(0));
  ASSERT_TRUE(lease);
  KivStorageService::setRootPath(a.root());
  EXPECT_THAT(KivResourceManager::newInstance()->allLoadedResources(), SizeIs(1));
  KivStorageService::setRootPath(scratch.path("elsewhere"));
  EXPECT_TRUE(lease->resource()->filesExist());
  EXPECT_EQ(a.update({bannerOf("y", 1, "y.png")}), (Events{"loaded y", "finished"}));
}

TEST_F(KivResourceCacheTest, TheSharedOneIsTheProcesses) {
  const auto shared = KivResourceCache::sharedInstance();
  EXPECT_EQ(shared, KivResourceCache::sharedInstance());
  EXPECT_EQ(shared->appConfiguration(), KivAppConfiguration::sharedInstance());
  EXPECT_EQ(shared->rootPath(), "");
  KivStorageService::setRootPath(scratch.path("process"));
  EXPECT_EQ(shared->rootPath(), scratch.path("process"));
}

TEST_F(KivResourceCacheTest, AnUpdaterSavesTheConfigurationInTheCacheOfItsManager) {
  const auto server = std::make_shared<FakeRESTService>();
  KivConfigurationUpdaterOptions options;
  options.restService = server;
  options.timers = std::make_shared<ManualTimers>();
  KivConfigurationUpdater updater(a.manager(), *URL::fromString("http://config.test/c"), options);
  updater.checkNow();
  ASSERT_TRUE(server->succeed("", R"({"items": []})"));
  drain();
  EXPECT_TRUE(fs::exists(a.root() + "/KivResource/last_configuration"));

  const auto again = std::make_shared<FakeRESTService>();
  options.restService = again;
  KivConfigurationUpdater next(a.manager(), *URL::fromString("http://config.test/c"), options);
  next.checkNow();
  ASSERT_TRUE(again->fail(""));
  drain();
}

TEST_F(KivResourceCacheTest, SpaceAndCleanUpAreThoseOfTheManagersCache) {
  a.update({bannerOf("x", 1, "x.png")});
  scratch.write("b/KivResource/Resources/orphan", std::string(100'000, 'x'));
  const auto ofA = Maintenance::space(*a.manager());
  const auto ofB = Maintenance::space(*b.manager());
  ASSERT_TRUE(ofA && ofB);
  EXPECT_GT(ofB->cacheUsed, ofA->cacheUsed);
  EXPECT_THAT(auditOf(a).orphaned, IsEmpty());
  const auto cleanUp = Maintenance::cleanUpOrphans(*b.manager(), Maintenance::Mode::remove);
  ASSERT_TRUE(cleanUp);
  EXPECT_THAT(pathsOf(cleanUp->removed), ElementsAre(b.stored("orphan")));
  EXPECT_THAT(cleanUp->refused, IsEmpty());
}

// --- At the same time ----------------------------------------------------------------------------

/// A cache with a queue and a server of its own.
class BusyCache {
 public:
  explicit BusyCache(const std::string& rootPath) : root_(rootPath) {
    runOn(*queue_, [this] {
      KivResourceCacheOptions options;
      options.rootPath = root_;
      options.mainACSDomain = server_.url();
      cache_ = KivResourceCache::open(options);
    });
  }
  BusyCache(const BusyCache&) = delete;
  BusyCache& operator=(const BusyCache&) = delete;
  ~BusyCache() {
    runOn(*queue_, [this] { cache_.reset(); });
  }

  /// Begins an update to that version: a banner and a page, whose contents name the cache.
  std::future<KivResourcePassReport> begin(std::uint64_t version) {
    const std::string name = std::to_string(version);
    server_.serve("/" + name + ".png", Response::ok(root_));
    server_.serve("/" + name + ".zip",
                  Response::ok(ZipBuilder().addFile("index.html", root_).build()));
    auto ended = std::make_shared<std::promise<KivResourcePassReport>>();
    KivResourcePass pass{Dictionary{{"items", Array{bannerOf("x", version, name + ".png"),
                                                    pageOf("p", version, name + ".zip")}}}};
    pass.dropsRest = true;
    queue_->async([this, pass, ended] {
      cache_->manager()->startPass(
          pass, [ended](const KivResourcePassReport& report) { ended->set_value(report); });
    });
    return ended->get_future();
  }

  /// The contents of all files of the loaded resources.
  std::vector<std::string> contents() const {
    std::vector<std::string> found;
    runOn(*queue_, [&] {
      for (const auto& resource : cache_->manager()->allLoadedResources())
        for (const std::string& path : resource->useFilePaths())
          found.push_back(readFile(path));
    });
    return found;
  }
  [[nodiscard]] std::vector<std::string> storedNames() const {
    std::vector<std::string> names;
    for (const auto& item : fs::directory_iterator(root_ + "/KivResource/Resources"))
      names.push_back(item.path().filename());
    std::sort(names.begin(), names.end());
    return names;
  }

 private:
  const std::string root_;
  LoopbackServer server_;
  const std::shared_ptr<DispatchQueue> queue_ = DispatchQueue::serial("busy cache");
  std::shared_ptr<KivResourceCache> cache_;
};

TEST_F(KivResourceCacheTest, CachesOnQueuesOfTheirOwnWorkAtTheSameTime) {
  KivStorageService::setRootPath(scratch.path("process"));
  BusyCache first(scratch.path("first"));
  BusyCache second(scratch.path("second"));
  constexpr std::uint64_t last = 8;
  for (std::uint64_t version = 1; version <= last; ++version) {
    auto ofFirst = first.begin(version);
    auto ofSecond = second.begin(version);
    a.update({bannerOf("x", version, std::to_string(version) + ".png")});
    for (auto* const report : {&ofFirst, &ofSecond}) {
      ASSERT_EQ(report->wait_for(patience), std::future_status::ready);
      EXPECT_EQ(report->get().outcome, KivResourcePassOutcome::done);
    }
  }
  EXPECT_THAT(first.contents(), ElementsAre(scratch.path("first"), scratch.path("first")));
  EXPECT_THAT(second.contents(), ElementsAre(scratch.path("second"), scratch.path("second")));
  EXPECT_THAT(first.storedNames(), ElementsAre("8", "8.png"));
  EXPECT_THAT(second.storedNames(), ElementsAre("8", "8.png"));
  EXPECT_EQ(readFile(a.stored("8.png")), "http://a.test/8.png");
  EXPECT_FALSE(fs::exists(scratch.path("process/KivResource")));
}

}  // namespace
}  // namespace kiv::test
