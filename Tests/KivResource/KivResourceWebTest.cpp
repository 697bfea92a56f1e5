#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "KivResource/KivResourceWeb.h"
#include "Tests/Support/ResourceItems.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace {

using namespace kiv::test;
using kiv::Dictionary;
using Strings = std::vector<std::string>;

std::shared_ptr<KivResourceWeb> make(const Dictionary& dictionary) {
  return KivResourceWeb::initWithDictionary_engine(dictionary, "eco_fs");
}

std::shared_ptr<KivResourceWeb> makeWithLink(const std::string& link) {
  return make(with(webItem(), "html", link));
}

// --- Construction --------------------------------------------------------------------------------

TEST(KivResourceWebTest, TakesTheCommonFieldsAndTheEngine) {
  const auto resource = KivResourceWeb::initWithDictionary_engine(webItem(), "eco_context");
  ASSERT_TRUE(resource);
  EXPECT_EQ(resource->name(), "Spring");
  EXPECT_EQ(resource->engine(), "eco_context");
  EXPECT_EQ(*resource->resourceDictionary(), webItem());
}

TEST(KivResourceWebTest, TheCheckLooksAtHtmlAlone) {
  const auto resource = make(webItem());
  EXPECT_TRUE(resource->isValidResourceFullscreenDictionary(Dictionary{{"html", ""}}));
  EXPECT_FALSE(resource->isValidResourceFullscreenDictionary(Dictionary{{"html", 1}}));
  EXPECT_FALSE(resource->isValidResourceFullscreenDictionary(without(webItem(), "html")));
}

// --- Stored pages --------------------------------------------------------------------------------

struct PageCase {
  const char* name;
  const char* link;
  const char* stored;
  bool isThePage;
};

void PrintTo(const PageCase& testCase, std::ostream* out) {
  *out << testCase.name;
}

/// Links, and stored files that match or do not match them.
class StoredPages : public testing::TestWithParam<PageCase> {};

TEST_P(StoredPages, AreKnownByTheirNames) {
  const TemporaryDirectory directory;
  const auto resource = makeWithLink(GetParam().link);
  const std::string path = directory.write(GetParam().stored);
  resource->setPath(path);
  EXPECT_EQ(resource->fileIsLoaded(), GetParam().isThePage);
  const std::string expected = GetParam().isThePage ? path : GetParam().link;
  EXPECT_EQ(resource->html().value_or(GetParam().link), expected);
  EXPECT_EQ((*resource->resourceDictionary())["html"], expected);
  EXPECT_EQ(resource->filesExist(), GetParam().isThePage);
}

INSTANTIATE_TEST_SUITE_P(
    All, StoredPages,
    testing::Values(
        PageCase{"ASingleFileUnderItsOwnName", "promo/banner.html", "banner.html", true},
        PageCase{"ASingleFileAsThePageOfAFolderOfItsStem", "promo/banner.html", "banner/index.html",
                 true},
        PageCase{"IndexHtmlAsAnyPathWhoseFolderIsNamedIndex", "promo/index.html",
                 "index/anything.txt", true},
        PageCase{"NotIndexHtmlByItsNameAlone", "promo/index.html", "Resources/index.html", false},
        PageCase{"AnArchiveUnderItsOwnName", "promo/page.zip", "page.zip", true},
        PageCase{"OnlyTheLastExtensionIsNoPartOfTheStem", "promo/a.b.zip", "a.b/index.html", true},
        PageCase{"NotTheStemWithoutBothExtensions", "promo/a.b.zip", "a/index.html", false}),
    [](const auto& testCase) { return std::string(testCase.param.name); });

TEST(KivResourceWebTest, ALoadedPageRefusesThePageOfAnotherFolder) {
  const TemporaryDirectory directory;
  const std::string saved = directory.write("old/page/index.html");
  const auto resource = makeWithLink(saved);
  resource->setPath(directory.write("new/other/index.html"));
  resource->setPath(directory.write("new/page/start.html"));
  EXPECT_TRUE(resource->fileIsLoaded());
  EXPECT_EQ(resource->html(), saved);
  EXPECT_EQ((*resource->resourceDictionary())["html"], saved);
  EXPECT_EQ(resource->useFilePaths(), Strings{saved});
  EXPECT_TRUE(resource->filesExist());
}

// --- Properties ----------------------------------------------------------------------------------

TEST(KivResourceWebTest, EveryPropertyCanBeSetAndIsReachableByItsName) {
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

}  // namespace
