#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "KivResource/KivResourceStandard.h"
#include "Tests/Support/LogCapture.h"
#include "Tests/Support/ResourceItems.h"
#include "Tests/Support/TemporaryDirectory.h"
#include "Tests/Support/WorkingDirectory.h"

namespace {

using kiv::Array;
using kiv::Dictionary;
using kiv::Value;
using kiv::test::LogCapture;
using kiv::test::standardItem;
using kiv::test::with;
using kiv::test::without;
using kiv::test::WorkingDirectory;
using Strings = std::vector<std::string>;

std::shared_ptr<KivResourceStandard> make(const Dictionary& dictionary) {
  return KivResourceStandard::initWithDictionary_engine(dictionary, "eco_standard");
}

/// What tells the states apart: the flag, the image, and what the dictionary has in its place.
void expectLinked(const KivResourceStandard& resource, const std::string& link) {
  EXPECT_FALSE(resource.fileIsLoaded());
  EXPECT_EQ(resource.image(), std::nullopt);
  EXPECT_EQ((*resource.resourceDictionary())["image_728x90"], link);
  EXPECT_EQ(resource.missingFilesLinks(), Strings{link});
  EXPECT_EQ(resource.useFilePaths(), Strings());
  EXPECT_FALSE(resource.filesExist());
}

void expectLoaded(const KivResourceStandard& resource, const std::string& path) {
  EXPECT_TRUE(resource.fileIsLoaded());
  EXPECT_EQ(resource.image(), path);
  EXPECT_EQ((*resource.resourceDictionary())["image_728x90"], path);
  EXPECT_EQ(resource.missingFilesLinks(), Strings());
  EXPECT_EQ(resource.useFilePaths(), Strings{path});
  EXPECT_TRUE(resource.filesExist());
}

class KivResourceStandardTest : public testing::Test {
 protected:
  kiv::test::TemporaryDirectory directory_;
};

// --- Construction --------------------------------------------------------------------------------

TEST_F(KivResourceStandardTest, TakesTheCommonFieldsAndItsOwn) {
  const auto resource = make(standardItem());
  ASSERT_TRUE(resource);
  EXPECT_EQ(resource->name(), "Spring");
  EXPECT_EQ(resource->engine(), "eco_standard");
  EXPECT_EQ(resource->marketLink(), "https://market.test/app/1");
  EXPECT_EQ(resource->requiredImageField(), "image_728x90");
}

TEST_F(KivResourceStandardTest, IsRejectedWithTheSmallImageAlone) {
  EXPECT_FALSE(make(without(standardItem(), "image_728x90")));
}

TEST_F(KivResourceStandardTest, NeverKeepsTheSmallImage) {
  const Dictionary item = standardItem();
  EXPECT_FALSE(make(item)->resourceDictionary()->contains("image_320x50"));
  EXPECT_EQ(item["image_320x50"], "banners/small.png");
  const auto withoutSmall = make(without(item, "image_320x50"));
  EXPECT_EQ(*withoutSmall->resourceDictionary(), without(item, "image_320x50"));
}

TEST_F(KivResourceStandardTest, StartsLinkedWhereTheImageIsALink) {
  const auto resource = make(standardItem());
  expectLinked(*resource, "banners/wide.png");
}

TEST_F(KivResourceStandardTest, StartsLoadedWhereTheImageIsThePathOfAFile) {
  const std::string path = directory_.write("wide.png");
  const auto resource = make(with(standardItem(), "image_728x90", path));
  expectLoaded(*resource, path);
}

TEST_F(KivResourceStandardTest, AFileRelativeToTheWorkingDirectoryCountsAsStored) {
  directory_.write("banners/wide.png");
  const WorkingDirectory inside(directory_.path());
  const auto resource = make(standardItem());
  expectLoaded(*resource, "banners/wide.png");
}

TEST_F(KivResourceStandardTest, ADirectoryDoesNotCountAsStored) {
  const auto resource = make(with(standardItem(), "image_728x90", directory_.path()));
  expectLinked(*resource, directory_.path());
}

TEST_F(KivResourceStandardTest, HostileLinksStartLinkedAndStayThere) {
  const std::string stored = directory_.write("wide.png");
  const WorkingDirectory inside(directory_.path());
  for (const std::string& link :
       {std::string(), std::string("."), std::string(".."), std::string("/"),
        std::string("wide.png/"), stored + "/", std::string("wide.png\0", 9),
        std::string("wide.png\0.png", 13), std::string(5000, 'a'), std::string("\xff\xfe")}) {
    const auto resource = make(with(standardItem(), "image_728x90", link));
    ASSERT_TRUE(resource);
    expectLinked(*resource, link);
    for (const std::string& path :
         {std::string(), std::string("."), std::string("/"), stored, link}) {
      resource->setPath(path);
      expectLinked(*resource, link);
    }
  }
}

// --- Validation ----------------------------------------------------------------------------------

TEST_F(KivResourceStandardTest, YieldsNothingWhereTheCommonKeysAreNotValid) {
  EXPECT_FALSE(make(without(standardItem(), "banner_id")));
}

TEST_F(KivResourceStandardTest, YieldsNothingWhereItsOwnKeysAreNotStrings) {
  for (const char* key : {"market_url", "image_728x90"}) {
    EXPECT_FALSE(make(without(standardItem(), key))) << key;
    for (const Value& value :
         {Value(), Value(1), Value(true), Value(Array{"x"}), Value(Dictionary())}) {
      EXPECT_FALSE(make(with(standardItem(), key, value))) << key;
    }
  }
}

TEST_F(KivResourceStandardTest, EmptyStringsPass) {
  const auto resource = make(with(with(standardItem(), "market_url", ""), "image_728x90", ""));
  ASSERT_TRUE(resource);
  EXPECT_EQ(resource->marketLink(), "");
  expectLinked(*resource, "");
}

TEST_F(KivResourceStandardTest, TheSmallImageIsNotTested) {
  EXPECT_TRUE(make(with(standardItem(), "image_320x50", 17)));
}

TEST_F(KivResourceStandardTest, TheCheckLooksAtTheKeysOfThisKindAlone) {
  const auto resource = make(standardItem());
  EXPECT_TRUE(resource->isValidResourceStandardDictionary(
      Dictionary{{"market_url", ""}, {"image_728x90", ""}}));
  EXPECT_FALSE(resource->isValidResourceStandardDictionary(Dictionary{{"market_url", ""}}));
  EXPECT_FALSE(resource->isValidResourceStandardDictionary(Dictionary{{"image_728x90", ""}}));
}

TEST_F(KivResourceStandardTest, TheCheckReadsTheFieldThatWasChosen) {
  const auto resource = make(standardItem());
  resource->setRequiredImageField("image_320x50");
  EXPECT_TRUE(resource->isValidResourceStandardDictionary(
      Dictionary{{"market_url", ""}, {"image_320x50", ""}}));
  resource->setRequiredFieldsForResource();
  EXPECT_EQ(resource->requiredImageField(), "image_728x90");
}

TEST_F(KivResourceStandardTest, NothingIsLogged) {
  const LogCapture log;
  EXPECT_FALSE(make(without(standardItem(), "market_url")));
  make(standardItem())->setPath(directory_.path("missing/wide.png"));
  EXPECT_TRUE(log.lines().empty());
}

// --- Stored files --------------------------------------------------------------------------------

TEST_F(KivResourceStandardTest, SetPathWithTheImageLoadsTheResource) {
  const auto resource = make(standardItem());
  const std::string path = directory_.write("wide.png");
  resource->setPath(path);
  expectLoaded(*resource, path);
}

TEST_F(KivResourceStandardTest, SetPathOfAMatchingNameWithoutAFileChangesNothing) {
  const auto resource = make(standardItem());
  resource->setPath(directory_.path("wide.png"));
  expectLinked(*resource, "banners/wide.png");
}

TEST_F(KivResourceStandardTest, SetPathOfAMatchingDirectoryChangesNothing) {
  const auto resource = make(standardItem());
  std::filesystem::create_directory(directory_.path("wide.png"));
  resource->setPath(directory_.path("wide.png"));
  expectLinked(*resource, "banners/wide.png");
}

TEST_F(KivResourceStandardTest, SetPathWithAnExistingFileOfAnotherNameChangesNothing) {
  const auto resource = make(standardItem());
  for (const char* name : {"small.png", "WIDE.PNG", "wide.png.part", "awide.png", "wide"}) {
    resource->setPath(directory_.write(name));
    expectLinked(*resource, "banners/wide.png");
  }
}

TEST_F(KivResourceStandardTest, ASecondSetPathWithTheSamePathWritesNothing) {
  const auto resource = make(standardItem());
  const std::string path = directory_.write("wide.png");
  resource->setPath(path);
  const Dictionary shared = *resource->resourceDictionary();
  resource->setPath(path);
  expectLoaded(*resource, path);
  // A written dictionary would have its own contents by now.
  EXPECT_EQ(resource->resourceDictionary()->begin(), shared.begin());
}

TEST_F(KivResourceStandardTest, ALoadedResourceMayBeReadWhileItGetsTheSamePathAgain) {
  const auto resource = make(standardItem());
  const std::string path = directory_.write("wide.png");
  resource->setPath(path);
  std::thread reader([&] {
    for (int round = 0; round < 100; ++round)
      expectLoaded(*resource, path);
  });
  for (int round = 0; round < 100; ++round)
    resource->setPath(path);
  reader.join();
}

TEST_F(KivResourceStandardTest, ALoadedResourceMovesToAnotherFileOfTheSameName) {
  const auto resource = make(standardItem());
  resource->setPath(directory_.write("first/wide.png"));
  const std::string path = directory_.write("second/wide.png");
  resource->setPath(path);
  expectLoaded(*resource, path);
}

TEST_F(KivResourceStandardTest, WhenTheImageIsDeletedOnlyFilesExistTurns) {
  const std::string path = directory_.write("wide.png");
  const auto resource = make(with(standardItem(), "image_728x90", path));
  std::filesystem::remove(path);
  EXPECT_FALSE(resource->filesExist());
  EXPECT_EQ(resource->missingFilesLinks(), Strings());
  EXPECT_EQ(resource->useFilePaths(), Strings{path});
  EXPECT_TRUE(resource->fileIsLoaded());
}

TEST_F(KivResourceStandardTest, ADeletedImageThatComesBackExistsAgain) {
  const std::string path = directory_.write("wide.png");
  const auto resource = make(with(standardItem(), "image_728x90", path));
  std::filesystem::remove(path);
  directory_.write("wide.png");
  expectLoaded(*resource, path);
}

TEST_F(KivResourceStandardTest, ACopyOfALoadedResourceIsLoaded) {
  const auto resource = make(standardItem());
  const std::string path = directory_.write("wide.png");
  resource->setPath(path);
  const auto copy = std::dynamic_pointer_cast<KivResourceStandard>(resource->copyWithZone());
  ASSERT_TRUE(copy);
  expectLoaded(*copy, path);
  EXPECT_EQ(copy->marketLink(), resource->marketLink());
}

TEST_F(KivResourceStandardTest, ACopyAfterTheImageWasDeletedHasThePathAsItsLink) {
  const auto resource = make(standardItem());
  const std::string path = directory_.write("wide.png");
  resource->setPath(path);
  std::filesystem::remove(path);
  const auto copy = std::dynamic_pointer_cast<KivResourceStandard>(resource->copyWithZone());
  ASSERT_TRUE(copy);
  expectLinked(*copy, path);
}

TEST_F(KivResourceStandardTest, WorkedExample) {
  const auto resource = make(standardItem());
  expectLinked(*resource, "banners/wide.png");
  EXPECT_FALSE(resource->resourceDictionary()->contains("image_320x50"));

  resource->setPath(directory_.write("small.png"));
  expectLinked(*resource, "banners/wide.png");
  const std::string path = directory_.write("wide.png");
  resource->setPath(path);
  expectLoaded(*resource, path);

  const auto restored = make(*resource->resourceDictionary());
  ASSERT_TRUE(restored);
  expectLoaded(*restored, path);
}

// --- Another choice ------------------------------------------------------------------------------

/// A banner that chooses the small image.
class SmallBanner : public KivResourceStandard {
 public:
  static std::shared_ptr<SmallBanner> initWithDictionary_engine(const Dictionary& dictionary,
                                                                const std::string& engine) {
    return initialised(std::shared_ptr<SmallBanner>(new SmallBanner), dictionary, engine);
  }
  void setRequiredFieldsForResource() override { setRequiredImageField("image_320x50"); }

