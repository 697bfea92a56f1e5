#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "KivResource/KivResourceObject.h"
#include "Tests/Support/LogCapture.h"
#include "Tests/Support/ResourceItems.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace {

using kiv::Array;
using kiv::Dictionary;
using kiv::Value;
using kiv::test::LogCapture;
using kiv::test::plainItem;
using kiv::test::TemporaryDirectory;
using kiv::test::with;
using kiv::test::without;

std::shared_ptr<KivResource> make(const Dictionary& dictionary) {
  return KivResource::initWithDictionary_engine(dictionary, "eco_unknown");
}

// --- Initialisation ------------------------------------------------------------------------------

TEST(KivResourceObjectTest, TakesItsFieldsFromTheDictionaryAndTheEngineFromTheArgument) {
  const auto resource = KivResource::initWithDictionary_engine(
      with(plainItem(), "banner_uid", "u-1"), "another engine");
  ASSERT_TRUE(resource);
  EXPECT_EQ(resource->name(), "Spring");
  EXPECT_EQ(resource->type(), "banner");
  EXPECT_EQ(resource->engine(), "another engine");
  EXPECT_EQ(resource->resourceID(), "b-1");
  EXPECT_EQ(resource->uid(), "u-1");
  EXPECT_EQ(resource->priority(), 7U);
  EXPECT_EQ(resource->updated(), 1700000000U);
  EXPECT_EQ((*resource->resourceDictionary())["engine"], "eco_unknown");
}

TEST(KivResourceObjectTest, UidIsUndefinedWithoutBannerUid) {
  EXPECT_EQ(make(plainItem())->uid(), "undefined");
}

TEST(KivResourceObjectTest, UidIsUndefinedWhereBannerUidIsNoString) {
  for (const Value& uid :
       {Value(42), Value(), Value(true), Value(Array{"u"}), Value(Dictionary())}) {
    EXPECT_EQ(make(with(plainItem(), "banner_uid", uid))->uid(), "undefined");
  }
}

TEST(KivResourceObjectTest, AnEmptyBannerUidIsAnEmptyUid) {
  EXPECT_EQ(make(with(plainItem(), "banner_uid", ""))->uid(), "");
}

TEST(KivResourceObjectTest, EmptyStringsAreAccepted) {
  Dictionary item = plainItem();
  for (const char* key : {"name", "type", "banner_id"})
    item.set(key, "");
  const auto resource = make(item);
  ASSERT_TRUE(resource);
  EXPECT_EQ(resource->name(), "");
  EXPECT_EQ(resource->type(), "");
  EXPECT_EQ(resource->resourceID(), "");
}

TEST(KivResourceObjectTest, StringsKeepEveryByte) {
  const std::string name("a\0b\xff", 4);
  EXPECT_EQ(make(with(plainItem(), "name", name))->name(), name);
}

TEST(KivResourceObjectTest, ExtraKeysAndTheEngineSurviveUnchanged) {
  Dictionary item = with(plainItem(), "image_320x50", "small.png");
  item.set("video_file_portrait", 3);
  item.set("html", nullptr);
  item.set("nested", Dictionary{{"list", Array{1, "two", nullptr, 0.5}}});
  const auto resource = make(item);
  ASSERT_TRUE(resource);
  EXPECT_EQ(*resource->resourceDictionary(), item);
}

TEST(KivResourceObjectTest, ChangingTheCallersDictionaryDoesNotReachTheResource) {
  Dictionary item = plainItem();
  const auto resource = make(item);
  item.set("name", "Autumn");
  item.remove("type");
  EXPECT_EQ(*resource->resourceDictionary(), plainItem());
}

TEST(KivResourceObjectTest, ChangingTheResourcesDictionaryDoesNotReachTheCaller) {
  const Dictionary item = plainItem();
  const auto resource = make(item);
  resource->resourceDictionary()->set("name", "Autumn");
  EXPECT_EQ(item, plainItem());
  EXPECT_EQ(resource->name(), "Spring");
}

