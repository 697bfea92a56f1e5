// The number of file system operations: as many as the contract requires, and no more.

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/Support/ForwardingFileManager.h"
#include "Tests/Support/ManagerFixture.h"

namespace kiv::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// Records the paths whose existence is queried.
class AskedPaths final : public ForwardingFileManager {
 public:
  bool fileExistsAtPath(std::string_view path) override {
    asked.emplace_back(path);
    return ForwardingFileManager::fileExistsAtPath(path);
  }
  bool itemExistsAtPath(std::string_view path) override {
    asked.emplace_back(path);
    return ForwardingFileManager::itemExistsAtPath(path);
  }
  std::vector<std::string> take() { return std::exchange(asked, {}); }

  std::vector<std::string> asked;
};

class KivResourceManagerDiskTest : public ManagerFixture {
 protected:
  KivResourceManagerDiskTest() {
    load({banner("b", 1, "x/b.png"), video("v", 1, "x/i.png", "x/v.mp4"), page("p", 1, "x/p.html"),
          plain("n", 1)});
  }

  const std::string bannerFile = stored("b.png");
  const std::string iconFile = stored("i.png");
  const std::string videoFile = stored("v.mp4");
  const std::string pageFile = stored("p.html");
};

TEST_F(KivResourceManagerDiskTest, RestoringAsksOnceForEachFile) {
  AskedPaths files;
  restart();
  EXPECT_EQ(registry().size(), 4U);
  std::vector<std::string> resourceFiles;
  for (const auto& path : files.take()) {
    if (path.starts_with(stored(""))) resourceFiles.push_back(path);
  }
  EXPECT_THAT(resourceFiles, ElementsAre(bannerFile, iconFile, videoFile, pageFile));
}

TEST_F(KivResourceManagerDiskTest, AQueryAsksOnceForEachFileOfItsAnswer) {
  AskedPaths files;
  EXPECT_EQ(manager->loadedResourcesWithID("v").size(), 1U);
  EXPECT_THAT(files.take(), ElementsAre(iconFile, videoFile));
  EXPECT_EQ(manager->loadedResourcesWithType("banner").size(), 1U);
  EXPECT_THAT(files.take(), ElementsAre(bannerFile));
  EXPECT_EQ(manager->loadedResourcesWithID("n").size(), 1U);
  EXPECT_TRUE(manager->loadedResourcesWithID("nobody").empty());
  EXPECT_THAT(files.take(), IsEmpty());
  EXPECT_EQ(manager->allLoadedResources().size(), 4U);
  EXPECT_THAT(files.take(), ElementsAre(bannerFile, iconFile, videoFile, pageFile));
}

TEST_F(KivResourceManagerDiskTest, WhatAHostReadsOfACopyAsksNothing) {
  const auto copies = manager->allLoadedResources();
  AskedPaths files;
  for (const auto& copy : copies) {
    EXPECT_EQ(copy->useFilePaths().empty(), copy->resourceID() == "n");
    EXPECT_TRUE(copy->missingFilesLinks().empty());
    EXPECT_NE(copy->valueForProperty("name"), Value());
  }
  EXPECT_EQ(manager->allLoadedResourcesWithCopy(false).size(), 4U);
  EXPECT_EQ(manager->loadedResourcesWithID_copy("v", false).size(), 1U);
  EXPECT_THAT(files.take(), IsEmpty());
}

TEST_F(KivResourceManagerDiskTest, ADownloadAsksOnceForTheFileThatItHasStored) {
  AskedPaths files;
  beginLoad({banner("new", 1, "x/new.png"), banner("other", 1, "x/other.png")});
  std::erase_if(files.asked, [](const auto& path) { return !path.ends_with("/new.png"); });
  const std::string inBundle = packaged() + "/InnerAdResources.bundle/new.png";
  const std::string file = stored("new.png");
  EXPECT_THAT(files.take(), ElementsAre("x/new.png", inBundle, file));
  client->succeed("/new.png");
  takeEvents();
  EXPECT_EQ(registry().back(), "new");
  std::vector<std::string> asked;
  for (const auto& path : files.take()) {
    if (path.ends_with("/new.png")) asked.push_back(path);
  }
  // Whether it may be replaced, whether a packaged file hides it, whether it is there.
  EXPECT_THAT(asked, ElementsAre(file, inBundle, file));
}

TEST_F(KivResourceManagerDiskTest, AnUpdateInWhichAllIsCurrentAsksForNoStoredFile) {
  AskedPaths files;
  beginUpdate({banner("b", 1, "x/b.png"), video("v", 1, "x/i.png", "x/v.mp4"),
               page("p", 1, "x/p.html"), plain("n", 1)});
  EXPECT_THAT(takeEvents(),
              ElementsAre("loaded b", "loaded v", "loaded p", "loaded n", "finished"));
  EXPECT_THAT(files.take(), testing::Each(testing::Not(testing::StartsWith(stored("")))));
}

}  // namespace

}  // namespace kiv::test