 protected:
  [[nodiscard]] std::shared_ptr<KivResource> emptyInstance() const override {
    return std::shared_ptr<KivResource>(new SmallBanner);
  }
};

TEST_F(KivResourceStandardTest, WithAnotherChoiceTheWideImageGoes) {
  const auto banner = SmallBanner::initWithDictionary_engine(standardItem(), "small");
  ASSERT_TRUE(banner);
  EXPECT_FALSE(banner->resourceDictionary()->contains("image_728x90"));
  EXPECT_EQ(banner->missingFilesLinks(), Strings{"banners/small.png"});
  const std::string path = directory_.write("small.png");
  banner->setPath(path);
  EXPECT_EQ(banner->image(), path);
  EXPECT_EQ((*banner->resourceDictionary())["image_320x50"], path);
  EXPECT_TRUE(std::dynamic_pointer_cast<SmallBanner>(banner->copyWithZone())->filesExist());
}

TEST_F(KivResourceStandardTest, WithAnotherChoiceTheWideImageIsNotRequired) {
  const Dictionary smallAlone = without(standardItem(), "image_728x90");
  EXPECT_TRUE(SmallBanner::initWithDictionary_engine(smallAlone, "small"));
  const Dictionary wideAlone = without(standardItem(), "image_320x50");
  EXPECT_FALSE(SmallBanner::initWithDictionary_engine(wideAlone, "small"));
}

// --- Properties ----------------------------------------------------------------------------------

TEST_F(KivResourceStandardTest, EveryPropertyCanBeSetAndIsReachableByItsName) {
  const auto resource = make(standardItem());
  const auto value = [&](const char* name) { return resource->valueForProperty(name).value(); };
  EXPECT_EQ(value("marketLink"), "https://market.test/app/1");
  EXPECT_TRUE(value("image").isNull());
  EXPECT_TRUE(value("fileIsLoaded").isBoolean());
  EXPECT_FALSE(value("fileIsLoaded").boolean());
  EXPECT_EQ(value("requiredImageField"), "image_728x90");
  EXPECT_EQ(value("type"), "banner");

  resource->setMarketLink("m");
  resource->setImage("i");
  resource->setFileIsLoaded(true);
  resource->setRequiredImageField("f");
  EXPECT_EQ(resource->marketLink(), "m");
  EXPECT_EQ(resource->image(), "i");
  EXPECT_TRUE(resource->fileIsLoaded());
  EXPECT_EQ(resource->requiredImageField(), "f");
  EXPECT_EQ(value("image"), "i");
  EXPECT_TRUE(value("fileIsLoaded").boolean());
  resource->setImage(std::nullopt);
  EXPECT_EQ(resource->image(), std::nullopt);
  EXPECT_FALSE(resource->valueForProperty("html").has_value());
}

TEST_F(KivResourceStandardTest, TheListsFollowTheFlagAndFilesExistTheDisk) {
  const std::string path = directory_.write("wide.png");
  const auto resource = make(with(standardItem(), "image_728x90", path));
  resource->setFileIsLoaded(false);
  EXPECT_EQ(resource->missingFilesLinks(), Strings{path});
  EXPECT_EQ(resource->useFilePaths(), Strings());
  EXPECT_TRUE(resource->filesExist());
}

TEST_F(KivResourceStandardTest, AFlagThatWasSetWithoutAnImageListsNoPath) {
  const auto resource = make(standardItem());
  resource->setFileIsLoaded(true);
  EXPECT_EQ(resource->useFilePaths(), Strings());
  EXPECT_EQ(resource->missingFilesLinks(), Strings());
  EXPECT_FALSE(resource->filesExist());
}

TEST_F(KivResourceStandardTest, WithoutADictionaryThereIsNoLinkAndNothingMatches) {
  const auto resource = make(standardItem());
  resource->setResourceDictionary(nullptr);
  EXPECT_EQ(resource->missingFilesLinks(), Strings());
  resource->setPath(directory_.write("wide.png"));
  EXPECT_FALSE(resource->fileIsLoaded());
  EXPECT_FALSE(resource->resourceDictionary());
  EXPECT_FALSE(resource->copyWithZone());
}

TEST_F(KivResourceStandardTest, ALinkThatTheHostReplacedByANumberIsNone) {
  const auto resource = make(standardItem());
  resource->resourceDictionary()->set("image_728x90", 5);
  EXPECT_EQ(resource->missingFilesLinks(), Strings());
  resource->setPath(directory_.write("wide.png"));
  EXPECT_FALSE(resource->fileIsLoaded());
}

}  // namespace