TEST(KivResourceObjectTest, OptionsStartAsNone) {
  EXPECT_FALSE(make(plainItem())->options());
}

struct NumberReading {
  const char* name;
  Value value;
  std::uint64_t expected;
};

void PrintTo(const NumberReading& reading, std::ostream* stream) {
  *stream << reading.name;
}

class NumberReadingTest : public testing::TestWithParam<NumberReading> {};

TEST_P(NumberReadingTest, ReadsPriorityAndUpdatedAsUnsigned) {
  const auto resource =
      make(with(with(plainItem(), "priority", GetParam().value), "updated", GetParam().value));
  ASSERT_TRUE(resource);
  EXPECT_EQ(resource->priority(), GetParam().expected);
  EXPECT_EQ(resource->updated(), GetParam().expected);
}

constexpr std::uint64_t largest = std::numeric_limits<std::uint64_t>::max();

INSTANTIATE_TEST_SUITE_P(
    KivResourceObject, NumberReadingTest,
    testing::Values(NumberReading{"Zero", 0, 0}, NumberReading{"AFraction", 3.9, 3},
                    NumberReading{"ANegativeFraction", -3.9, largest - 2},
                    NumberReading{"ASmallNegativeFraction", -0.5, 0},
                    NumberReading{"MinusOne", -1, largest}, NumberReading{"True", true, 1},
                    NumberReading{"False", false, 0},
                    NumberReading{"AboveTheExactDoubles", 9007199254740993U, 9007199254740993U},
                    NumberReading{"TheLargestUnsigned", largest, largest},
                    NumberReading{"FarTooLarge", 1e300, largest}),
    [](const auto& instance) { return std::string(instance.param.name); });

// --- Validation ----------------------------------------------------------------------------------

TEST(KivResourceObjectTest, TheRequiredKeysAloneAreValid) {
  EXPECT_TRUE(KivResource::isValidResourceDictionary(without(plainItem(), "engine")));
}

TEST(KivResourceObjectTest, OtherKeysAreNotExamined) {
  Dictionary item = with(plainItem(), "engine", 5);
  item.set("banner_uid", Array());
  item.set("market_url", nullptr);
  EXPECT_TRUE(KivResource::isValidResourceDictionary(item));
  EXPECT_TRUE(make(item));
}

TEST(KivResourceObjectTest, AnEmptyDictionaryIsInvalid) {
  EXPECT_FALSE(KivResource::isValidResourceDictionary({}));
  EXPECT_FALSE(make({}));
}

TEST(KivResourceObjectTest, EachRequiredKeyMustBeThere) {
  for (const char* key : {"name", "type", "banner_id", "priority", "updated"}) {
    EXPECT_FALSE(KivResource::isValidResourceDictionary(without(plainItem(), key))) << key;
    EXPECT_FALSE(make(without(plainItem(), key))) << key;
  }
}

TEST(KivResourceObjectTest, KeysAreTakenToTheLetter) {
  const Dictionary item = with(without(plainItem(), "name"), "Name", "Spring");
  EXPECT_FALSE(KivResource::isValidResourceDictionary(item));
}

TEST(KivResourceObjectTest, NullUnderARequiredKeyIsInvalid) {
  for (const char* key : {"name", "type", "banner_id", "priority", "updated"}) {
    EXPECT_FALSE(make(with(plainItem(), key, nullptr))) << key;
  }
}

TEST(KivResourceObjectTest, WhatIsNoStringUnderAStringKeyIsInvalid) {
  for (const char* key : {"name", "type", "banner_id"}) {
    for (const Value& value : {Value(17), Value(true), Value(Array{"x"}), Value(Dictionary())}) {
      EXPECT_FALSE(make(with(plainItem(), key, value))) << key;
    }
  }
}

TEST(KivResourceObjectTest, AStringUnderANumberKeyIsInvalidEvenOfDigits) {
  for (const char* key : {"priority", "updated"}) {
    for (const Value& value : {Value("7"), Value("high"), Value(Array{7}), Value(Dictionary())}) {
      EXPECT_FALSE(make(with(plainItem(), key, value))) << key;
    }
  }
}

