#include <cerrno>
#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KivResource/KivResourceStorageModule.h"
#include "KivResource/maintenance/KivResourceMaintenance.h"
#include "Tests/Support/FaultyFileManager.h"
#include "Tests/Support/ManagerFixture.h"
#include "Tests/Support/RemovalGuard.h"
#include "Tests/Support/TemporaryDirectory.h"
#include "Tests/Support/WorkingDirectory.h"
#include "Tests/Support/ZipBuilder.h"

namespace kiv::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using Maintenance = KivResourceMaintenance;
using Mode = Maintenance::Mode;

class KivResourceMaintenanceTest : public ManagerFixture {
 protected:
  Maintenance::Audit audit() {
    std::optional<Error> error;
    auto audit = Maintenance::audit(*manager, &error);
    EXPECT_TRUE(audit) << (error ? error->localizedDescription() : "");
    return audit.value_or(Maintenance::Audit());
  }

  Maintenance::CleanUp cleanUp(Mode mode) {
    std::optional<Error> error;
    auto cleanUp = Maintenance::cleanUpOrphans(*manager, mode, &error);
    EXPECT_TRUE(cleanUp) << (error ? error->localizedDescription() : "");
    return cleanUp.value_or(Maintenance::CleanUp());
  }

  static std::vector<std::string> paths(const std::vector<Maintenance::Item>& items) {
    std::vector<std::string> paths;
    for (const auto& item : items)
      paths.push_back(item.path);
    return paths;
  }

  static std::uint64_t sizeOnDisk(const std::string& path) {
    return FileManager::defaultManager().sizeOfItemAtPath(path).value_or(0);
  }

  /// Runs a pass that downloads the item's file with these bytes.
  void loadFile(const kiv::Dictionary& item, const std::string& urlEnd, const std::string& bytes) {
    manager->loadResourcesForConfig(config({item}));
    EXPECT_TRUE(client->succeed(urlEnd, bytes));
    takeEvents();
  }

