#include <memory>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <vector>

#include <gtest/gtest.h>

#include "KivPlatform/Foundation/values/JSON.h"
#include "KivResource/KivResourceFactory.h"
#include "KivResource/KivResourceStandard.h"
#include "KivResource/KivResourceVideo.h"
#include "KivResource/KivResourceWeb.h"
#include "Tests/Support/LogCapture.h"
#include "Tests/Support/ResourceItems.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace {

using kiv::Array;
using kiv::Dictionary;
using kiv::Value;
using kiv::test::LogCapture;
using kiv::test::plainItem;
using kiv::test::standardItem;
using kiv::test::videoItem;
using kiv::test::webItem;
using kiv::test::with;
using kiv::test::without;
using Lines = std::vector<std::string>;

std::shared_ptr<KivResource> create(const Dictionary& dictionary) {
  return KivResourceFactory::createResourceFromDictionary(dictionary);
}

std::vector<std::shared_ptr<KivResource>> resources(const Value& config) {
  return KivResourceFactory::resourcesArrayForResourcesConfig(config);
}

/// The log line for a rejected dictionary.
std::string rejection(const Dictionary& dictionary) {
  return "Create resource error. Resource dictionary: " + kiv::JSON::toCompactString(dictionary);
}

template <class Kind>
bool isExactly(const std::shared_ptr<KivResource>& resource) {
  if (!resource) return false;
  const KivResource& object = *resource;
  return typeid(object) == typeid(Kind);
}

/// A dictionary that every kind accepts.
Dictionary itemForEveryKind(const Value& engine) {
  Dictionary item = videoItem();
  for (const auto& entry : standardItem())
    item.set(entry.key(), entry.value);
  item.set("html", "promo/page.zip");
  item.set("engine", engine);
  return item;
}

TEST(KivResourceFactoryTest, IsNeverInstantiated) {
  EXPECT_FALSE(std::is_default_constructible_v<KivResourceFactory>);
}

// --- One resource --------------------------------------------------------------------------------

TEST(KivResourceFactoryTest, TheEngineChoosesTheClass) {
  const LogCapture log;
  EXPECT_TRUE(isExactly<KivResourceStandard>(create(itemForEveryKind("eco_standard"))));
  EXPECT_TRUE(isExactly<KivResourceVideo>(create(itemForEveryKind("eco_video"))));
  EXPECT_TRUE(isExactly<KivResourceWeb>(create(itemForEveryKind("eco_fs"))));
  EXPECT_TRUE(isExactly<KivResourceWeb>(create(itemForEveryKind("eco_context"))));
  EXPECT_TRUE(log.lines().empty());
}

TEST(KivResourceFactoryTest, EveryResourceHasTheEngineOfItsDictionary) {
  for (const char* engine :
       {"eco_standard", "eco_video", "eco_fs", "eco_context", "eco_other", ""}) {
    const auto resource = create(itemForEveryKind(engine));
    ASSERT_TRUE(resource) << engine;
    EXPECT_EQ(resource->engine(), engine);
  }
}

TEST(KivResourceFactoryTest, AnUnknownEngineMakesAPlainResourceThatIsComplete) {
  const LogCapture log;
  const auto resource = create(plainItem());
  EXPECT_TRUE(isExactly<KivResource>(resource));
  EXPECT_TRUE(resource->filesExist());
  EXPECT_TRUE(resource->missingFilesLinks().empty());
  EXPECT_TRUE(log.lines().empty());
}

TEST(KivResourceFactoryTest, AnEngineThatDiffersOnlyInLetterCaseMakesAPlainResource) {
  for (const char* engine : {"ECO_VIDEO", "eco_Video", "Eco_Standard", "ECO_FS", "eco_CONTEXT"}) {
    EXPECT_TRUE(isExactly<KivResource>(create(itemForEveryKind(engine)))) << engine;
  }
}

TEST(KivResourceFactoryTest, AnEngineThatMerelyLooksLikeAKindsMakesAPlainResource) {
  for (const std::string& engine :
       {std::string(), std::string(" eco_video"), std::string("eco_video "),
        std::string("eco_vide"), std::string("eco_video\0", 10), std::string("eco_fs2")}) {
    EXPECT_TRUE(isExactly<KivResource>(create(itemForEveryKind(engine)))) << engine;
  }
}

TEST(KivResourceFactoryTest, AnEngineThatIsNoStringYieldsNothingAndOneLine) {
  for (const Value& engine : {Value(5), Value(), Value(true), Value(Array{"eco_fs"})}) {
    const LogCapture log;
    const Dictionary item = with(webItem(), "engine", engine);
    EXPECT_FALSE(create(item));
    EXPECT_EQ(log.lines(), Lines{rejection(item)});
  }
}

