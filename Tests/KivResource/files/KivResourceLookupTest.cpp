#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KivResource/KivResourceFactory.h"
#include "KivResource/KivResourceStorageModule.h"
#include "KivResource/files/KivResourceLookup.h"
#include "Tests/Support/CacheFixture.h"
#include "Tests/Support/ManagerFixture.h"
#include "Tests/Support/ResourceItems.h"
#include "Tests/Support/WorkingDirectory.h"

namespace {

using namespace kiv::test;
using testing::AllOf;
using testing::Each;
using testing::IsEmpty;
using testing::Not;
using testing::UnorderedElementsAre;
using Strings = std::vector<std::string>;

class KivResourceLookupTest : public CacheFixture {
 protected:
  KivResourceLookupTest() {
    write(outside(), "the user's own");
    write(stored("a.png"), "stored");
    write(packaged() + "/InnerAdResources.bundle/p.png", "packaged");
  }
  ~KivResourceLookupTest() override { KivResourceLookup::setRoots(std::nullopt); }

  [[nodiscard]] std::string outside() const { return root() + "/../home/thesis.png"; }

  static void confine(Strings roots = {}) { KivResourceLookup::setRoots(std::move(roots)); }
};

TEST_F(KivResourceLookupTest, LooksEverywhereAtFirst) {
  EXPECT_EQ(KivResourceLookup::roots(), std::nullopt);
  EXPECT_TRUE(KivResourceLookup::fileExistsAtPath(outside()));
  EXPECT_TRUE(KivResourceLookup::fileExistsAtPath(stored("a.png")));
}

TEST_F(KivResourceLookupTest, FindsStoredAndPackagedFilesWithoutARootOfTheHosts) {
  confine();
  EXPECT_EQ(KivResourceLookup::roots(), Strings());
  EXPECT_TRUE(KivResourceLookup::fileExistsAtPath(stored("a.png")));
  EXPECT_TRUE(KivResourceLookup::fileExistsAtPath(packaged() + "/InnerAdResources.bundle/p.png"));
  EXPECT_FALSE(KivResourceLookup::fileExistsAtPath(stored("b.png")));
}

TEST_F(KivResourceLookupTest, WhatLiesElsewhereIsAbsent) {
  write(root() + "/a.png", "beside the resources");
  write(root() + "/KivResource/resources_config.json", "[]");
  write(root() + "/KivResource/Resources2/a.png", "a directory whose name begins alike");
  write(packaged() + "/a.png", "beside the bundle");
  confine();
  for (const std::string& path :
       {outside(), root() + "/a.png", listPath(), root() + "/KivResource/Resources2/a.png",
        packaged() + "/a.png", std::string("/bin/sh"), std::string("/etc/passwd"), std::string(),
        stored("../resources_config.json"), stored("../../../home/thesis.png")}) {
    EXPECT_FALSE(KivResourceLookup::fileExistsAtPath(path)) << path;
  }
}

TEST_F(KivResourceLookupTest, APathOnAnotherComputerIsAbsent) {
  EXPECT_TRUE(KivResourceLookup::fileExistsAtPath(outside()));
  EXPECT_FALSE(KivResourceLookup::fileExistsAtPath("/" + outside()));
  const WorkingDirectory here(root());
  for (const std::string name : {"\\server", "\\\\server\\share"})
    write(root() + "/" + name, "bytes");
  EXPECT_TRUE(KivResourceLookup::fileExistsAtPath("\\server"));
  EXPECT_FALSE(KivResourceLookup::fileExistsAtPath("\\\\server\\share"));
}

TEST_F(KivResourceLookupTest, TheHostsDirectoriesMayLieOnAnotherComputer) {
  KivStorageService::setRootPath("/" + root());
  write(stored("file.png"), "bytes");
  const std::string path = KivResourceStorageModule::resourcesDirectoryPath() + "/file.png";
  ASSERT_TRUE(path.starts_with("//"));
  EXPECT_TRUE(KivResourceLookup::fileExistsAtPath(path)) << path;
}

TEST_F(KivResourceLookupTest, DirectoriesAreNoFiles) {
  std::filesystem::create_directory(stored("page"));
  confine();
  EXPECT_FALSE(KivResourceLookup::fileExistsAtPath(stored("page")));
  EXPECT_FALSE(KivResourceLookup::fileExistsAtPath(stored("")));
}

TEST_F(KivResourceLookupTest, ALinkCountsAsWhereItLeads) {
  std::filesystem::create_symlink(outside(), stored("out.png"));
  std::filesystem::create_symlink(stored("a.png"), root() + "/in.png");
  std::filesystem::create_directory_symlink(root() + "/../home", stored("home"));
  confine();
  EXPECT_FALSE(KivResourceLookup::fileExistsAtPath(stored("out.png")));
  EXPECT_FALSE(KivResourceLookup::fileExistsAtPath(stored("home/thesis.png")));
  EXPECT_TRUE(KivResourceLookup::fileExistsAtPath(root() + "/in.png"));
}

TEST_F(KivResourceLookupTest, TheRootMayBeReachedThroughALink) {
  const std::string link = root() + "/../link";
  std::filesystem::create_directory_symlink(root(), link);
  confine();
  EXPECT_TRUE(
      KivResourceLookup::fileExistsAtPath(link + "/KivResource/Resources/../Resources/a.png"));
  KivStorageService::setRootPath(link);
  EXPECT_TRUE(KivResourceLookup::fileExistsAtPath(stored("a.png")));
}

TEST_F(KivResourceLookupTest, TheHostAddsDirectories) {
  confine({root() + "/../home"});
  EXPECT_TRUE(KivResourceLookup::fileExistsAtPath(outside()));
  EXPECT_TRUE(KivResourceLookup::fileExistsAtPath(stored("a.png")));
  EXPECT_FALSE(KivResourceLookup::fileExistsAtPath("/bin/sh"));
  confine({"/"});
  EXPECT_TRUE(KivResourceLookup::fileExistsAtPath("/bin/sh"));
}

TEST_F(KivResourceLookupTest, ARootThatIsNoAbsoluteDirectoryAddsNothing) {
  const WorkingDirectory directory(root() + "/../home");
  confine({"", ".", root() + "/none", outside(), std::string("/\0", 2)});
  EXPECT_FALSE(KivResourceLookup::fileExistsAtPath(outside()));
  EXPECT_FALSE(KivResourceLookup::fileExistsAtPath("thesis.png"));
  EXPECT_FALSE(KivResourceLookup::fileExistsAtPath("/bin/sh"));
}

TEST_F(KivResourceLookupTest, WithoutAStorageRootNothingIsStored) {
  confine();
  KivStorageService::setRootPath("");
  EXPECT_FALSE(KivResourceLookup::fileExistsAtPath(stored("a.png")));
}

TEST_F(KivResourceLookupTest, TheBoundCanBeLifted) {
  confine();
  KivResourceLookup::setRoots(std::nullopt);
  EXPECT_TRUE(KivResourceLookup::fileExistsAtPath(outside()));
}

// --- A pass --------------------------------------------------------------------------------------

class KivResourceLookupOfPasses : public ManagerFixture {
 protected:
  ~KivResourceLookupOfPasses() override { KivResourceLookup::setRoots(std::nullopt); }
};

TEST_F(KivResourceLookupOfPasses, WhatIsFetchedTellsNothingOfTheMachine) {
  KivResourceLookup::setRoots(Strings());
  beginLoad({banner("1", 1, "/bin/sh"), banner("2", 1, "/bin/none")});
  EXPECT_THAT(client->urls, UnorderedElementsAre("http://main.test/files/bin/sh",
                                                 "http://main.test/files/bin/none"));
}

TEST_F(KivResourceLookupOfPasses, ASavedPathElsewhereIsNotRestored) {
  const std::string elsewhere = root() + "/../elsewhere.png";
  write(elsewhere, "a file");
  write(stored("b.png"), "a file");
  load({banner("1", 1, elsewhere), banner("2", 1, "banners/b.png")});
  restart();
  EXPECT_EQ(registry(), (Strings{"1", "2"}));
  KivResourceLookup::setRoots(Strings());
  restart();
  EXPECT_EQ(registry(), Strings{"2"});
  EXPECT_TRUE(exists(elsewhere));
}

// --- The kinds -----------------------------------------------------------------------------------

struct Kind {
  const char* name;
  std::function<kiv::Dictionary(const std::string&)> itemWithPath;
};

class KivResourceLookupOfKinds : public KivResourceLookupTest,
                                 public testing::WithParamInterface<Kind> {
 protected:
  [[nodiscard]] std::shared_ptr<KivResource> make(const std::string& path) const {
    return KivResourceFactory::createResourceFromDictionary(GetParam().itemWithPath(path));
  }
};

TEST_P(KivResourceLookupOfKinds, TakesAPathElsewhereForALink) {
  EXPECT_TRUE(make(outside())->filesExist());
  EXPECT_THAT(make(outside())->missingFilesLinks(), IsEmpty());
  confine();
  EXPECT_FALSE(make(outside())->filesExist());
  EXPECT_THAT(make(outside())->missingFilesLinks(), AllOf(Not(IsEmpty()), Each(outside())));
}

TEST_P(KivResourceLookupOfKinds, TakesAStoredPath) {
  confine();
  EXPECT_TRUE(make(stored("a.png"))->filesExist());
}

TEST_P(KivResourceLookupOfKinds, TakesNoPathElsewhere) {
  confine();
  const auto resource = make("http://ads.example/thesis.png");
  resource->setPath(outside());
  EXPECT_EQ(resource->useFilePaths(), Strings());
  EXPECT_FALSE(resource->filesExist());
}

INSTANTIATE_TEST_SUITE_P(
    All, KivResourceLookupOfKinds,
    testing::Values(
        Kind{"standard",
             [](const std::string& path) { return with(standardItem(), "image_728x90", path); }},
        Kind{"web", [](const std::string& path) { return with(webItem(), "html", path); }},
        Kind{"video",
             [](const std::string& path) {
               return with(with(videoItem(), "image", path), "video_file_landscape", path);
             }}),
    [](const auto& testCase) { return std::string(testCase.param.name); });

}  // namespace
