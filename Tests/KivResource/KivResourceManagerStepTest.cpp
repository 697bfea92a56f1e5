// When the list is saved, and that nobody hears of a resource before a list that holds it is on
// disk.

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/Support/FaultyFileManager.h"
#include "Tests/Support/ManagerFixture.h"

namespace {

using kiv::test::FaultyFileManager;
using kiv::test::ManagerFixture;
using testing::ElementsAre;

class KivResourceManagerStepTest : public ManagerFixture {
 protected:
  /// How often the saved list was put in place.
  [[nodiscard]] std::ptrdiff_t saves() const {
    const auto operations = files.operations();
    return std::count_if(operations.begin(), operations.end(), [&](const auto& operation) {
      return operation.name == "move" && operation.newPath == listPath();
    });
  }

  FaultyFileManager files;
};

TEST_F(KivResourceManagerStepTest, APassThatFindsItsFilesSavesTheListOnce) {
  for (const char* name : {"a.png", "b.png", "c.png"})
    write(stored(name), "x");
  manager->updateResourcesForConfig(
      config({banner("a", 1, "a.png"), banner("b", 1, "b.png"), banner("c", 1, "c.png")}));
  EXPECT_EQ(saves(), 1);
  EXPECT_EQ(savedList().size(), 3U);
  EXPECT_THAT(takeEvents(), ElementsAre("loaded a", "loaded b", "loaded c", "finished"));
}

TEST_F(KivResourceManagerStepTest, AStepThatIsCalledAloneSavesAtItsEnd) {
  write(stored("a.png"), "x");
  manager->loadResourcesForConfig(config({banner("a", 1, "x/missing.png")}));
  const auto resource = KivResource::initWithDictionary_engine(plain("p", 1), "eco_other");
  manager->loadFilesForResource(resource);
  EXPECT_EQ(saves(), 1);
  manager->saveLoadedResorcesList();
  manager->saveLoadedResorcesList();
  EXPECT_EQ(saves(), 3);
}

TEST_F(KivResourceManagerStepTest, CompletionsThatWaitInTheQueueTogetherShareOneSave) {
  manager->loadResourcesForConfig(
      config({banner("a", 1, "a.png"), banner("b", 1, "b.png"), banner("c", 1, "c.png")}));
  for (const char* name : {"/a.png", "/b.png", "/c.png"}) {
    kiv::DispatchQueue::main()->async([this, name] { client->succeed(name); });
  }
  kiv::DispatchQueue::main()->drain();
  EXPECT_EQ(saves(), 0);
  EXPECT_TRUE(observer->events.empty());
  kiv::DispatchQueue::main()->drain();
  EXPECT_EQ(saves(), 1);
  EXPECT_EQ(savedList().size(), 3U);
  EXPECT_THAT(takeEvents(), ElementsAre("loaded a", "loaded b", "loaded c", "finished"));
  EXPECT_EQ(saves(), 1);
}

TEST_F(KivResourceManagerStepTest, TheirFilesShareOneWaitForTheDiskBeforeTheListIsSaved) {
  manager->loadResourcesForConfig(
      config({banner("a", 1, "a.png"), banner("b", 1, "b.png"), banner("c", 1, "c.png")}));
  for (const char* name : {"/a.png", "/b.png", "/c.png"}) {
    kiv::DispatchQueue::main()->async([this, name] { client->succeed(name); });
  }
  kiv::DispatchQueue::main()->drain();
  takeEvents();
  std::vector<std::string> steps;
  for (const auto& operation : files.operations()) {
    if (operation.name == "move" && operation.newPath.ends_with(".png")) steps.push_back("file");
    if (operation.name == "move" && operation.newPath == listPath()) steps.push_back("list");
    if (operation.name == "synchronizeDirectory" && operation.path.ends_with("/Resources")) {
      steps.push_back("sync");
    }
  }
  EXPECT_THAT(steps, ElementsAre("file", "file", "file", "sync", "list"));
}

TEST_F(KivResourceManagerStepTest, ACallOfTheHostBetweenCompletionsKeepsTheOrder) {
  manager->loadResourcesForConfig(config({banner("a", 1, "a.png"), banner("b", 1, "b.png")}));
  kiv::DispatchQueue::main()->async([this] { client->succeed("/a.png"); });
  kiv::DispatchQueue::main()->async([this] { manager->stopLoading(); });
  EXPECT_THAT((kiv::DispatchQueue::main()->drain(), takeEvents()),
              ElementsAre("loaded a", "finished"));
  EXPECT_EQ(savedList().size(), 1U);
}

/// Looks at the disk each time it hears of a resource.
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
  manager->loadResourcesForConfig(
      config({plain("p", 1), banner("a", 1, "a.png"), banner("b", 1, "b.png")}));
  for (const char* name : {"/a.png", "/b.png"}) {
    kiv::DispatchQueue::main()->async([this, name] { client->succeed(name); });
  }
  while (kiv::DispatchQueue::main()->drain() > 0) {
  }
  EXPECT_EQ(looking->heard, 3);
  EXPECT_EQ(looking->unsaved, 0);
}

TEST_F(KivResourceManagerStepTest, AListThatCannotBeSavedHoldsNothingBack) {
  files.setFailingOperation("createFile", ENOSPC);
  manager->loadResourcesForConfig(config({plain("p", 1)}));
  EXPECT_THAT(takeEvents(), ElementsAre("loaded p", "finished"));
  EXPECT_FALSE(exists(listPath()));
  files.setFailingOperation("", 0);
  manager->loadResourcesForConfig(config({plain("q", 1)}));
  EXPECT_EQ(savedList().size(), 2U);
}

}  // namespace