TEST(KivResourceObjectTest, ARejectedDictionaryIsNotLogged) {
  const LogCapture log;
  EXPECT_FALSE(make(without(plainItem(), "name")));
  EXPECT_FALSE(KivResource::isValidResourceDictionary({}));
  EXPECT_TRUE(log.lines().empty());
}

// --- Files ---------------------------------------------------------------------------------------

TEST(KivResourceObjectTest, APlainResourceIsCompleteAndNeedsNoFiles) {
  const auto resource = make(plainItem());
  EXPECT_TRUE(resource->filesExist());
  EXPECT_TRUE(resource->missingFilesLinks().empty());
  EXPECT_TRUE(resource->useFilePaths().empty());
}

TEST(KivResourceObjectTest, APlainResourceIgnoresSetPath) {
  const TemporaryDirectory directory;
  const auto resource = make(with(plainItem(), "html", "promo/page.html"));
  const Dictionary before = *resource->resourceDictionary();
  resource->setPath(directory.write("page.html"));
  EXPECT_EQ(*resource->resourceDictionary(), before);
  EXPECT_TRUE(resource->filesExist());
  EXPECT_TRUE(resource->useFilePaths().empty());
  EXPECT_TRUE(resource->looksForOwnFilesOnly());
}

// --- Properties ----------------------------------------------------------------------------------

TEST(KivResourceObjectTest, EveryPropertyCanBeSetAndLeavesTheDictionaryAlone) {
  const auto resource = make(plainItem());
  resource->setName("n");
  resource->setType("t");
  resource->setEngine("e");
  resource->setResourceID("i");
  resource->setUid("u");
  resource->setPriority(largest);
  resource->setUpdated(largest - 1);
  EXPECT_EQ(*resource->resourceDictionary(), plainItem());
  EXPECT_EQ(resource->name(), "n");
  EXPECT_EQ(resource->type(), "t");
  EXPECT_EQ(resource->engine(), "e");
  EXPECT_EQ(resource->resourceID(), "i");
  EXPECT_EQ(resource->uid(), "u");
  EXPECT_EQ(resource->priority(), largest);
  EXPECT_EQ(resource->updated(), largest - 1);
}

TEST(KivResourceObjectTest, OnlyAGreaterStampIsNewer) {
  const auto version = [](std::uint64_t updated) {
    return make(with(plainItem(), "updated", updated));
  };
  EXPECT_TRUE(version(2)->isNewerThan(*version(1)));
  EXPECT_FALSE(version(1)->isNewerThan(*version(2)));
  EXPECT_FALSE(version(1)->isNewerThan(*version(1)));
  EXPECT_TRUE(version(largest)->isNewerThan(*version(largest - 1)));
  const auto resource = version(1);
  resource->setUpdated(3);
  EXPECT_TRUE(resource->isNewerThan(*version(2)));
}

TEST(KivResourceObjectTest, SettersKeepTheGivenDictionariesThemselves) {
  const auto resource = make(plainItem());
  const auto dictionary = std::make_shared<Dictionary>(plainItem());
  const auto options = std::make_shared<Dictionary>();
  resource->setResourceDictionary(dictionary);
  resource->setOptions(options);
  dictionary->set("name", "Autumn");
  options->set("shown", 3);
  EXPECT_EQ(resource->resourceDictionary(), dictionary);
  EXPECT_EQ((*resource->resourceDictionary())["name"], "Autumn");
  EXPECT_EQ((*resource->options())["shown"], 3);
}

TEST(KivResourceObjectTest, WithoutADictionaryItCountsAsEmpty) {
  const auto resource = make(plainItem());
  resource->setResourceDictionary(nullptr);
  EXPECT_FALSE(resource->copyWithZone());
  EXPECT_TRUE(resource->filesExist());
  ASSERT_TRUE(resource->valueForProperty("resourceDictionary").has_value());
  EXPECT_TRUE(resource->valueForProperty("resourceDictionary")->isNull());
}

