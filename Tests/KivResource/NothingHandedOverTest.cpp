// Null arguments to setters and operations of the framework do no harm.

#include <functional>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KivResource/KivResourceVideo.h"
#include "KivResource/NSError+KivResource.h"
#include "KivResource/maintenance/KivResourceMaintenance.h"
#include "Tests/Support/ManagerFixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class NothingHandedOverTest : public kiv::test::ManagerFixture {
 protected:
  static std::shared_ptr<KivResource> plainResource() {
    return KivResource::initWithDictionary_engine(plain("p", 1), "eco_other");
  }
};

TEST_F(NothingHandedOverTest, WithoutALoaderDownloadsFailAtOnce) {
  manager->setLoader(nullptr);
  beginLoad({banner("a", 1, "a.png")});
  EXPECT_EQ(manager->loadingResourcesFilesCount(), 0);
  EXPECT_THAT(takeEvents(), ElementsAre("failed a", "finished", "finished"));
  ASSERT_TRUE(observer->failures[0].error);
  EXPECT_EQ(observer->failures[0].error->code, CreateURLRequestErrorCode);
  EXPECT_EQ(observer->failures[0].error->domain, KivResourceRESTModuleErrorDomain);
  manager->stopLoading();
  EXPECT_THAT(takeEvents(), ElementsAre("finished"));
  manager->setLoader(std::make_shared<KivResourceRESTModule>());
}

TEST_F(NothingHandedOverTest, WithoutAClientTooAndNothingIsCancelled) {
  manager->loader()->setRestService(nullptr);
  beginLoad({banner("a", 1, "a.png")});
  EXPECT_THAT(takeEvents(), ElementsAre("failed a", "finished", "finished"));
  EXPECT_EQ(observer->failures[0].error->code, CreateURLRequestErrorCode);
  manager->loader()->canselLoading();
  manager->stopLoading();
  EXPECT_THAT(takeEvents(), ElementsAre("finished"));
}

TEST_F(NothingHandedOverTest, WithoutAMulticasterNobodyHears) {
  manager->setMulticastObserver(nullptr);
  ASSERT_TRUE(manager->multicastObserver());
  beginLoad({plain("p", 1)});
  EXPECT_THAT(takeEvents(), IsEmpty());
  manager->addObserver(observer);
  manager->stopLoading();
  EXPECT_THAT(takeEvents(), ElementsAre("finished"));
}

TEST_F(NothingHandedOverTest, WithoutARegistryThereIsAnEmptyOne) {
  load({plain("p", 1)});
  manager->setLoadedResources(nullptr);
  ASSERT_TRUE(manager->loadedResources());
  EXPECT_THAT(manager->allLoadedResources(), IsEmpty());
  EXPECT_TRUE(KivResourceMaintenance::audit(*manager));
  beginLoad({plain("q", 1)});
  EXPECT_THAT(registry(), ElementsAre("q"));
}

TEST_F(NothingHandedOverTest, OperationsOnNoResourceDoNothing) {
  load({plain("p", 1)});
  manager->loadFilesForResource(nullptr);
  manager->saveLoadedData_forFileWithLink_andUpdateResource(kiv::Data("x"), "x/a.png", nullptr);
  manager->setLoadedFile_forResource(stored("a.png"), nullptr);
  manager->removeOldResourcesForResource(nullptr);
  manager->removeFilesForResource(nullptr);
  manager->removeResource(nullptr);
  manager->addObserver(nullptr);
  manager->addObserver(observer, nullptr);
  manager->removeObserver(nullptr);
  EXPECT_THAT(takeEvents(), IsEmpty());
  EXPECT_THAT(registry(), ElementsAre("p"));
  EXPECT_FALSE(exists(stored("a.png")));
}

TEST_F(NothingHandedOverTest, NullElementsOfListsAreLeftOut) {
  manager->updateResourcesFromList_deleteRest({nullptr, plainResource(), nullptr}, true);
  EXPECT_THAT(takeEvents(), ElementsAre("loaded p", "finished"));
  const auto found = KivResourceManager::findResourcesInList_withValue_forPropertyName(
      {nullptr, plainResource()}, "p", "resourceID");
  EXPECT_EQ(found.size(), 1U);
  manager->setResourcesForRemove(kiv::ResourceArray{nullptr});
  manager->finishLoading();
  manager->setLoadedResources(
      std::make_shared<kiv::ResourceList>(kiv::ResourceArray{nullptr, plainResource()}));
  EXPECT_THAT(registry(), ElementsAre("p"));
}

TEST_F(NothingHandedOverTest, AnEmptyCompletionDoesNothing) {
  KivResourceRESTModule& loader = *manager->loader();
  loader.loadDataForResource_usingFileLink_completionHandler(plainResource(), "a.png", nullptr);
  EXPECT_TRUE(client->succeed("/a.png"));
  loader.loadDataForResource_usingFileLink_completionHandler(plainResource(), "a.png", nullptr);
  EXPECT_TRUE(client->fail("/a.png"));
  KivAppConfiguration::sharedInstance()->setMainACSDomain(std::nullopt);
  loader.loadDataForResource_usingFileLink_completionHandler(plainResource(), "a.png", nullptr);
  EXPECT_THAT(client->tasks, IsEmpty());
}

TEST_F(NothingHandedOverTest, ADownloadForNoResourceHasTheLeastPriority) {
  bool completed = false;
  manager->loader()->loadDataForResource_usingFileLink_completionHandler(
      nullptr, "a.png", [&](const auto&, const auto&) { completed = true; });
  EXPECT_EQ(client->tasks.at(0)->priority(), 0U);
  client->succeed("/a.png");
  EXPECT_TRUE(completed);
}

TEST_F(NothingHandedOverTest, TheClientAndItsTasksTakeNothing) {
  KivRESTService service;
  service.queue(nullptr);
  service.setProgressHandler(nullptr);
  service.setEndHandler(nullptr);
  const auto task = std::make_shared<KivRESTServiceTask>();
  task->setCompletionHandler(nullptr);
  service.queue(task);
  while (!service.currentQueue().empty())
    kiv::DispatchQueue::main()->drain();
  EXPECT_TRUE(task->responseError());
}

TEST_F(NothingHandedOverTest, AQueueTakesNoJob) {
  kiv::DispatchQueue::main()->async(kiv::DispatchQueue::Job());
  kiv::DispatchQueue::atEndOfJob(nullptr);
  EXPECT_EQ(kiv::DispatchQueue::main()->drain(), 0U);
}

TEST_F(NothingHandedOverTest, AResourceTakesNothing) {
  const auto resource =
      KivResourceVideo::initWithDictionary_engine(video("v", 1, "i.png", "v.mp4"), "eco_video");
  resource->setResourceDictionary(nullptr);
  resource->setOptions(nullptr);
  resource->setFileLinks(nullptr);
  resource->setFilePaths(nullptr);
  resource->setIcon(std::nullopt);
  manager->loadFilesForResource(resource);
  EXPECT_FALSE(resource->copyWithZone());
  EXPECT_THAT(takeEvents(), IsEmpty());
}

}  // namespace