  void loadArchive(const std::string& identifier, const std::string& stem) {
    loadFile(page(identifier, 1, "x/" + stem + ".zip"), "/" + stem + ".zip",
             ZipBuilder()
                 .addFile("index.html", std::string(50'000, 'p'))
                 .addFile("css/page.css", std::string(70'000, 'c'))
                 .build());
    ASSERT_TRUE(exists(stored(stem + "/index.html")));
  }

  /// Loads a.png and the archive "used", and stores orphans: a file, an archive and a link.
  void makeOrphans() {
    loadFile(banner("a", 1, "x/a.png"), "/a.png", "a");
    loadArchive("w", "used");
    write(stored("orphan.png"), std::string(10'000, 'o'));
    write(stored("unused/index.html"), std::string(20'000, 'i'));
    write(stored("unused/css/page.css"), std::string(30'000, 'c'));
    fs::create_symlink("/nowhere", stored("zlink"));
  }

  static void expectError(const std::optional<Error>& error, KivResourceMaintenanceErrorCode code) {
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain, KivResourceMaintenanceErrorDomain);
    EXPECT_EQ(error->code, static_cast<int>(code)) << error->localizedDescription();
  }
};

// --- The audit -----------------------------------------------------------------------------------

TEST_F(KivResourceMaintenanceTest, AnEmptyCacheHasNothingToTell) {
  const auto found = audit();
  EXPECT_THAT(found.missing, IsEmpty());
  EXPECT_THAT(found.unreadable, IsEmpty());
  EXPECT_THAT(found.orphaned, IsEmpty());
  EXPECT_THAT(found.partial, IsEmpty());
  EXPECT_THAT(found.temporary, IsEmpty());
  EXPECT_FALSE(found.downloadsAreInFlight);
  EXPECT_FALSE(exists(root())) << "an audit makes nothing";
}

TEST_F(KivResourceMaintenanceTest, ACacheInOrderHasNothingToTell) {
  loadFile(banner("a", 1, "x/a.png"), "/a.png", "a");
  loadArchive("w", "promo");
  load({video("v", 1, "x/icon.png", "x/video.mp4"), plain("p", 1)});
  const auto found = audit();
  EXPECT_THAT(found.missing, IsEmpty());
  EXPECT_THAT(found.unreadable, IsEmpty());
  EXPECT_THAT(found.orphaned, IsEmpty());
  EXPECT_THAT(found.partial, IsEmpty());
  EXPECT_THAT(found.temporary, IsEmpty());
}

TEST_F(KivResourceMaintenanceTest, AFileThatIsGoneIsMissing) {
  load({banner("a", 1, "x/a.png"), video("v", 1, "x/icon.png", "x/video.mp4")});
  loadArchive("w", "promo");
  for (const char* const name : {"a.png", "video.mp4", "promo/index.html"}) {
    fs::remove(stored(name));
  }
  const auto found = audit();
  ASSERT_THAT(paths(found.missing),
              ElementsAre(stored("a.png"), stored("promo/index.html"), stored("video.mp4")));
  EXPECT_EQ(found.missing[0].size, 0U);
  EXPECT_EQ(found.missing[0].resourceID, "a");
  EXPECT_EQ(found.missing[1].resourceID, "w");
  EXPECT_EQ(found.missing[2].resourceID, "v");
  EXPECT_THAT(found.orphaned, IsEmpty()) << "the rest of the page belongs to a loaded resource";
}

TEST_F(KivResourceMaintenanceTest, ADirectoryInPlaceOfAFileIsMissing) {
  load({banner("a", 1, "x/a.png")});
  fs::remove(stored("a.png"));
  fs::create_directory(stored("a.png"));
  EXPECT_THAT(paths(audit().missing), ElementsAre(stored("a.png")));
}

TEST_F(KivResourceMaintenanceTest, AFileOfTheSavedListIsMissingAlsoAfterARestart) {
  load({banner("a", 1, "x/a.png"), video("v", 1, "x/icon.png", "x/video.mp4")});
  fs::remove(stored("a.png"));
  fs::remove(stored("video.mp4"));
  restart();
  ASSERT_THAT(registry(), IsEmpty());
  const auto found = audit();
  EXPECT_THAT(paths(found.missing), ElementsAre(stored("a.png"), stored("video.mp4")));
  EXPECT_THAT(paths(found.orphaned), ElementsAre(stored("icon.png")))
      << "stored, but its resource is not loaded";
}

TEST_F(KivResourceMaintenanceTest, AFileThatCannotBeReadIsUnreadable) {
  FaultyFileManager files;
  loadFile(banner("a", 1, "x/a.png"), "/a.png", std::string(5000, 'a'));
  load({banner("b", 1, "x/b.png")});
  files.setUnreadableFile(stored("a.png"));
  const auto found = audit();
  EXPECT_THAT(found.missing, IsEmpty());
  ASSERT_THAT(paths(found.unreadable), ElementsAre(stored("a.png")));
  EXPECT_EQ(found.unreadable[0].size, sizeOnDisk(stored("a.png")));
  EXPECT_GE(*found.unreadable[0].size, 5000U);
  EXPECT_EQ(found.unreadable[0].resourceID, "a");
}

TEST_F(KivResourceMaintenanceTest, WhatNoLoadedResourceUsesIsOrphanedAndAnArchiveIsOneItem) {
  makeOrphans();
  const auto found = audit();
  ASSERT_THAT(paths(found.orphaned),
              ElementsAre(stored("orphan.png"), stored("unused"), stored("zlink")));
  EXPECT_EQ(found.orphaned[0].size, sizeOnDisk(stored("orphan.png")));
  EXPECT_GE(*found.orphaned[0].size, 10'000U);
  EXPECT_EQ(found.orphaned[1].size, sizeOnDisk(stored("unused")));
  EXPECT_GE(*found.orphaned[1].size, 50'000U);
  EXPECT_EQ(found.orphaned[0].resourceID, "");
  EXPECT_THAT(found.partial, IsEmpty());
}

TEST_F(KivResourceMaintenanceTest, WhatAnUpdateDroppedIsOrphaned) {
  load({banner("a", 1, "x/a.png"), banner("b", 1, "x/b.png")});
  manager->updateResourcesForConfig(config({banner("a", 1, "x/a.png")}));
  takeEvents();
  EXPECT_THAT(paths(audit().orphaned), ElementsAre(stored("b.png")));
}

TEST_F(KivResourceMaintenanceTest, ADirectoryWithoutItsPageIsPartial) {
  write(stored("half/css/page.css"), std::string(30'000, 'c'));
  write(stored("tricky/index.html/file"), "the page is a directory");
  const auto found = audit();
  ASSERT_THAT(paths(found.partial), ElementsAre(stored("half"), stored("tricky")));
  EXPECT_GE(*found.partial[0].size, 30'000U);
  EXPECT_THAT(found.orphaned, IsEmpty());
}

TEST_F(KivResourceMaintenanceTest, WhatTheServiceHasNotCompletedIsTemporary) {
  load({banner("a", 1, "x/a.png")});  // the files of a live process are not leftovers
  const std::string top = KivStorageService::temporariesPath();
  EXPECT_EQ(top, root() + "/.KivStorageService");
  write(top + "/dead/3", std::string(5000, 't'));
  write(top + "/dead/4/index.html", std::string(9000, 't'));
  write(top + "/dead.lock", "");
  write(top + "/stray", "x");
  const auto found = audit();
  ASSERT_THAT(paths(found.temporary),
              ElementsAre(top + "/dead/3", top + "/dead/4", top + "/stray"));
  EXPECT_GE(*found.temporary[0].size, 5000U);
  EXPECT_GE(*found.temporary[1].size, 9000U);
  EXPECT_TRUE(exists(top + "/dead/3")) << "an audit removes nothing";
}

TEST_F(KivResourceMaintenanceTest, BodiesThatHaveNotComeWholeAreTemporary) {
  load({banner("a", 1, "x/a.png")});
  const std::string spool = KivResourceStorageModule::spoolDirectoryPath();
  EXPECT_EQ(spool, root() + "/.KivRESTService");
  write(spool + "/1-0.part", std::string(5000, 'p'));
  write(spool + "/1-0.json", "{}");
  write(spool + "/1-0.lock", "");
  const auto found = audit();
  ASSERT_THAT(paths(found.temporary), ElementsAre(spool + "/1-0.part"));
  EXPECT_GE(*found.temporary[0].size, 5000U);
  EXPECT_THAT(cleanUp(Mode::remove).removed, IsEmpty());
  EXPECT_TRUE(exists(spool + "/1-0.part"));
}

TEST_F(KivResourceMaintenanceTest, AnAuditSaysThatDownloadsAreInFlight) {
  manager->loadResourcesForConfig(config({video("v", 1, "x/icon.png", "x/video.mp4")}));
  client->succeed("/icon.png");
  EXPECT_TRUE(audit().downloadsAreInFlight);
  EXPECT_THAT(paths(audit().orphaned), ElementsAre(stored("icon.png")));
}

TEST_F(KivResourceMaintenanceTest, ADirectoryThatCannotBeListedFailsTheAudit) {
  load({banner("a", 1, "x/a.png")});
  FaultyFileManager files;
  files.setFailingOperation(FileOperation::list, EIO);
  std::optional<Error> error;
  EXPECT_FALSE(Maintenance::audit(*manager, &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, EIO);
}

// --- The clean-up --------------------------------------------------------------------------------

TEST_F(KivResourceMaintenanceTest, ADryRunTellsWhatWouldGoAndRemovesNothing) {
  makeOrphans();
  write(stored("half/page.css"), "c");
  const auto told = cleanUp(Mode::dryRun);
  EXPECT_THAT(paths(told.removed),
              ElementsAre(stored("orphan.png"), stored("unused"), stored("zlink"), stored("half")));
  EXPECT_GE(*told.removed[1].size, 50'000U);
  EXPECT_THAT(told.refused, IsEmpty());
  for (const auto& path : paths(told.removed))
    EXPECT_TRUE(exists(path)) << path;
}

TEST_F(KivResourceMaintenanceTest, ACleanUpRemovesOrphansAndNothingElse) {
  makeOrphans();
  write(stored("half/page.css"), "c");
  write(root() + "/KivResource/other.txt", "beside the resources");
  write(root() + "/other.txt", "beside the cache");
  write(KivStorageService::temporariesPath() + "/dead/3", "temporary");
  const auto told = paths(cleanUp(Mode::dryRun).removed);
  const auto done = cleanUp(Mode::remove);
  EXPECT_EQ(paths(done.removed), told);
  EXPECT_THAT(done.refused, IsEmpty());
  for (const auto& path : told)
    EXPECT_FALSE(exists(path)) << path;
  EXPECT_TRUE(exists(stored("a.png")));
  EXPECT_TRUE(exists(stored("used/css/page.css")));
  EXPECT_TRUE(exists(root() + "/KivResource/other.txt"));
  EXPECT_TRUE(exists(root() + "/other.txt"));
  EXPECT_TRUE(exists(KivStorageService::temporariesPath() + "/dead/3"));
  EXPECT_THAT(cleanUp(Mode::remove).removed, IsEmpty());
  restart();
  EXPECT_THAT(registry(), ElementsAre("a", "w"));
}

TEST_F(KivResourceMaintenanceTest, AFileOfALoadedResourceStaysHoweverItsPathIsWritten) {
  write(stored("double.png"), "");
  write(stored("dots.png"), "");
  write(stored("dir/index.html"), "");
  write(stored("alias.png"), "");
  fs::create_directory_symlink(root(), packaged() + "Alias");
  write(listPath(),
        std::string((*kiv::JSON::write(kiv::Array{
                         banner("1", 1, root() + "//KivResource///Resources//double.png"),
                         banner("2", 1, stored("../Resources/./dots.png")),
                         page("3", 1, stored("dir//index.html")),
                         banner("4", 1, packaged() + "Alias/KivResource/Resources/alias.png")}))
                        .view()));
  restart();
  ASSERT_THAT(registry(), ElementsAre("1", "2", "3", "4"));
  EXPECT_THAT(cleanUp(Mode::remove).removed, IsEmpty());
  EXPECT_THAT(audit().missing, IsEmpty());
}

TEST_F(KivResourceMaintenanceTest, LinksThatALoadedResourceNeedsStayAndSoDoesWhatTheyLeadTo) {
  write(stored("real.png"), "");
  write(stored("realDir/index.html"), "");
  fs::create_symlink(stored("real.png"), stored("second.png"));
  fs::create_symlink("second.png", stored("first.png"));
  fs::create_directory_symlink("realDir", stored("linkedDir"));
  fs::create_directory_symlink("realDir", stored("way"));
  write(listPath(),
        std::string((*kiv::JSON::write(kiv::Array{banner("1", 1, stored("first.png")),
                                                  page("2", 1, stored("linkedDir/index.html")),
                                                  banner("3", 1, stored("way/../real.png"))}))
                        .view()));
  restart();
  ASSERT_THAT(registry(), ElementsAre("1", "2", "3"));
  EXPECT_THAT(cleanUp(Mode::remove).removed, IsEmpty());
  restart();
  EXPECT_THAT(registry(), ElementsAre("1", "2", "3"));
}

TEST_F(KivResourceMaintenanceTest, AnOrphanedLinkGoesAndWhatItLeadsToStays) {
  const TemporaryDirectory outside;
  outside.write("dir/index.html", "precious");
  write(stored("a.png"), "");
  fs::create_directory_symlink(outside.path("dir"), stored("linked"));
  write(stored("tree/index.html"), "");
  fs::create_directory_symlink(outside.path(), stored("tree/linked"));
  EXPECT_EQ(cleanUp(Mode::remove).removed.size(), 3U);
  EXPECT_FALSE(exists(stored("linked")));
  EXPECT_FALSE(exists(stored("tree")));
  EXPECT_EQ(read(outside.path("dir/index.html")), "precious");
}

TEST_F(KivResourceMaintenanceTest, AResourcesDirectoryBehindALinkIsLeftAlone) {
  const TemporaryDirectory outside;
  outside.write("file", "precious");
  fs::create_directories(root() + "/KivResource");
  fs::create_directory_symlink(outside.path(), root() + "/KivResource/Resources");
  for (const Mode mode : {Mode::dryRun, Mode::remove}) {
    std::optional<Error> error;
    EXPECT_FALSE(Maintenance::cleanUpOrphans(*manager, mode, &error));
    expectError(error, KivResourceMaintenanceErrorCode::resourcesElsewhere);
  }
  std::optional<Error> error;
  EXPECT_FALSE(Maintenance::audit(*manager, &error));
  expectError(error, KivResourceMaintenanceErrorCode::resourcesElsewhere);
  EXPECT_EQ(read(outside.path("file")), "precious");
}

TEST_F(KivResourceMaintenanceTest, ARootBehindALinkIsTheHostsChoice) {
  write(stored("orphan.png"), "");
  const std::string alias = packaged() + "Alias";
  fs::create_directory_symlink(root(), alias);
  KivStorageService::setRootPath(alias);
  EXPECT_THAT(paths(cleanUp(Mode::remove).removed), ElementsAre(stored("orphan.png")));
  EXPECT_FALSE(exists(stored("orphan.png")));
}

TEST_F(KivResourceMaintenanceTest, NothingIsCleanedUpWhileDownloadsAreInFlight) {
  write(stored("orphan.png"), "");
  manager->loadResourcesForConfig(config({video("v", 1, "x/icon.png", "x/video.mp4")}));
  client->succeed("/icon.png");
  for (const Mode mode : {Mode::dryRun, Mode::remove}) {
    std::optional<Error> error;
    EXPECT_FALSE(Maintenance::cleanUpOrphans(*manager, mode, &error));
    expectError(error, KivResourceMaintenanceErrorCode::downloadsInFlight);
  }
  EXPECT_TRUE(exists(stored("icon.png")));
  EXPECT_TRUE(exists(stored("orphan.png")));
  client->succeed("/video.mp4");
  EXPECT_THAT(takeEvents(), ElementsAre("loaded v", "finished"));
  EXPECT_THAT(paths(cleanUp(Mode::remove).removed), ElementsAre(stored("orphan.png")));
  EXPECT_TRUE(exists(stored("icon.png")));
}

TEST_F(KivResourceMaintenanceTest, AfterAStopWhatWasStoredForNobodyIsCleanedUpAndFetchedAgain) {
  manager->loadResourcesForConfig(config({video("v", 1, "x/icon.png", "x/video.mp4")}));
  client->succeed("/icon.png");
  manager->stopLoading();
  takeEvents();
  EXPECT_THAT(paths(cleanUp(Mode::remove).removed), ElementsAre(stored("icon.png")));
  load({video("v", 1, "x/icon.png", "x/video.mp4")});
  EXPECT_THAT(registry(), ElementsAre("v"));
  EXPECT_TRUE(exists(stored("icon.png")));
}

TEST_F(KivResourceMaintenanceTest, FilesOfTheSavedListStayThoughThisManagerHasNotLoadedThem) {
  const auto other = manager;  // stands for another process on the same root
  restart();
  other->loader()->setRestService(client);
  other->loadResourcesForConfig(config({banner("theirs", 1, "x/theirs.png")}));
  ASSERT_TRUE(client->succeed("/theirs.png"));
  takeEvents();
  ASSERT_THAT(registry(), IsEmpty());
  EXPECT_THAT(cleanUp(Mode::remove).removed, IsEmpty());
  EXPECT_TRUE(exists(stored("theirs.png")));
}

TEST_F(KivResourceMaintenanceTest, WhereTheSavedListCannotBeReadNothingIsRemoved) {
  load({banner("a", 1, "x/a.png")});
  for (const char* const list : {"[{", "{}", ""}) {
    write(listPath(), list);
    restart();
    ASSERT_THAT(registry(), IsEmpty());
    std::optional<Error> error;
    EXPECT_FALSE(Maintenance::cleanUpOrphans(*manager, Mode::remove, &error)) << list;
    EXPECT_TRUE(error) << list;
    EXPECT_TRUE(exists(stored("a.png")));
    EXPECT_THAT(paths(audit().orphaned), ElementsAre(stored("a.png")));
  }
}

TEST_F(KivResourceMaintenanceTest, WithoutASavedListEverythingIsOrphaned) {
  write(stored("a.png"), "");
  EXPECT_THAT(paths(cleanUp(Mode::remove).removed), ElementsAre(stored("a.png")));
}

TEST_F(KivResourceMaintenanceTest, WhatCannotBeRemovedIsToldAndKeepsNothingElse) {
  FaultyFileManager files;
  write(stored("one.png"), "");
  write(stored("two.png"), "");
  files.setFault(
      FaultyFileManager::Fault{.at = 4, .number = EACCES});  // 1 read, 2 and 3 list, 4 remove
  const auto done = cleanUp(Mode::remove);
  ASSERT_EQ(done.refused.size(), 1U);
  EXPECT_EQ(done.refused[0].item.path, stored("one.png"));
  EXPECT_EQ(done.refused[0].error.code, EACCES);
  EXPECT_THAT(paths(done.removed), ElementsAre(stored("two.png")));
  EXPECT_TRUE(exists(stored("one.png")));
  EXPECT_FALSE(exists(stored("two.png")));
}

TEST_F(KivResourceMaintenanceTest, TheGuardOfRemovalsHoldsHereToo) {
  write(stored("orphan.png"), "");
  {
    const RemovalGuard guard({packaged()});
    const auto refused = cleanUp(Mode::remove).refused;
    ASSERT_EQ(refused.size(), 1U);
    EXPECT_EQ(refused[0].error.domain, FileManagerErrorDomain);
    EXPECT_TRUE(exists(stored("orphan.png")));
  }
  const RemovalGuard guard({root()});
  EXPECT_EQ(cleanUp(Mode::remove).removed.size(), 1U);
}

TEST_F(KivResourceMaintenanceTest, WithoutARootNothingIsTakenForTheResources) {
  const TemporaryDirectory elsewhere;
  elsewhere.write("KivResource/Resources/a.png");
  const WorkingDirectory working(elsewhere.path());
  KivStorageService::setRootPath("");
  EXPECT_EQ(KivResourceStorageModule::resourcesDirectoryPath(), "");
  EXPECT_THAT(audit().orphaned, IsEmpty());
  EXPECT_FALSE(Maintenance::cleanUpOrphans(*manager, Mode::remove))
      << "the saved list has no place";
  EXPECT_TRUE(exists(elsewhere.path("KivResource/Resources/a.png")));
}

// --- Space ---------------------------------------------------------------------------------------

TEST_F(KivResourceMaintenanceTest, SpaceIsToldOfTheDiskAndOfTheCache) {
  FaultyFileManager files;
  files.setAvailableSpace(123'456'789);
  loadFile(banner("a", 1, "x/a.png"), "/a.png", std::string(500'000, 'a'));
  write(KivStorageService::temporariesPath() + "/dead/3", std::string(300'000, 't'));
  write(KivResourceStorageModule::spoolDirectoryPath() + "/1-0.part", std::string(70'000, 'p'));
  write(root() + "/others.bin", std::string(900'000, 'x'));
  const auto space = Maintenance::space();
  ASSERT_TRUE(space);
  EXPECT_EQ(space->fileSystemAvailable, 123'456'789U);
  EXPECT_GT(space->fileSystemUsed, 0U);
  EXPECT_EQ(space->cacheUsed, sizeOnDisk(root() + "/KivResource") +
                                  sizeOnDisk(root() + "/.KivStorageService") +
                                  sizeOnDisk(root() + "/.KivRESTService"));
  EXPECT_GE(space->cacheUsed, 800'000U);
  EXPECT_LT(space->cacheUsed, 900'000U + 800'000U);
}

TEST_F(KivResourceMaintenanceTest, SpaceIsToldBeforeAnythingWasStored) {
  const auto space = Maintenance::space();
  ASSERT_TRUE(space);
  EXPECT_GT(space->fileSystemAvailable, 0U);
  EXPECT_EQ(space->cacheUsed, 0U);
  EXPECT_FALSE(exists(root()));
}

TEST_F(KivResourceMaintenanceTest, WithoutARootThereIsNoSpace) {
  KivStorageService::setRootPath("");
  std::optional<Error> error;
  EXPECT_FALSE(Maintenance::space(&error));
  EXPECT_TRUE(error);
  EXPECT_EQ(KivStorageService::temporariesPath(), "");
}

// --- A pass on a full disk -----------------------------------------------------------------------

TEST_F(KivResourceMaintenanceTest, APassThatDoesNotFitFailsWithAClearErrorAndCompletes) {
  FaultyFileManager files;
  load({banner("a", 1, "x/old.png")});
  files.setAvailableSpace(1500);
  manager->loadResourcesForConfig(config({banner("a", 2, "x/new.png")}));
  client->succeed("/new.png", std::string(1000, 'n'));
  EXPECT_THAT(takeEvents(), ElementsAre("failed a", "finished"));
  ASSERT_EQ(observer->failures.size(), 1U);
  const auto& error = observer->failures[0].error;
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain, KivStorageServiceErrorDomain);
  EXPECT_EQ(error->code, static_cast<int>(KivStorageServiceErrorCode::noSpace));
  EXPECT_EQ((*manager->loadedResources())[0]->updated(), 1U);
  EXPECT_TRUE(exists(stored("old.png")));
  EXPECT_FALSE(exists(stored("new.png")));
  files.setAvailableSpace(std::nullopt);
  load({banner("a", 2, "x/new.png")});
  EXPECT_EQ((*manager->loadedResources())[0]->updated(), 2U);
}

}  // namespace
}  // namespace kiv::test
