#include <future>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KivResource/KivResourceManager.h"
#include "KivResource/KivResourceStandard.h"
#include "KivResource/KivResourceVideo.h"
#include "Tests/Support/ManagerFixture.h"

namespace {

using kiv::test::Events;
using kiv::test::ManagerFixture;
using kiv::test::Names;
using testing::ElementsAre;
using testing::IsEmpty;

class KivResourceManagerTest : public ManagerFixture {
 protected:
  void writeList(const kiv::Array& dictionaries) {
    write(listPath(), (*kiv::JSON::write(dictionaries)).view());
  }
};

constexpr const char* restoredLine =
    "KivResourceManager (-[KivResourceManager loadSavedResources]): Cached resources were loaded.";

// --- Creation and restoring ----------------------------------------------------------------------

TEST_F(KivResourceManagerTest, SharedInstanceIsOneObject) {
  const auto first = KivResourceManager::sharedInstance();
  std::shared_ptr<KivResourceManager> second;
  std::thread([&] { second = KivResourceManager::sharedInstance(); }).join();
  EXPECT_EQ(first, second);
}

TEST_F(KivResourceManagerTest, CreationMakesEveryPartAndIsIdle) {
  const auto fresh = KivResourceManager::newInstance();
  EXPECT_NE(fresh->multicastObserver(), nullptr);
  EXPECT_NE(fresh->loader(), nullptr);
  EXPECT_NE(fresh->loader()->restService(), nullptr);
  EXPECT_EQ(fresh->loader()->delegate(), nullptr);
  EXPECT_TRUE(fresh->loadedResources()->empty());
  EXPECT_FALSE(fresh->resourcesForRemove().has_value());
  EXPECT_EQ(fresh->loadingResourcesFilesCount(), 0);
}

TEST_F(KivResourceManagerTest, FirstUseWithoutASavedListIsEmptyWithOneLogLineAndNoCallback) {
  log.clear();
  restart();
  EXPECT_THAT(registry(), IsEmpty());
  EXPECT_THAT(log.lines(), ElementsAre(restoredLine));
  EXPECT_THAT(takeEvents(), IsEmpty());
  EXPECT_FALSE(exists(listPath()));
}

TEST_F(KivResourceManagerTest, AnEmptySavedListIsLoggedToo) {
  writeList({});
  log.clear();
  restart();
  EXPECT_THAT(log.lines(), ElementsAre(restoredLine));
}

TEST_F(KivResourceManagerTest, AnEntryWhoseFileIsGoneIsLeftOutUntilTheNextSaveForgetsIt) {
  write(stored("a.png"), "a");
  write(stored("c.png"), "c");
  writeList({banner("a", 1, stored("a.png")), banner("b", 1, stored("b.png")),
             banner("c", 1, stored("c.png"))});
  restart();
  EXPECT_THAT(registry(), ElementsAre("a", "c"));
  EXPECT_EQ(savedList().size(), 3U);
  EXPECT_THAT(takeEvents(), IsEmpty());
  manager->saveLoadedResorcesList();
  EXPECT_EQ(savedList().size(), 2U);
}

TEST_F(KivResourceManagerTest, AnEntryThatTheFactoryRejectsIsLeftOutAndItsFilesStay) {
  write(stored("a.png"), "a");
  auto entry = banner("a", 1, stored("a.png"));
  entry.remove("name");
  writeList({entry, plain("b", 1)});
  restart();
  EXPECT_THAT(registry(), ElementsAre("b"));
  EXPECT_TRUE(exists(stored("a.png")));
}

TEST_F(KivResourceManagerTest, AnUnreadableSavedListGivesAnEmptyRegistryAndIsNotTouched) {
  for (const std::string text : {"", "not JSON", "{\"items\": []}", "17", "[1, 2"}) {
    write(listPath(), text);
    log.clear();
    restart();
    EXPECT_THAT(registry(), IsEmpty()) << text;
    EXPECT_THAT(log.lines(), ElementsAre(restoredLine)) << text;
    EXPECT_EQ(read(listPath()), text);
  }
}

TEST_F(KivResourceManagerTest, ASavedListThatIsADirectoryGivesAnEmptyRegistry) {
  std::filesystem::create_directories(listPath());
  restart();
  EXPECT_THAT(registry(), IsEmpty());
}

TEST_F(KivResourceManagerTest, EverythingSurvivesARestart) {
  load({banner("a", 7, "x/a.png"), video("v", 18446744073709551615U, "y/i.png", "y/v.mp4"),
        plain("p", 3)});
  restart();
  EXPECT_THAT(registry(), ElementsAre("p", "a", "v"));
  const auto videos = manager->loadedResourcesWithType("video");
  ASSERT_EQ(videos.size(), 1U);
  const auto restored = std::dynamic_pointer_cast<KivResourceVideo>(videos[0]);
  ASSERT_NE(restored, nullptr);
  EXPECT_EQ(restored->updated(), 18446744073709551615U);
  EXPECT_EQ(restored->icon(), stored("i.png"));
  EXPECT_EQ(restored->video(), stored("v.mp4"));
  EXPECT_TRUE(restored->filesExist());
}

// --- Saving the list -----------------------------------------------------------------------------

TEST_F(KivResourceManagerTest, TheListHoldsOneDictionaryForEachRegistryEntryInOrder) {
  load({plain("b", 1), plain("a", 1)});
  manager->loadedResources()->append(entry(0));
  manager->saveLoadedResorcesList();
  Names identifiers;
  for (const auto& entry : savedList()) {
    identifiers.push_back(entry.dictionary()["banner_id"].string());
  }
  EXPECT_THAT(identifiers, ElementsAre("b", "a", "b"));
}

TEST_F(KivResourceManagerTest, AFailedSaveIsIgnoredAndTheNextOneWritesTheWholeList) {
  load({plain("a", 1)});
  std::filesystem::remove(listPath());
  std::filesystem::create_directories(listPath());
  load({plain("b", 1)});
  EXPECT_THAT(registry(), ElementsAre("a", "b"));
  std::filesystem::remove(listPath());
  load({plain("c", 1)});
  EXPECT_EQ(savedList().size(), 3U);
}

// --- Queries -------------------------------------------------------------------------------------

TEST_F(KivResourceManagerTest, QueriesHandOutCopiesOfTheSameKind) {
  load({banner("a", 1, "a.png")});
  const auto copies = manager->allLoadedResources();
  ASSERT_EQ(copies.size(), 1U);
  const auto own = entry(0);
  EXPECT_NE(copies[0], own);
  const auto copy = std::dynamic_pointer_cast<KivResourceStandard>(copies[0]);
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->image(), stored("a.png"));
  copy->setResourceID("other");
  copy->resourceDictionary()->set("banner_id", "other");
  EXPECT_EQ(own->resourceID(), "a");
  EXPECT_EQ((*own->resourceDictionary())["banner_id"].string(), "a");
  manager->removeResource(copy);
  EXPECT_THAT(registry(), ElementsAre("a"));
}

