// When the list is saved, and that a resource is announced only after a list that contains it is on
// disk.

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/Support/FaultyFileManager.h"
#include "Tests/Support/ManagerFixture.h"
#include "Tests/Support/ZipBuilder.h"

namespace {

using kiv::test::FaultyFileManager;
using kiv::test::FileOperation;
using kiv::test::ManagerFixture;
using testing::ElementsAre;

class KivResourceManagerStepTest : public ManagerFixture {
 protected:
  /// The number of times the list was saved.
  [[nodiscard]] std::ptrdiff_t saves() const {
    const auto operations = files.operations();
    return std::count_if(operations.begin(), operations.end(), [&](const auto& operation) {
      return operation.kind == FileOperation::move && operation.newPath == listPath();
    });
  }

  void loadThreeBanners() {
    beginLoad({banner("a", 1, "a.png"), banner("b", 1, "b.png"), banner("c", 1, "c.png")});
  }

  /// Completes the downloads whose URLs have these endings in one job, as the client does with
  /// downloads that end together.
  void completeInOneJob(const std::vector<std::string>& urlEnds) {
    kiv::DispatchQueue::main()->async([this, urlEnds] {
      for (const std::string& urlEnd : urlEnds)
        client->succeed(urlEnd);
    });
  }

  FaultyFileManager files;
  std::ptrdiff_t savesSeen = 0;
};

TEST_F(KivResourceManagerStepTest, APassThatFindsItsFilesSavesTheListOnce) {
  for (const char* name : {"a.png", "b.png", "c.png"})
    write(stored(name), "x");
  beginUpdate({banner("a", 1, "a.png"), banner("b", 1, "b.png"), banner("c", 1, "c.png")});
  EXPECT_EQ(saves(), 1);
  EXPECT_EQ(savedList().size(), 3U);
  EXPECT_THAT(takeEvents(), ElementsAre("loaded a", "loaded b", "loaded c", "finished"));
}

TEST_F(KivResourceManagerStepTest, AListThatIsTheSameIsNotWrittenAgain) {
  load({banner("a", 1, "a.png"), banner("b", 1, "b.png")});
  files.setFault(std::nullopt);
  beginUpdate({banner("a", 1, "a.png"), banner("b", 1, "b.png")});
  EXPECT_THAT(takeEvents(), ElementsAre("loaded a", "loaded b", "finished"));
  for (const auto& operation : files.operations())
    EXPECT_EQ(operation.kind, FileOperation::lock) << operation.path;
  restart();
  beginUpdate({banner("b", 1, "b.png"), banner("a", 1, "a.png")});
  EXPECT_EQ(saves(), 0);
  beginUpdate({banner("b", 1, "b.png")});
  EXPECT_EQ(saves(), 1);
}

TEST_F(KivResourceManagerStepTest, AListThatWasRemovedOrChangedByOthersIsWrittenAgain) {
  load({banner("a", 1, "a.png")});
  std::filesystem::remove(listPath());
  beginUpdate({banner("a", 1, "a.png")});
  EXPECT_EQ(savedList().size(), 1U);
  write(listPath(), "[]");
  beginUpdate({plain("q", 1)});
  EXPECT_EQ(savedList().size(), 1U);
}

TEST_F(KivResourceManagerStepTest, AListWhoseSyncFailedIsWrittenAgain) {
  load({banner("a", 1, "a.png"), banner("b", 1, "b.png")});
  files.setFailingOperation(FileOperation::synchronizeDirectory, EIO);
  beginUpdate({banner("a", 1, "a.png")});
  EXPECT_TRUE(manager->lastSaveError());
  files.clearFailingOperation();
  files.setFault(std::nullopt);
  beginUpdate({banner("a", 1, "a.png")});
  EXPECT_EQ(saves(), 1);
  EXPECT_FALSE(manager->lastSaveError());
}

TEST_F(KivResourceManagerStepTest, AStepThatIsCalledAloneSavesAtItsEnd) {
  write(stored("a.png"), "x");
  beginLoad({banner("a", 1, "x/missing.png")});
  const auto resource = KivResource::initWithDictionary_engine(plain("p", 1), "eco_other");
  manager->loadFilesForResource(resource);
  EXPECT_EQ(saves(), 1);
  manager->saveLoadedResorcesList();
  manager->saveLoadedResorcesList();
  EXPECT_EQ(saves(), 3);
}

TEST_F(KivResourceManagerStepTest, DownloadsThatCompleteInOneJobShareOneSave) {
  loadThreeBanners();
  completeInOneJob({"/a.png", "/b.png"});
  kiv::DispatchQueue::main()->async([this] { savesSeen = saves(); });
  kiv::DispatchQueue::main()->drain();
  EXPECT_EQ(savesSeen, 1);
  EXPECT_EQ(savedList().size(), 2U);
  EXPECT_THAT(takeEvents(), ElementsAre("loaded a", "loaded b"));
  EXPECT_EQ(saves(), 1);
}

TEST_F(KivResourceManagerStepTest, ADownloadThatCompletesInAJobOfItsOwnSavesAtItsEnd) {
  loadThreeBanners();
  for (const char* name : {"/a.png", "/b.png"})
    kiv::DispatchQueue::main()->async([this, name] { client->succeed(name); });
  kiv::DispatchQueue::main()->drain();
  EXPECT_EQ(saves(), 2);
}

TEST_F(KivResourceManagerStepTest, TheFilesOfAJobShareOneWaitForTheDiskBeforeTheListIsSaved) {
  loadThreeBanners();
  completeInOneJob({"/a.png", "/b.png"});
  takeEvents();
  std::vector<std::string> steps;
  for (const auto& operation : files.operations()) {
    if (operation.kind == FileOperation::move && operation.newPath.ends_with(".png"))
      steps.push_back("file");
    if (operation.kind == FileOperation::move && operation.newPath == listPath())
      steps.push_back("list");
    if (operation.kind == FileOperation::synchronizeDirectory &&
        operation.path.ends_with("/Resources")) {
      steps.push_back("sync");
    }
  }
  EXPECT_THAT(steps, ElementsAre("file", "file", "sync", "list"));
}

TEST_F(KivResourceManagerStepTest, TheCountIsZeroWhenTheListIsSavedAndTheFinishIsSent) {
  loadThreeBanners();
  kiv::DispatchQueue::main()->async([this] {
    for (const char* name : {"/a.png", "/b.png", "/c.png"})
      client->succeed(name);
    EXPECT_EQ(manager->loadingResourcesFilesCount(), 0);
    EXPECT_EQ(savedList().size(), 3U);
  });
  kiv::DispatchQueue::main()->drain();
  EXPECT_THAT(takeEvents(), ElementsAre("loaded a", "loaded b", "loaded c", "finished"));
}

TEST_F(KivResourceManagerStepTest, AHostThatDrainsWhileTheCountIsAboveZeroHasTheListAndCallbacks) {
  loadThreeBanners();
  completeInOneJob({"/a.png", "/b.png", "/c.png"});
  while (manager->loadingResourcesFilesCount() > 0)
    kiv::DispatchQueue::main()->drain();
  EXPECT_EQ(savedList().size(), 3U);
  kiv::DispatchQueue::main()->drain();
  EXPECT_EQ(observer->count("finished"), 1U);
}

TEST_F(KivResourceManagerStepTest, AJobBehindACompletionSeesListAndRegistryAgree) {
  loadThreeBanners();
  completeInOneJob({"/a.png", "/b.png"});
  std::size_t loaded = 0;
  std::size_t saved = 0;
  kiv::DispatchQueue::main()->async([&] {
    loaded = manager->allLoadedResources().size();
    saved = savedList().size();
  });
  completeInOneJob({"/c.png"});
  kiv::DispatchQueue::main()->drain();
  EXPECT_EQ(loaded, 2U);
  EXPECT_EQ(saved, 2U);
}

// --- Observers -----------------------------------------------------------------------------------

TEST_F(KivResourceManagerStepTest, AnObserverThatIsAddedLaterInTheJobHearsNothingOfIt) {
  loadThreeBanners();
  const auto late = std::make_shared<kiv::test::RecordingObserver>();
  kiv::DispatchQueue::main()->async([&] {
    client->succeed("/a.png");
    manager->addObserver(late);
    client->succeed("/b.png");
  });
  EXPECT_THAT(takeEvents(), ElementsAre("loaded a", "loaded b"));
  EXPECT_THAT(late->events, ElementsAre("loaded b"));
}

TEST_F(KivResourceManagerStepTest, AnObserverThatIsRemovedInTheJobHearsNothingMore) {
  loadThreeBanners();
  kiv::DispatchQueue::main()->async([&] {
    client->succeed("/a.png");
    manager->removeObserver(observer);
    manager->addObserver(observer);
    client->succeed("/b.png");
  });
  EXPECT_THAT(takeEvents(), ElementsAre("loaded b"));
}

// --- Files of replaced versions ------------------------------------------------------------------

TEST_F(KivResourceManagerStepTest, AFileThatIsToBeRemovedCompletesNothing) {
  load({banner("w", 1, "i.png")});
  beginUpdate({banner("w", 2, "n.png"), video("v", 1, "x/i.png", "v.mp4")});
  completeInOneJob({"/n.png", "/v.mp4"});
  EXPECT_THAT(takeEvents(), ElementsAre("loaded w", "finished"));
  EXPECT_THAT(registry(), ElementsAre("w"));
  EXPECT_FALSE(exists(stored("i.png")));
  EXPECT_TRUE(exists(stored("v.mp4")));
  beginUpdate({banner("w", 2, "n.png"), video("v", 1, "x/i.png", "v.mp4")});
  client->succeed("/x/i.png");
  EXPECT_THAT(takeEvents(), ElementsAre("loaded w", "loaded v", "finished"));
}

TEST_F(KivResourceManagerStepTest, SoItDoesWhereALinkLeadsToTheRoot) {
  load({banner("w", 1, "i.png")});
  const std::string link = root() + ".link";
  std::filesystem::create_directory_symlink(root(), link);
  KivStorageService::setRootPath(link);
  restart();
  beginUpdate({banner("w", 2, "n.png"), video("v", 1, "x/i.png", "v.mp4")});
  completeInOneJob({"/n.png", "/v.mp4"});
  EXPECT_THAT(takeEvents(), ElementsAre("loaded w", "finished"));
  EXPECT_FALSE(exists(stored("i.png")));
}

TEST_F(KivResourceManagerStepTest, APassDoesNotFindAFileThatItHasReplaced) {
  load({banner("w", 1, "i.png")});
  write(stored("n.png"), "new");
  beginUpdate({banner("w", 2, "n.png"), banner("v", 1, "x/i.png")});
  EXPECT_FALSE(exists(stored("i.png")));
  EXPECT_EQ(manager->loadingResourcesFilesCount(), 1);
  client->succeed("/x/i.png");
  EXPECT_THAT(takeEvents(), ElementsAre("loaded w", "loaded v", "finished"));
  EXPECT_TRUE(exists(stored("i.png")));
}

TEST_F(KivResourceManagerStepTest, NorThroughALinkThatLeadsToIt) {
  load({banner("w", 1, "i.png")});
  write(stored("n.png"), "new");
  std::filesystem::create_symlink("i.png", stored("link.png"));
  beginUpdate({banner("w", 2, "n.png"), banner("v", 1, "x/link.png")});
  EXPECT_FALSE(exists(stored("i.png")));
  EXPECT_EQ(manager->loadingResourcesFilesCount(), 1);
  EXPECT_THAT(registry(), ElementsAre("w"));
}

TEST_F(KivResourceManagerStepTest, NorThePageOfAnArchiveThatItHasReplaced) {
  write(stored("promo/index.html"), "page");
  write(stored("other/index.html"), "another page");
  load({page("w", 1, "promo.zip")});
  ASSERT_THAT(registry(), ElementsAre("w"));
  beginUpdate({page("w", 2, "other.zip"), page("v", 1, "x/promo.zip")});
  EXPECT_FALSE(exists(stored("promo")));
  EXPECT_EQ(manager->loadingResourcesFilesCount(), 1);
  EXPECT_THAT(registry(), ElementsAre("w"));
}

TEST_F(KivResourceManagerStepTest, NorAFileThatAnItemNamesByItsPath) {
  load({banner("w", 1, "i.png")});
  write(stored("n.png"), "new");
  beginUpdate({banner("w", 2, "n.png"), banner("v", 1, stored("i.png"))});
  EXPECT_FALSE(exists(stored("i.png")));
  EXPECT_THAT(registry(), ElementsAre("w"));
  EXPECT_THAT(takeEvents(), ElementsAre("loaded w", "finished"));
}

TEST_F(KivResourceManagerStepTest, AFileInUseByAnotherPathStays) {
  load({banner("w", 1, "i.png")});
  const std::string link = root() + ".link";
  std::filesystem::create_directory_symlink(root(), link);
  KivStorageService::setRootPath(link);
  restart();
  beginUpdate({banner("w", 2, "x/i.png")});
  EXPECT_THAT(takeEvents(), ElementsAre("loaded w", "finished"));
  EXPECT_THAT(entry(0)->useFilePaths(), ElementsAre(link + "/KivResource/Resources/i.png"));
  EXPECT_TRUE(exists(stored("i.png")));
}

TEST_F(KivResourceManagerStepTest, ThePageOfAReplacedVersionMakesRoomForAFileOfItsName) {
  beginLoad({page("w", 1, "p.zip")});
  client->succeed("/p.zip", kiv::test::ZipBuilder().addFile("index.html", "page").build());
  takeEvents();
  beginUpdate({page("w", 2, "n.html"), banner("b", 1, "p")});
  completeInOneJob({"/n.html", "/p"});
  EXPECT_THAT(takeEvents(), ElementsAre("loaded w", "loaded b", "finished"));
  EXPECT_EQ(read(stored("p")), "bytes");
}

TEST_F(KivResourceManagerStepTest, AnArchiveKeepsAFileOfTheNameThatAReplacedVersionHad) {
  write(stored("promo/x.png"), "old");
  load({banner("w", 1, stored("promo/x.png"))});
  beginUpdate({banner("w", 2, "n.png"), page("v", 1, "promo.zip")});
  const auto archive =
      kiv::test::ZipBuilder().addFile("index.html", "page").addFile("x.png", "new").build();
  kiv::DispatchQueue::main()->async([&] {
    client->succeed("/n.png");
    client->succeed("/promo.zip", archive);
  });
  EXPECT_THAT(takeEvents(), ElementsAre("loaded w", "loaded v", "finished"));
  EXPECT_EQ(read(stored("promo/x.png")), "new");
}

/// A resource class of a host that uses a second file next to its own, unknown to the framework.
class Neighbour final : public KivResource {
 public:
  static std::shared_ptr<Neighbour> make(const kiv::Dictionary& dictionary, std::string needed) {
    auto made = std::make_shared<Neighbour>();
    made->needed_ = std::move(needed);
    return initialised(std::move(made), dictionary, "neighbour");
  }
  [[nodiscard]] bool filesExist() const override {
    return !own_.empty() && kiv::FileManager::defaultManager().fileExistsAtPath(needed_);
  }
  [[nodiscard]] std::vector<std::string> missingFilesLinks() const override { return {"own.bin"}; }
  void setPath(const std::string& path) override { own_ = path; }