TEST(KivResourceObjectTest, EveryPropertyIsReachableByItsName) {
  const auto resource = make(with(plainItem(), "banner_uid", "u-1"));
  const auto value = [&](const char* name) { return resource->valueForProperty(name).value(); };
  EXPECT_EQ(value("name"), "Spring");
  EXPECT_EQ(value("type"), "banner");
  EXPECT_EQ(value("engine"), "eco_unknown");
  EXPECT_EQ(value("resourceID"), "b-1");
  EXPECT_EQ(value("uid"), "u-1");
  EXPECT_EQ(value("priority"), 7);
  EXPECT_EQ(value("updated"), 1700000000);
  EXPECT_EQ(value("resourceDictionary"), with(plainItem(), "banner_uid", "u-1"));
  EXPECT_TRUE(value("options").isNull());
  resource->setOptions(std::make_shared<Dictionary>(Dictionary{{"shown", 3}}));
  EXPECT_EQ(value("options"), (Dictionary{{"shown", 3}}));
}

TEST(KivResourceObjectTest, PropertiesByNameFollowTheSetters) {
  const auto resource = make(plainItem());
  resource->setResourceID("b-2");
  resource->setUpdated(largest);
  EXPECT_EQ(resource->valueForProperty("resourceID").value(), "b-2");
  EXPECT_EQ(resource->valueForProperty("updated").value(), largest);
}

TEST(KivResourceObjectTest, UnknownPropertyNamesYieldNothing) {
  const auto resource = make(plainItem());
  for (const char* name : {"", "banner_id", "ResourceID", "resourceid", "name ", "image", "html"}) {
    EXPECT_FALSE(resource->valueForProperty(name).has_value()) << name;
  }
}

// --- Copies --------------------------------------------------------------------------------------

TEST(KivResourceObjectTest, ACopyIsAnotherResourceWithTheSameFields) {
  const auto resource = make(with(plainItem(), "banner_uid", "u-1"));
  const auto copy = resource->copyWithZone();
  ASSERT_TRUE(copy);
  EXPECT_NE(copy, resource);
  EXPECT_NE(copy->resourceDictionary(), resource->resourceDictionary());
  EXPECT_EQ(*copy->resourceDictionary(), *resource->resourceDictionary());
  EXPECT_EQ(copy->name(), resource->name());
  EXPECT_EQ(copy->engine(), resource->engine());
  EXPECT_EQ(copy->uid(), "u-1");
}

TEST(KivResourceObjectTest, TheZoneOfACopyHasNoMeaning) {
  const auto resource = make(plainItem());
  const auto copy = resource->copyWithZone(resource.get());
  ASSERT_TRUE(copy);
  EXPECT_EQ(copy->name(), "Spring");
}

TEST(KivResourceObjectTest, ACopyCarriesTheDictionarysPriorityNotTheOneThatWasSet) {
  const auto resource = make(plainItem());
  resource->setPriority(99);
  resource->setUid("changed");
  const auto copy = resource->copyWithZone();
  EXPECT_EQ(copy->priority(), 7U);
  EXPECT_EQ(copy->uid(), "undefined");
}

TEST(KivResourceObjectTest, ACopyFollowsAChangedDictionary) {
  const auto resource = make(plainItem());
  resource->resourceDictionary()->set("priority", 99);
  EXPECT_EQ(resource->copyWithZone()->priority(), 99U);
}

TEST(KivResourceObjectTest, ACopyCarriesTheEngineThatWasSet) {
  const auto resource = make(plainItem());
  resource->setEngine("another");
  EXPECT_EQ(resource->copyWithZone()->engine(), "another");
}

TEST(KivResourceObjectTest, ACopyNeverHasOptions) {
  const auto resource = make(plainItem());
  resource->setOptions(std::make_shared<Dictionary>());
  EXPECT_FALSE(resource->copyWithZone()->options());
  EXPECT_TRUE(resource->options());
}

TEST(KivResourceObjectTest, ACopyAfterNameWasRemovedIsNothing) {
  const LogCapture log;
  const auto resource = make(plainItem());
  resource->resourceDictionary()->remove("name");
  EXPECT_FALSE(resource->copyWithZone());
  EXPECT_TRUE(log.lines().empty());
}

