#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "KivResource/KivResourceStandard.h"
#include "Tests/Support/ResourceItems.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace {

using namespace kiv::test;
using kiv::Dictionary;
using Strings = std::vector<std::string>;

std::shared_ptr<KivResourceStandard> make(const Dictionary& dictionary) {
  return KivResourceStandard::initWithDictionary_engine(dictionary, "eco_standard");
}

// --- Construction --------------------------------------------------------------------------------

TEST(KivResourceStandardTest, TakesTheCommonFieldsAndItsOwn) {
  const auto resource = make(standardItem());
  ASSERT_TRUE(resource);
  EXPECT_EQ(resource->name(), "Spring");
  EXPECT_EQ(resource->engine(), "eco_standard");
  EXPECT_EQ(resource->marketLink(), "https://market.test/app/1");
  EXPECT_EQ(resource->requiredImageField(), "image_728x90");
}

TEST(KivResourceStandardTest, IsRejectedWithTheSmallImageAlone) {
  EXPECT_FALSE(make(without(standardItem(), "image_728x90")));
}

TEST(KivResourceStandardTest, NeverKeepsTheSmallImage) {
  const Dictionary item = standardItem();
  EXPECT_FALSE(make(item)->resourceDictionary()->contains("image_320x50"));
  EXPECT_EQ(item["image_320x50"], "banners/small.png");
  const auto withoutSmall = make(without(item, "image_320x50"));
  EXPECT_EQ(*withoutSmall->resourceDictionary(), without(item, "image_320x50"));
}

// --- Validation ----------------------------------------------------------------------------------

TEST(KivResourceStandardTest, EmptyStringsPass) {
  const auto resource = make(with(with(standardItem(), "market_url", ""), "image_728x90", ""));
  ASSERT_TRUE(resource);
  EXPECT_EQ(resource->marketLink(), "");
  EXPECT_EQ(resource->missingFilesLinks(), Strings{""});
}

TEST(KivResourceStandardTest, TheSmallImageIsNotTested) {
  EXPECT_TRUE(make(with(standardItem(), "image_320x50", 17)));
}

TEST(KivResourceStandardTest, TheCheckLooksAtTheKeysOfThisKindAlone) {
  const auto resource = make(standardItem());
  EXPECT_TRUE(resource->isValidResourceStandardDictionary(
      Dictionary{{"market_url", ""}, {"image_728x90", ""}}));
  EXPECT_FALSE(resource->isValidResourceStandardDictionary(Dictionary{{"market_url", ""}}));
  EXPECT_FALSE(resource->isValidResourceStandardDictionary(Dictionary{{"image_728x90", ""}}));
}

TEST(KivResourceStandardTest, TheCheckReadsTheFieldThatWasChosen) {
  const auto resource = make(standardItem());
  resource->setRequiredImageField("image_320x50");
  EXPECT_TRUE(resource->isValidResourceStandardDictionary(
      Dictionary{{"market_url", ""}, {"image_320x50", ""}}));
  resource->setRequiredFieldsForResource();
  EXPECT_EQ(resource->requiredImageField(), "image_728x90");
}

TEST(KivResourceStandardTest, ACopyHasTheMarketLink) {
  const auto resource = make(standardItem());
  const auto copy = std::dynamic_pointer_cast<KivResourceStandard>(resource->copyWithZone());
  ASSERT_TRUE(copy);
  EXPECT_EQ(copy->marketLink(), resource->marketLink());
}

// --- Subclasses that select another file ---------------------------------------------------------

/// A subclass that selects the small image.
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

TEST(KivResourceStandardTest, WithAnotherChoiceTheWideImageGoes) {
  const auto banner = SmallBanner::initWithDictionary_engine(standardItem(), "small");
  ASSERT_TRUE(banner);
  EXPECT_FALSE(banner->resourceDictionary()->contains("image_728x90"));
  EXPECT_EQ(banner->missingFilesLinks(), Strings{"banners/small.png"});
  const TemporaryDirectory directory;
  const std::string path = directory.write("small.png");
  banner->setPath(path);
  EXPECT_EQ(banner->image(), path);
  EXPECT_EQ((*banner->resourceDictionary())["image_320x50"], path);
  EXPECT_TRUE(std::dynamic_pointer_cast<SmallBanner>(banner->copyWithZone())->filesExist());
}

TEST(KivResourceStandardTest, WithAnotherChoiceTheWideImageIsNotRequired) {
  const Dictionary smallAlone = without(standardItem(), "image_728x90");
  EXPECT_TRUE(SmallBanner::initWithDictionary_engine(smallAlone, "small"));
  const Dictionary wideAlone = without(standardItem(), "image_320x50");
  EXPECT_FALSE(SmallBanner::initWithDictionary_engine(wideAlone, "small"));
}

// --- Properties ----------------------------------------------------------------------------------

TEST(KivResourceStandardTest, EveryPropertyCanBeSetAndIsReachableByItsName) {
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

}  // namespace