 private:
  std::string needed_;
  std::string own_;
};

TEST_F(KivResourceManagerStepTest, AHostsKindDoesNotFindAFileThatIsToBeRemoved) {
  load({banner("w", 1, "i.png")});
  beginUpdate({banner("w", 2, "n.png")});
  manager->loadFilesForResource(Neighbour::make(plain("b", 1), stored("i.png")));
  completeInOneJob({"/n.png", "/own.bin"});
  EXPECT_THAT(takeEvents(), ElementsAre("loaded w", "finished"));
  EXPECT_THAT(registry(), ElementsAre("w"));
}

// --- A list that cannot be saved -----------------------------------------------------------------

TEST_F(KivResourceManagerStepTest, StoppingWritesNoListAfterAFailedSave) {
  loadThreeBanners();
  files.setFailingOperation(FileOperation::createFile, ENOSPC);
  manager->loadFilesForResource(KivResource::initWithDictionary_engine(plain("p", 1), "eco_other"));
  files.clearFailingOperation();
  manager->stopLoading();
  EXPECT_EQ(saves(), 0);
  EXPECT_FALSE(exists(listPath()));
  beginLoad({plain("q", 1)});
  EXPECT_EQ(savedList().size(), 2U);
}

TEST_F(KivResourceManagerStepTest, StoppingKeepsWhatCompletedBeforeInTheJob) {
  loadThreeBanners();
  kiv::DispatchQueue::main()->async([this] {
    client->succeed("/a.png");
    manager->stopLoading();
    EXPECT_EQ(savedList().size(), 1U);
  });
  EXPECT_THAT(takeEvents(), ElementsAre("loaded a", "finished"));
}

TEST_F(KivResourceManagerStepTest, FilesOfAReplacedVersionStayUntilTheListIsSaved) {
  load({banner("w", 1, "i.png")});
  beginUpdate({banner("w", 2, "n.png")});
  files.setFailingMove(listPath());
  client->succeed("/n.png");
  EXPECT_TRUE(exists(stored("i.png")));
  files.setFailingMove("");
  beginLoad({plain("q", 1)});
  EXPECT_FALSE(exists(stored("i.png")));
}

// --- Order of callbacks --------------------------------------------------------------------------

TEST_F(KivResourceManagerStepTest, ACallOfTheHostBetweenCompletionsKeepsTheOrder) {
  beginLoad({banner("a", 1, "a.png"), banner("b", 1, "b.png")});
  kiv::DispatchQueue::main()->async([this] { client->succeed("/a.png"); });
  kiv::DispatchQueue::main()->async([this] { manager->stopLoading(); });
  EXPECT_THAT((kiv::DispatchQueue::main()->drain(), takeEvents()),
              ElementsAre("loaded a", "finished"));
  EXPECT_EQ(savedList().size(), 1U);
}

/// Checks in each callback whether the saved list contains the resource.
class LookingObserver final : public KivResourceManagerObserver {
 public:
  explicit LookingObserver(std::function<bool(const std::string&)> isSaved)
      : isSaved_(std::move(isSaved)) {}
  void resourceManager_didLoadResource(const std::shared_ptr<KivResourceManager>&,
                                       const std::shared_ptr<KivResource>& resource) override {
    ++heard;
    if (!isSaved_(resource->resourceID())) ++unsaved;
  }
  int heard = 0;
  int unsaved = 0;