TEST(KivResourceObjectTest, ChangingACopyLeavesTheOriginalAlone) {
  const auto resource = make(plainItem());
  const auto copy = resource->copyWithZone();
  copy->resourceDictionary()->set("name", "Autumn");
  copy->setType("changed");
  EXPECT_EQ(*resource->resourceDictionary(), plainItem());
  EXPECT_EQ(resource->type(), "banner");
}

TEST(KivResourceObjectTest, ADeepDictionarySurvivesAndIsCopied) {
  Value nested("innermost");
  for (int depth = 0; depth < 1000; ++depth)
    nested = Value(Array{nested});
  const Dictionary item = with(plainItem(), "nested", nested);
  const auto copy = make(item)->copyWithZone();
  ASSERT_TRUE(copy);
  EXPECT_EQ(*copy->resourceDictionary(), item);
}

TEST(KivResourceObjectTest, AWideDictionarySurvivesAndIsCopied) {
  Dictionary item = plainItem();
  for (int key = 0; key < 10000; ++key)
    item.set("key " + std::to_string(key), key);
  const auto copy = make(item)->copyWithZone();
  ASSERT_TRUE(copy);
  EXPECT_EQ(copy->resourceDictionary()->size(), item.size());
  EXPECT_EQ((*copy->resourceDictionary())["key 9999"], 9999);
}

// --- Lifecycle -----------------------------------------------------------------------------------

TEST(KivResourceObjectTest, IsFreedWhenTheLastHolderLetsGo) {
  auto resource = make(plainItem());
  const std::weak_ptr<KivResource> observed = resource;
  auto other = resource;
  resource.reset();
  EXPECT_FALSE(observed.expired());
  other.reset();
  EXPECT_TRUE(observed.expired());
}

// --- A host's own kind ---------------------------------------------------------------------------

/// A resource class of a host: a coupon with a code and one file.
class Coupon : public KivResource {
 public:
  static std::shared_ptr<Coupon> initWithDictionary_engine(const Dictionary& dictionary,
                                                           const std::string& engine) {
    return initialised(std::shared_ptr<Coupon>(new Coupon), dictionary, engine);
  }

  [[nodiscard]] bool filesExist() const override { return fileExistsAt(linkForKey("coupon")); }
  [[nodiscard]] std::vector<std::string> missingFilesLinks() const override {
    return filesExist() ? std::vector<std::string>() : listOf(linkForKey("coupon"));
  }
  void setPath(const std::string& path) override { recordPath_forKey(Value(path), "coupon"); }
  [[nodiscard]] std::optional<Value> valueForProperty(std::string_view name) const override {
    if (name == "code") return code_;
    return KivResource::valueForProperty(name);
  }

 protected:
  bool setUp(const Dictionary& dictionary, const std::string& engine) override {
    if (!KivResource::setUp(dictionary, engine) || !hasString(dictionary, "code")) return false;
    code_ = dictionary["code"];
    return true;
  }
  [[nodiscard]] std::shared_ptr<KivResource> emptyInstance() const override {
    return std::shared_ptr<KivResource>(new Coupon);
  }

 private:
  Value code_;
};

Dictionary couponItem() {
  return with(with(plainItem(), "code", "SPRING"), "coupon", "coupons/spring.pdf");
}

TEST(KivResourceObjectTest, AHostsKindIsMadeThroughItsOwnSetUp) {
  const auto coupon = Coupon::initWithDictionary_engine(couponItem(), "coupon");
  ASSERT_TRUE(coupon);
  EXPECT_EQ(coupon->name(), "Spring");
  EXPECT_EQ(coupon->valueForProperty("code").value(), "SPRING");
  EXPECT_EQ(coupon->valueForProperty("type").value(), "banner");
  EXPECT_FALSE(coupon->valueForProperty("coupon").has_value());
}