TEST(KivResourceFactoryTest, NoEngineYieldsNothingAndOneLine) {
  const LogCapture log;
  const Dictionary item = without(webItem(), "engine");
  EXPECT_FALSE(create(item));
  EXPECT_EQ(log.lines(), Lines{rejection(item)});
}

TEST(KivResourceFactoryTest, AKnownEngineWithoutBannerIdYieldsNothingAndOneLine) {
  for (const Dictionary& complete : {plainItem(), standardItem(), videoItem(), webItem()}) {
    const LogCapture log;
    const Dictionary item = without(complete, "banner_id");
    EXPECT_FALSE(create(item));
    EXPECT_EQ(log.lines(), Lines{rejection(item)});
  }
}

TEST(KivResourceFactoryTest, AFailedCheckOfAKindYieldsNothingAndOneLine) {
  for (const Dictionary& item : {without(standardItem(), "market_url"),
                                 without(videoItem(), "title"), without(webItem(), "html")}) {
    const LogCapture log;
    EXPECT_FALSE(create(item));
    EXPECT_EQ(log.lines(), Lines{rejection(item)});
  }
}

TEST(KivResourceFactoryTest, TheLineHoldsTheWholeDictionary) {
  const LogCapture log;
  EXPECT_FALSE(create({{"engine", "eco_fs"}, {"extra", Array{1, nullptr, "two"}}}));
  ASSERT_EQ(log.lines().size(), 1U);
  const std::string line = log.lines().front();
  const std::string start = "Create resource error. Resource dictionary: ";
  ASSERT_TRUE(line.starts_with(start)) << line;
  const auto logged = kiv::JSON::read(kiv::Data(line.substr(start.size())));
  ASSERT_TRUE(logged) << line;
  EXPECT_EQ(*logged, Dictionary({{"engine", "eco_fs"}, {"extra", Array{1, nullptr, "two"}}}));
}

TEST(KivResourceFactoryTest, AHostileDictionaryIsLoggedAsOneLineToo) {
  const LogCapture log;
  Value nested;
  for (int depth = 0; depth < 5000; ++depth)
    nested = Value(Array{nested});
  EXPECT_FALSE(create({{"text", "two\nlines\r\x1b[31m"}, {"bytes", "\xff\xfe"}}));
  EXPECT_FALSE(create({{"deep", nested}}));
  EXPECT_FALSE(create({}));
  ASSERT_EQ(log.lines().size(), 3U);
  for (const std::string& line : log.lines()) {
    EXPECT_EQ(line.find_first_of("\n\r\x1b"), std::string::npos) << line;
  }
}

TEST(KivResourceFactoryTest, ASavedDictionaryMakesTheSameResourceAgain) {
  const kiv::test::TemporaryDirectory directory;
  const auto resource = create(standardItem());
  resource->setPath(directory.write("wide.png"));
  const auto text = kiv::JSON::write(*resource->resourceDictionary());
  ASSERT_TRUE(text);
  const auto saved = kiv::JSON::read(*text);
  ASSERT_TRUE(saved);
  const auto restored = create(saved->dictionary());
  EXPECT_TRUE(isExactly<KivResourceStandard>(restored));
  EXPECT_TRUE(restored->filesExist());
  EXPECT_EQ(*restored->resourceDictionary(), *resource->resourceDictionary());
}

TEST(KivResourceFactoryTest, TheDictionaryThatWasPassedIsNotChanged) {
  const Dictionary item = itemForEveryKind("eco_standard");
  const Dictionary before = item;
  ASSERT_TRUE(create(item));
  EXPECT_EQ(item, before);
  EXPECT_TRUE(item.contains("image_320x50"));
}

// --- A configuration -----------------------------------------------------------------------------

TEST(KivResourceFactoryTest, AConfigurationWithoutAnItemsArrayYieldsNoResources) {
  const LogCapture log;
  EXPECT_TRUE(resources(Dictionary{{"items", standardItem()}}).empty());
  EXPECT_TRUE(resources(Dictionary{{"items", "eco_standard"}}).empty());
  EXPECT_TRUE(resources(Dictionary{{"items", nullptr}}).empty());
  EXPECT_TRUE(resources(Dictionary{{"items", 3}}).empty());
  EXPECT_TRUE(resources(Dictionary{{"Items", Array{standardItem()}}}).empty());
  EXPECT_TRUE(resources(Dictionary()).empty());
  EXPECT_TRUE(log.lines().empty());
}

TEST(KivResourceFactoryTest, AnAbsentConfigurationYieldsNoResources) {
  const LogCapture log;
  EXPECT_TRUE(resources(nullptr).empty());
  EXPECT_TRUE(resources(Value()).empty());
  EXPECT_TRUE(log.lines().empty());
}