TEST_F(KivResourceManagerTest, WithoutCopyTheRegistrysOwnObjectsAreAnswered) {
  load({plain("a", 1), plain("b", 1)});
  EXPECT_EQ(manager->allLoadedResourcesWithCopy(false), manager->loadedResources()->resources());
  EXPECT_EQ(manager->loadedResourcesWithID_copy("b", false)[0], entry(1));
  EXPECT_EQ(manager->loadedResourcesWithType_copy("plain", false).size(), 2U);
}

TEST_F(KivResourceManagerTest, AnUnknownIdentifierAnswersAnEmptyArray) {
  load({plain("a", 1)});
  EXPECT_THAT(manager->loadedResourcesWithID("nobody"), IsEmpty());
  EXPECT_THAT(manager->loadedResourcesWithID(std::nullopt), IsEmpty());
  EXPECT_THAT(manager->loadedResourcesWithType(""), IsEmpty());
}

TEST_F(KivResourceManagerTest, TwoResourcesWithOneIdentifierAreBothAnsweredInOrder) {
  load({plain("a", 1), plain("b", 1), plain("a", 2)});
  const auto found = manager->loadedResourcesWithID("a");
  ASSERT_EQ(found.size(), 2U);
  EXPECT_EQ(found[0]->updated(), 1U);
  EXPECT_EQ(found[1]->updated(), 2U);
}

TEST_F(KivResourceManagerTest, AResourceWhoseDictionaryIsNotAcceptableAnyMoreHasNoCopy) {
  load({plain("a", 1), plain("b", 1)});
  entry(0)->resourceDictionary()->remove("name");
  const auto copies = manager->allLoadedResources();
  ASSERT_EQ(copies.size(), 1U);
  EXPECT_EQ(copies[0]->resourceID(), "b");
}

