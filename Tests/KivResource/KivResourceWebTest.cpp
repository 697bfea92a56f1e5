#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "KivResource/KivResourceWeb.h"
#include "Tests/Support/LogCapture.h"
#include "Tests/Support/ResourceItems.h"
#include "Tests/Support/TemporaryDirectory.h"
#include "Tests/Support/WorkingDirectory.h"

namespace {

using kiv::Array;
using kiv::Dictionary;
using kiv::Value;
using kiv::test::LogCapture;
using kiv::test::webItem;
using kiv::test::with;
using kiv::test::without;
using kiv::test::WorkingDirectory;
using Strings = std::vector<std::string>;

std::shared_ptr<KivResourceWeb> make(const Dictionary& dictionary) {
  return KivResourceWeb::initWithDictionary_engine(dictionary, "eco_fs");
}

std::shared_ptr<KivResourceWeb> makeWithLink(const std::string& link) {
  return make(with(webItem(), "html", link));
}

void expectNotLoaded(const KivResourceWeb& resource, const std::string& link) {
  EXPECT_FALSE(resource.fileIsLoaded());
  EXPECT_EQ(resource.html(), std::nullopt);
  EXPECT_EQ((*resource.resourceDictionary())["html"], link);
  EXPECT_EQ(resource.missingFilesLinks(), Strings{link});
  EXPECT_EQ(resource.useFilePaths(), Strings());
  EXPECT_FALSE(resource.filesExist());
}

void expectLoaded(const KivResourceWeb& resource, const std::string& path) {
  EXPECT_TRUE(resource.fileIsLoaded());
  EXPECT_EQ(resource.html(), path);
  EXPECT_EQ((*resource.resourceDictionary())["html"], path);
  EXPECT_EQ(resource.missingFilesLinks(), Strings());
  EXPECT_EQ(resource.useFilePaths(), Strings{path});
  EXPECT_TRUE(resource.filesExist());
}

class KivResourceWebTest : public testing::Test {
 protected:
  kiv::test::TemporaryDirectory directory_;
};

// --- Construction --------------------------------------------------------------------------------

TEST_F(KivResourceWebTest, TakesTheCommonFieldsAndTheEngine) {
  const auto resource = KivResourceWeb::initWithDictionary_engine(webItem(), "eco_context");
  ASSERT_TRUE(resource);
  EXPECT_EQ(resource->name(), "Spring");
  EXPECT_EQ(resource->engine(), "eco_context");
  EXPECT_EQ(*resource->resourceDictionary(), webItem());
}

TEST_F(KivResourceWebTest, YieldsNothingWithoutAStringUnderHtml) {
  EXPECT_FALSE(make(without(webItem(), "html")));
  for (const Value& value :
       {Value(), Value(5), Value(true), Value(Array{"x"}), Value(Dictionary())}) {
    EXPECT_FALSE(make(with(webItem(), "html", value)));
  }
}

TEST_F(KivResourceWebTest, YieldsNothingWhereTheCommonKeysAreNotValid) {
  EXPECT_FALSE(make(without(webItem(), "priority")));
}

TEST_F(KivResourceWebTest, TheCheckLooksAtHtmlAlone) {
  const auto resource = make(webItem());
  EXPECT_TRUE(resource->isValidResourceFullscreenDictionary(Dictionary{{"html", ""}}));
  EXPECT_FALSE(resource->isValidResourceFullscreenDictionary(Dictionary{{"html", 1}}));
  EXPECT_FALSE(resource->isValidResourceFullscreenDictionary(without(webItem(), "html")));
}

TEST_F(KivResourceWebTest, AnEmptyStringIsAnEmptyMissingLink) {
  const auto resource = makeWithLink("");
  ASSERT_TRUE(resource);
  expectNotLoaded(*resource, "");
}

TEST_F(KivResourceWebTest, StartsNotLoadedWhereHtmlIsALink) {
  const auto resource = make(webItem());
  expectNotLoaded(*resource, "promo/page.zip");
}

TEST_F(KivResourceWebTest, StartsLoadedWhereHtmlIsThePathOfAFile) {
  const std::string path = directory_.write("Resources/page/index.html");
  const auto resource = makeWithLink(path);
  expectLoaded(*resource, path);
}

TEST_F(KivResourceWebTest, AFileRelativeToTheWorkingDirectoryCountsAsStored) {
  directory_.write("promo/page.zip");
  const WorkingDirectory inside(directory_.path());
  const auto resource = make(webItem());
  expectLoaded(*resource, "promo/page.zip");
}

TEST_F(KivResourceWebTest, ADirectoryDoesNotCountAsStored) {
  const auto resource = makeWithLink(directory_.path());
  expectNotLoaded(*resource, directory_.path());
}

TEST_F(KivResourceWebTest, HostileLinksStartNotLoadedAndMatchNoStoredPage) {
  const Strings stored = {
      directory_.write("Resources/index.html"), directory_.write("Resources/page/index.html"),
      directory_.write("Resources/page.html"), directory_.write("Resources/banner.html")};
  for (const std::string& link :
       {std::string(), std::string("."), std::string(".."), std::string("/"), std::string("a/"),
        std::string(".zip"), std::string("..zip"), std::string("...zip"), std::string("a/.zip"),
        std::string("page.html/"), stored[0] + "/", std::string("banner.html\0", 12),
        std::string("page\0.zip", 9), std::string(5000, 'a') + ".zip"}) {
    const auto resource = makeWithLink(link);
    ASSERT_TRUE(resource);
    for (const std::string& path : stored)
      resource->setPath(path);
    expectNotLoaded(*resource, link);
  }
}

TEST_F(KivResourceWebTest, NothingIsLogged) {
  const LogCapture log;
  EXPECT_FALSE(make(without(webItem(), "html")));
  make(webItem())->setPath(directory_.write("Resources/other/index.html"));
  make(webItem())->setPath(directory_.path("Resources/page/index.html"));
  EXPECT_TRUE(log.lines().empty());
}

// --- Stored pages --------------------------------------------------------------------------------

TEST_F(KivResourceWebTest, ThePageOfTheArchivesFolderLoadsTheResource) {
  const auto resource = make(webItem());
  const std::string path = directory_.write("KivResource/Resources/page/index.html");
  resource->setPath(path);
  expectLoaded(*resource, path);
}

TEST_F(KivResourceWebTest, ThePageOfTheArchivesFolderWithoutAFileChangesNothing) {
  const auto resource = make(webItem());
  resource->setPath(directory_.path("KivResource/Resources/page/index.html"));
  std::filesystem::create_directories(directory_.path("Resources/page/index.html"));
  resource->setPath(directory_.path("Resources/page/index.html"));
  expectNotLoaded(*resource, "promo/page.zip");
}

TEST_F(KivResourceWebTest, ThePageOfAnotherFolderChangesNothing) {
  const auto resource = make(webItem());
  for (const char* name : {"Resources/other/index.html", "Resources/Page/index.html",
                           "Resources/index.html", "Resources/page.html", "page/sub/index.html"}) {
    resource->setPath(directory_.write(name));
    expectNotLoaded(*resource, "promo/page.zip");
  }
}

TEST_F(KivResourceWebTest, ASingleFileIsAcceptedUnderItsOwnName) {
  const auto resource = makeWithLink("promo/banner.html");
  const std::string path = directory_.write("Resources/banner.html");
  resource->setPath(path);
  expectLoaded(*resource, path);
}

TEST_F(KivResourceWebTest, ASingleFilesLinkAcceptsThePageOfAFolderOfItsStem) {
  const auto resource = makeWithLink("promo/banner.html");
  const std::string path = directory_.write("Resources/banner/index.html");
  resource->setPath(path);
  expectLoaded(*resource, path);
}

TEST_F(KivResourceWebTest, ALoadedPageAcceptsTheSamePageElsewhere) {
  const std::string saved = directory_.write("old/page/index.html");
  const auto resource = makeWithLink(saved);
  const std::string path = directory_.write("new/page/index.html");
  resource->setPath(path);
  expectLoaded(*resource, path);
}

TEST_F(KivResourceWebTest, ALoadedPageRefusesThePageOfAnotherFolder) {
  const std::string saved = directory_.write("old/page/index.html");
  const auto resource = makeWithLink(saved);
  resource->setPath(directory_.write("new/other/index.html"));
  resource->setPath(directory_.write("new/page/start.html"));
  expectLoaded(*resource, saved);
}

TEST_F(KivResourceWebTest, ALinkToIndexHtmlMatchesAnyPathWhoseFolderIsNamedIndex) {
  const auto resource = makeWithLink("promo/index.html");
  const std::string path = directory_.write("Resources/index/anything.txt");
  resource->setPath(path);
  expectLoaded(*resource, path);
}

TEST_F(KivResourceWebTest, ALinkToIndexHtmlDoesNotMatchAPageByNameAlone) {
  const auto resource = makeWithLink("promo/index.html");
  resource->setPath(directory_.write("Resources/index.html"));
  expectNotLoaded(*resource, "promo/index.html");
}

TEST_F(KivResourceWebTest, AnArchiveMayKeepItsOwnName) {
  const auto resource = make(webItem());
  const std::string path = directory_.write("Resources/page.zip");
  resource->setPath(path);
  expectLoaded(*resource, path);
}

TEST_F(KivResourceWebTest, OnlyTheLastExtensionIsNoPartOfTheStem) {
  const auto resource = makeWithLink("promo/a.b.zip");
  resource->setPath(directory_.write("Resources/a/index.html"));
  expectNotLoaded(*resource, "promo/a.b.zip");
  const std::string path = directory_.write("Resources/a.b/index.html");
  resource->setPath(path);
  expectLoaded(*resource, path);
}

TEST_F(KivResourceWebTest, ASecondSetPathWithTheSamePathWritesNothing) {
  const auto resource = make(webItem());
  const std::string path = directory_.write("Resources/page/index.html");
  resource->setPath(path);
  const Dictionary shared = *resource->resourceDictionary();
  resource->setPath(path);
  expectLoaded(*resource, path);
  // A written dictionary would have its own contents by now.
  EXPECT_EQ(resource->resourceDictionary()->begin(), shared.begin());
}

TEST_F(KivResourceWebTest, ALoadedPageMayBeReadWhileItGetsTheSamePathAgain) {
  const auto resource = make(webItem());
  const std::string path = directory_.write("Resources/page/index.html");
  resource->setPath(path);
  std::thread reader([&] {
    for (int round = 0; round < 100; ++round)
      expectLoaded(*resource, path);
  });
  for (int round = 0; round < 100; ++round)
    resource->setPath(path);
  reader.join();
}

TEST_F(KivResourceWebTest, WhenThePageIsDeletedOnlyFilesExistTurns) {
  const std::string path = directory_.write("Resources/page/index.html");
  const auto resource = makeWithLink(path);
  std::filesystem::remove(path);
  EXPECT_FALSE(resource->filesExist());
  EXPECT_TRUE(resource->fileIsLoaded());
  EXPECT_EQ(resource->missingFilesLinks(), Strings());
  EXPECT_EQ(resource->useFilePaths(), Strings{path});
}

TEST_F(KivResourceWebTest, ARestoredResourceWhosePageExistsIsLoadedFromTheStart) {
  const auto resource = make(webItem());
  const std::string path = directory_.write("Resources/page/index.html");
  resource->setPath(path);
  const auto restored = make(*resource->resourceDictionary());
  ASSERT_TRUE(restored);
  expectLoaded(*restored, path);
}

TEST_F(KivResourceWebTest, ACopyOfALoadedResourceIsLoaded) {
  const std::string path = directory_.write("Resources/page/index.html");
  const auto copy = std::dynamic_pointer_cast<KivResourceWeb>(makeWithLink(path)->copyWithZone());
  ASSERT_TRUE(copy);
  expectLoaded(*copy, path);
}

TEST_F(KivResourceWebTest, ACopyAfterThePageWasDeletedHasThePathAsItsMissingLink) {
  const std::string path = directory_.write("Resources/page/index.html");
  const auto resource = makeWithLink(path);
  std::filesystem::remove(path);
  const auto copy = std::dynamic_pointer_cast<KivResourceWeb>(resource->copyWithZone());
  ASSERT_TRUE(copy);
  expectNotLoaded(*copy, path);
}

// --- Properties ----------------------------------------------------------------------------------

TEST_F(KivResourceWebTest, EveryPropertyCanBeSetAndIsReachableByItsName) {
  const auto resource = make(webItem());
  const auto value = [&](const char* name) { return resource->valueForProperty(name).value(); };
  EXPECT_TRUE(value("html").isNull());
  EXPECT_TRUE(value("fileIsLoaded").isBoolean());
  EXPECT_EQ(value("name"), "Spring");
  resource->setHtml("/data/page.html");
  resource->setFileIsLoaded(true);
  EXPECT_EQ(resource->html(), "/data/page.html");
  EXPECT_TRUE(resource->fileIsLoaded());
  EXPECT_EQ(value("html"), "/data/page.html");
  EXPECT_TRUE(value("fileIsLoaded").boolean());
  resource->setHtml(std::nullopt);
  EXPECT_EQ(resource->html(), std::nullopt);
  EXPECT_EQ(resource->useFilePaths(), Strings());
  EXPECT_FALSE(resource->valueForProperty("image").has_value());
}

TEST_F(KivResourceWebTest, TheListsFollowTheFlagAndFilesExistTheDisk) {
  const std::string path = directory_.write("page.html");
  const auto resource = makeWithLink(path);
  resource->setFileIsLoaded(false);
  EXPECT_EQ(resource->missingFilesLinks(), Strings{path});
  EXPECT_EQ(resource->useFilePaths(), Strings());
  EXPECT_TRUE(resource->filesExist());
}

TEST_F(KivResourceWebTest, WithoutADictionaryThereIsNoLinkAndNothingMatches) {
  const auto resource = make(webItem());
  resource->setResourceDictionary(nullptr);
  EXPECT_EQ(resource->missingFilesLinks(), Strings());
  resource->setPath(directory_.write("Resources/page/index.html"));
  EXPECT_FALSE(resource->fileIsLoaded());
  EXPECT_FALSE(resource->copyWithZone());
}

}  // namespace