TEST(KivResourceFactoryTest, WhatIsNoConfigurationYieldsNoResources) {
  EXPECT_TRUE(resources(Array{standardItem()}).empty());
  EXPECT_TRUE(resources("items").empty());
  EXPECT_TRUE(resources(true).empty());
}

TEST(KivResourceFactoryTest, AnEmptyItemsArrayYieldsNoResources) {
  EXPECT_TRUE(resources(Dictionary{{"items", Array()}}).empty());
}

TEST(KivResourceFactoryTest, UnusableItemsAreLeftOutAndOnlyAnInvalidDictionaryIsLogged) {
  const LogCapture log;
  const Dictionary invalid = without(webItem(), "html");
  const auto made =
      resources(Dictionary{{"items", Array{standardItem(), "text", 5, invalid, videoItem()}}});
  ASSERT_EQ(made.size(), 2U);
  EXPECT_TRUE(isExactly<KivResourceStandard>(made[0]));
  EXPECT_TRUE(isExactly<KivResourceVideo>(made[1]));
  EXPECT_EQ(log.lines(), Lines{rejection(invalid)});
}

TEST(KivResourceFactoryTest, OtherItemsThatAreNoDictionariesAreSkippedWithoutALine) {
  const LogCapture log;
  const auto made =
      resources(Dictionary{{"items", Array{nullptr, true, Array{standardItem()}, 0.5, webItem()}}});
  ASSERT_EQ(made.size(), 1U);
  EXPECT_TRUE(isExactly<KivResourceWeb>(made[0]));
  EXPECT_TRUE(log.lines().empty());
}

TEST(KivResourceFactoryTest, EachInvalidDictionaryHasItsOwnLine) {
  const LogCapture log;
  const Dictionary first = without(webItem(), "html");
  const Dictionary second = without(webItem(), "name");
  EXPECT_TRUE(resources(Dictionary{{"items", Array{first, second}}}).empty());
  EXPECT_EQ(log.lines(), (Lines{rejection(first), rejection(second)}));
}

TEST(KivResourceFactoryTest, EachItemHasItsPlace) {
  const Dictionary config{{"items", Array{"text", plainItem(), without(webItem(), "html")}}};
  const auto made = KivResourceFactory::resourceOfEachItemOfConfig(config);
  ASSERT_EQ(made.size(), 3U);
  EXPECT_EQ(made[0], nullptr);
  EXPECT_NE(made[1], nullptr);
  EXPECT_EQ(made[2], nullptr);
  EXPECT_TRUE(KivResourceFactory::resourceOfEachItemOfConfig("text").empty());
}

TEST(KivResourceFactoryTest, AnItemIsValidExactlyIfItMakesAResource) {
  const LogCapture log;
  for (const Dictionary& item : {plainItem(), standardItem(), videoItem(), webItem()}) {
    EXPECT_EQ(KivResourceFactory::validateItem(item), std::nullopt);
    for (const auto& entry : item) {
      for (const Dictionary& changed :
           {without(item, entry.key()), with(item, entry.key(), Array())}) {
        EXPECT_EQ(!KivResourceFactory::validateItem(changed),
                  KivResourceFactory::createResourceFromDictionary(changed) != nullptr)
            << entry.key();
      }
    }
  }
  EXPECT_EQ(KivResourceFactory::validateItem(with(webItem(), "html", 1)),
            "has no string under \"html\"");
  EXPECT_EQ(KivResourceFactory::validateItem(without(webItem(), "updated")),
            "lacks \"updated\", a number");
  EXPECT_EQ(KivResourceFactory::validateItem("text"), "is no JSON object");
}

TEST(KivResourceFactoryTest, DuplicatesAreKeptInTheOrderOfTheItems) {
  Array items;
  for (int version = 0; version < 3; ++version)
    items.append(with(webItem(), "updated", 3 - version));
  const auto made = resources(Dictionary{{"items", items}, {"version", 2}});
  ASSERT_EQ(made.size(), 3U);
  EXPECT_EQ(made[0]->updated(), 3U);
  EXPECT_EQ(made[1]->updated(), 2U);
  EXPECT_EQ(made[2]->updated(), 1U);
  EXPECT_NE(made[0], made[1]);
}

TEST(KivResourceFactoryTest, ManyItemsKeepTheirOrder) {
  Array items;
  for (int number = 0; number < 10000; ++number)
    items.append(with(plainItem(), "updated", number));
  const auto made = resources(Dictionary{{"items", items}});
  ASSERT_EQ(made.size(), 10000U);
  for (std::size_t index = 0; index < made.size(); ++index)
    ASSERT_EQ(made[index]->updated(), index);
}

}  // namespace