TEST_F(KivResourceManagerTest, FindComparesPropertiesByValueAndCase) {
  load({plain("a", 1), banner("b", 5, "b.png")});
  const auto& all = manager->loadedResources()->resources();
  const auto find = [&](const kiv::Value& value, const char* property) {
    return KivResourceManager::findResourcesInList_withValue_forPropertyName(all, value, property)
        .size();
  };
  EXPECT_EQ(find("plain", "type"), 1U);
  EXPECT_EQ(find("Plain", "type"), 0U);
  EXPECT_EQ(find("b", "resourceID"), 1U);
  EXPECT_EQ(find(5, "updated"), 1U);
  EXPECT_EQ(find(nullptr, "type"), 0U);
  EXPECT_EQ(find(nullptr, "options"), 2U);
  EXPECT_EQ(find(nullptr, "no such property"), 0U);
}

// --- Observers -----------------------------------------------------------------------------------

TEST_F(KivResourceManagerTest, CallbacksComeAsynchronouslyOnTheObserversQueue) {
  beginLoad({plain("a", 1)});
  EXPECT_THAT(observer->events, IsEmpty());
  EXPECT_THAT(takeEvents(), ElementsAre("loaded a", "finished"));
}

TEST_F(KivResourceManagerTest, AnObserverCanNameItsQueue) {
  const auto queue = kiv::DispatchQueue::serial("observer");
  const auto elsewhere = std::make_shared<kiv::test::RecordingObserver>();
  EXPECT_TRUE(manager->addObserver(elsewhere, queue));
  beginLoad({plain("a", 1)});
  std::promise<void> passed;
  queue->async([&] { passed.set_value(); });
  passed.get_future().wait();
  EXPECT_THAT(elsewhere->events, ElementsAre("loaded a", "finished"));
}

TEST_F(KivResourceManagerTest, OnAThreadWithoutAQueueNothingIsRegistered) {
  const auto lost = std::make_shared<kiv::test::RecordingObserver>();
  log.clear();
  bool isRegistered = true;
  std::thread([&] { isRegistered = manager->addObserver(lost); }).join();
  EXPECT_FALSE(isRegistered);
  EXPECT_THAT(log.lines(), ElementsAre(testing::HasSubstr("this thread has no queue")));
  EXPECT_FALSE(manager->addObserver(nullptr));
  manager->stopLoading();
  takeEvents();
  EXPECT_THAT(lost->events, IsEmpty());
}

TEST_F(KivResourceManagerTest, ARemovedObserverHearsNothingNotEvenWhatWasOnItsWay) {
  manager->stopLoading();
  manager->removeObserver(observer);
  manager->stopLoading();
  EXPECT_THAT(takeEvents(), IsEmpty());
}

TEST_F(KivResourceManagerTest, AnObserverThatIsGoneIsNotCalled) {
  manager->stopLoading();
  const std::weak_ptr<kiv::test::RecordingObserver> gone = observer;
  observer = nullptr;
  EXPECT_TRUE(gone.expired());
  kiv::DispatchQueue::main()->drain();
  observer = std::make_shared<kiv::test::RecordingObserver>();
}

TEST_F(KivResourceManagerTest, AnObserverThatImplementsNothingIsLeftAlone) {
  const auto silent = std::make_shared<KivResourceManagerObserver>();
  manager->addObserver(silent);
  beginLoad({plain("a", 1)});
  EXPECT_THAT(takeEvents(), ElementsAre("loaded a", "finished"));
}

// Assertions are disabled with NDEBUG.
#ifndef NDEBUG
TEST_F(KivResourceManagerTest, ACallOffItsQueueEndsTheProgram) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  const auto list = manager->loadedResources();
  EXPECT_DEATH(std::thread([&] { manager->loadResourcesForConfig({}); }).join(),
               "KivResourceManager::loadResourcesForConfig was called off the queue on which the "
               "manager was made; post it there with kiv::DispatchQueue::async");
  EXPECT_DEATH(std::thread([&] { list->append(nullptr); }).join(),
               "kiv::ResourceList::append was called off the queue on which the manager was made");
}
#endif

TEST_F(KivResourceManagerTest, PropertiesKeepTheObjectsThatAreSet) {
  const auto list = std::make_shared<kiv::ResourceList>();
  const auto loader = std::make_shared<KivResourceRESTModule>();
  const auto multicast = std::make_shared<KivResourceManager::MulticastObserver>();
  manager->setLoadedResources(list);
  manager->setLoader(loader);
  manager->setMulticastObserver(multicast);
  manager->setLoadingResourcesFilesCount(4);
  manager->setResourcesForRemove(kiv::ResourceArray());
  EXPECT_EQ(manager->loadedResources(), list);
  EXPECT_EQ(manager->loader(), loader);
  EXPECT_EQ(manager->multicastObserver(), multicast);
  EXPECT_EQ(manager->loadingResourcesFilesCount(), 4);
  EXPECT_TRUE(manager->resourcesForRemove().has_value());
}

}  // namespace