TEST(KivResourceObjectTest, AHostsKindYieldsNothingWhereEitherCheckFails) {
  EXPECT_FALSE(Coupon::initWithDictionary_engine(without(couponItem(), "code"), "coupon"));
  EXPECT_FALSE(Coupon::initWithDictionary_engine(without(couponItem(), "type"), "coupon"));
}

TEST(KivResourceObjectTest, AHostsKindIsCopiedToItsOwnClass) {
  const TemporaryDirectory directory;
  const auto coupon = Coupon::initWithDictionary_engine(couponItem(), "coupon");
  coupon->setPath(directory.write("spring.pdf"));
  const auto copy = std::dynamic_pointer_cast<Coupon>(coupon->copyWithZone());
  ASSERT_TRUE(copy);
  EXPECT_TRUE(copy->filesExist());
  EXPECT_EQ(copy->valueForProperty("code").value(), "SPRING");
}

TEST(KivResourceObjectTest, AHostsKindGetsItsPathsIntoADictionaryThatItHadNot) {
  const auto coupon = Coupon::initWithDictionary_engine(couponItem(), "coupon");
  coupon->setResourceDictionary(nullptr);
  EXPECT_FALSE(coupon->filesExist());
  EXPECT_TRUE(coupon->missingFilesLinks().empty());
  coupon->setPath("/data/spring.pdf");
  ASSERT_TRUE(coupon->resourceDictionary());
  EXPECT_EQ(*coupon->resourceDictionary(), (Dictionary{{"coupon", "/data/spring.pdf"}}));
}

/// A class that overrides only what its files require.
class Leaflet : public KivResource {
 public:
  static std::shared_ptr<Leaflet> initWithDictionary_engine(const Dictionary& dictionary,
                                                            const std::string& engine) {
    return initialised(std::make_shared<Leaflet>(), dictionary, engine);
  }
  [[nodiscard]] bool filesExist() const override { return true; }
};

TEST(KivResourceObjectTest, AHostsKindWithADefaultConstructorIsCopiedByIt) {
  const auto leaflet = Leaflet::initWithDictionary_engine(plainItem(), "host");
  ASSERT_TRUE(leaflet);
  EXPECT_TRUE(leaflet->isCopyable());
  const auto copy = std::dynamic_pointer_cast<Leaflet>(leaflet->copyWithZone());
  ASSERT_TRUE(copy);
  EXPECT_NE(copy, leaflet);
  EXPECT_EQ(copy->name(), "Spring");
  leaflet->setResourceDictionary(nullptr);
  EXPECT_FALSE(leaflet->copyWithZone());
}

/// A class without a default constructor.
class Uncopyable : public KivResource {
 public:
  explicit Uncopyable(int) {}
  static std::shared_ptr<Uncopyable> initWithDictionary_engine(const Dictionary& dictionary,
                                                               const std::string& engine) {
    return initialised(std::make_shared<Uncopyable>(1), dictionary, engine);
  }
};

TEST(KivResourceObjectTest, AHostsKindThatCannotBeMadeHasNoCopyRatherThanOneOfItsBase) {
  const auto resource = Uncopyable::initWithDictionary_engine(plainItem(), "host");
  ASSERT_TRUE(resource);
  EXPECT_FALSE(resource->isCopyable());
  EXPECT_FALSE(resource->copyWithZone());
}

/// A class that refuses to be copied.
class Refusing : public Leaflet {
 public:
  static std::shared_ptr<Refusing> initWithDictionary_engine(const Dictionary& dictionary,
                                                             const std::string& engine) {
    return initialised(std::make_shared<Refusing>(), dictionary, engine);
  }

 protected:
  [[nodiscard]] std::shared_ptr<KivResource> emptyInstance() const override { return nullptr; }
};

TEST(KivResourceObjectTest, AHostsKindWhoseEmptyInstanceIsNoneHasNoCopy) {
  const auto resource = Refusing::initWithDictionary_engine(plainItem(), "host");
  ASSERT_TRUE(resource);
  EXPECT_FALSE(resource->isCopyable());
  EXPECT_FALSE(resource->copyWithZone());
}

}  // namespace