 private:
  std::function<bool(const std::string&)> isSaved_;
};

TEST_F(KivResourceManagerStepTest, WhoHearsOfAResourceFindsItInTheSavedList) {
  const auto looking = std::make_shared<LookingObserver>([this](const std::string& identifier) {
    for (const auto& entry : savedList()) {
      if (entry.dictionary()["banner_id"].stringView() == identifier) return true;
    }
    return false;
  });
  manager->addObserver(looking);
  beginLoad({plain("p", 1), banner("a", 1, "a.png"), banner("b", 1, "b.png")});
  for (const char* name : {"/a.png", "/b.png"}) {
    kiv::DispatchQueue::main()->async([this, name] { client->succeed(name); });
  }
  while (kiv::DispatchQueue::main()->drain() > 0) {
  }
  EXPECT_EQ(looking->heard, 3);
  EXPECT_EQ(looking->unsaved, 0);
}

TEST_F(KivResourceManagerStepTest, AListThatCannotBeSavedHoldsNothingBack) {
  files.setFailingOperation(FileOperation::createFile, ENOSPC);
  beginLoad({plain("p", 1)});
  EXPECT_THAT(takeEvents(), ElementsAre("loaded p", "finished"));
  EXPECT_FALSE(exists(listPath()));
  files.clearFailingOperation();
  beginLoad({plain("q", 1)});
  EXPECT_EQ(savedList().size(), 2U);
}

}  // namespace
