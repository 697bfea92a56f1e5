#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <type_traits>
#include <utility>

#include <gtest/gtest.h>

#include "KivPlatform/Foundation/values/Value.h"

namespace {

using kiv::Array;
using kiv::Dictionary;
using kiv::Value;

TEST(ValueTest, TellsNullBooleansNumbersAndStringsApart) {
  EXPECT_TRUE(Value().isNull());
  EXPECT_TRUE(Value(nullptr).isNull());
  EXPECT_TRUE(Value(std::optional<std::string>()).isNull());
  EXPECT_TRUE(Value(true).isBoolean());
  EXPECT_TRUE(Value(true).isNumber());
  EXPECT_TRUE(Value(0).isNumber());
  EXPECT_FALSE(Value(0).isBoolean());
  EXPECT_TRUE(Value("7").isString());
  EXPECT_FALSE(Value("7").isNumber());
  EXPECT_FALSE(Value().isNumber());
  EXPECT_EQ(Value(-1).kind(), Value::Kind::signedInteger);
  EXPECT_EQ(Value(1).kind(), Value::Kind::unsignedInteger);
  EXPECT_EQ(Value(1.0).kind(), Value::Kind::floating);
}

struct UnsignedReading {
  const char* name;
  Value value;
  std::uint64_t expected;
};

class UnsignedReadingTest : public testing::TestWithParam<UnsignedReading> {};

TEST_P(UnsignedReadingTest, ReadsAsUnsigned) {
  EXPECT_EQ(GetParam().value.unsignedInteger(), GetParam().expected);
}

constexpr auto largest = std::numeric_limits<std::uint64_t>::max();
constexpr auto pastTwoTo53 = (std::uint64_t{1} << 53) + 1;

INSTANTIATE_TEST_SUITE_P(
    Numbers, UnsignedReadingTest,
    testing::Values(UnsignedReading{"Fraction", 3.9, 3}, UnsignedReading{"True", true, 1},
                    UnsignedReading{"False", false, 0}, UnsignedReading{"MinusOne", -1, largest},
                    UnsignedReading{"Largest", largest, largest},
                    UnsignedReading{"PastDoublePrecision", pastTwoTo53, pastTwoTo53},
                    UnsignedReading{"NegativeFraction", -3.9, largest - 2},
                    UnsignedReading{"HugeDouble", 1e300, largest},
                    UnsignedReading{"TwoTo64", 18446744073709551616.0, largest},
                    UnsignedReading{"HugeNegativeDouble", -1e300, std::uint64_t{1} << 63},
                    UnsignedReading{"NotANumber", std::nan(""), 0},
                    UnsignedReading{"Digits", "12", 0}, UnsignedReading{"Null", nullptr, 0}),
    [](const auto& instance) { return instance.param.name; });

TEST(ValueTest, SinglePrecisionIsClampedToWhatAFloatHolds) {
  EXPECT_EQ(static_cast<double>(Value(4.7).singlePrecision()), 4.699999809265137);
  EXPECT_EQ(Value(true).singlePrecision(), 1.0F);
  EXPECT_EQ(Value(1e300).singlePrecision(), std::numeric_limits<float>::max());
  EXPECT_EQ(Value(-1e300).singlePrecision(), std::numeric_limits<float>::lowest());
}

TEST(ValueTest, WrongKindAnswersNothing) {
  EXPECT_EQ(Value(3).stringView(), "");
  EXPECT_TRUE(Value("x").array().empty());
  EXPECT_TRUE(Value("x").dictionary().empty());
  EXPECT_TRUE((Value(Array{1})).array()[5].isNull());
  EXPECT_TRUE(Dictionary()["missing"].isNull());
  EXPECT_EQ(Dictionary().find("missing"), nullptr);
}

TEST(ValueTest, StringsMayHoldNulAndNothing) {
  const std::string text("a\0b", 3);
  EXPECT_EQ(Value(text).stringView(), text);
  EXPECT_EQ(Value("").stringView(), "");
  EXPECT_TRUE(Value("").isString());
}

TEST(ValueTest, ChangingACopyReachesNoOtherCopy) {
  Dictionary original{{"list", Array{1, 2}}, {"name", "a"}};
  Dictionary copy = original;
  copy.set("name", "b");
  Array list = copy["list"].array();
  list.append(3);
  copy.set("list", list);
  copy.remove("name");
  EXPECT_EQ(original["name"].string(), "a");
  EXPECT_EQ(original["list"].array().size(), 2U);
  EXPECT_EQ(copy["list"].array().size(), 3U);
  EXPECT_FALSE(copy.contains("name"));
}

TEST(ValueTest, AssigningAContainerToItsOwnElementIsSafe) {
  Value value(Array{Value(Array{1, 2, 3})});
  value = value.array()[0];
  EXPECT_EQ(value.array().size(), 3U);
  Dictionary dictionary{{"a", 1}};
  dictionary.set("self", dictionary);
  EXPECT_EQ(dictionary["self"].dictionary().size(), 1U);
}

TEST(DictionaryTest, KeepsTheOrderOfItsKeys) {
  Dictionary dictionary{{"z", 1}, {"a", 2}};
  dictionary.set("m", 3);
  dictionary.set("z", 4);
  dictionary.remove("a");
  std::string keys;
  for (const auto& entry : dictionary)
    keys += entry.key();
  EXPECT_EQ(keys, "zm");
  EXPECT_EQ(dictionary["z"].unsignedInteger(), 4U);
}

TEST(DictionaryTest, TheLaterOfTwoEqualKeysCounts) {
  const Dictionary dictionary{{"a", 1}, {"a", 2}};
  EXPECT_EQ(dictionary.size(), 1U);
  EXPECT_EQ(dictionary["a"].unsignedInteger(), 2U);
}

TEST(DictionaryTest, LargeDictionariesFindSetAndRemoveLikeSmallOnes) {
  Dictionary dictionary;
  for (int key = 0; key < 5000; ++key)
    dictionary.set(std::to_string(key), key);
  Dictionary copy = dictionary;
  for (int key = 0; key < 5000; key += 7)
    copy.remove(std::to_string(key));
  copy.set("1", "one");
  for (int key = 0; key < 5000; ++key) {
    const auto name = std::to_string(key);
    EXPECT_EQ(dictionary[name].unsignedInteger(), static_cast<std::uint64_t>(key));
    EXPECT_EQ(copy.contains(name), key % 7 != 0) << key;
  }
  EXPECT_EQ(copy["1"].string(), "one");
}

TEST(ValueTest, EqualityLooksAtContent) {
  EXPECT_EQ(Value(1), Value(1.0));
  EXPECT_EQ(Value(true), Value(1));
  EXPECT_FALSE(Value(-1) == Value(largest));
  EXPECT_FALSE(Value("1") == Value(1));
  EXPECT_EQ(Value(Dictionary({{"a", 1}, {"b", 2}})), Value(Dictionary({{"b", 2}, {"a", 1}})));
  EXPECT_FALSE(Value(Array({1, 2})) == Value(Array({2, 1})));
}

// Accessors of a temporary return a copy; those of an lvalue return a reference.
template <class T>
constexpr bool handsOutCopies = std::is_same_v<decltype(std::declval<T>().array()), kiv::Array>&&
    std::is_same_v<decltype(std::declval<T>().dictionary()), kiv::Dictionary>&&
        std::is_same_v<decltype(std::declval<T>().array()[0]), kiv::Value>&&
            std::is_same_v<decltype(std::declval<T>().dictionary()["a"]), kiv::Value>;
template <class T>
constexpr bool handsOutReferences =
    std::is_same_v<decltype(std::declval<T>().array()), const kiv::Array&>&&
        std::is_same_v<decltype(std::declval<T>().dictionary()), const kiv::Dictionary&>&&
            std::is_same_v<decltype(std::declval<T>().array()[0]), const kiv::Value&>&&
                std::is_same_v<decltype(std::declval<T>().dictionary()["a"]), const kiv::Value&>;
static_assert(handsOutCopies<kiv::Value> && handsOutCopies<const kiv::Value>);
static_assert(handsOutReferences<kiv::Value&> && handsOutReferences<const kiv::Value&>);

TEST(ValueTest, WhatATemporaryHandsOutSharesItsContents) {
  const kiv::Value value(kiv::Array{std::string(100, 'x')});
  const kiv::Array copy = kiv::Value(value).array();
  EXPECT_EQ(copy.begin(), value.array().begin());
  EXPECT_EQ(kiv::Value(copy), value);
}

// --- Signed integers -----------------------------------------------------------------------------

TEST(ValueTest, SignedIntegersAreClampedToTheirRange) {
  constexpr auto least = std::numeric_limits<std::int64_t>::min();
  constexpr auto most = std::numeric_limits<std::int64_t>::max();
  EXPECT_EQ(Value(-5).signedInteger(), -5);
  EXPECT_EQ(Value(5).signedInteger(), 5);
  EXPECT_EQ(Value(least).signedInteger(), least);
  EXPECT_EQ(Value(most).signedInteger(), most);
  EXPECT_EQ(Value(std::numeric_limits<std::uint64_t>::max()).signedInteger(), most);
  EXPECT_EQ(Value(1e300).signedInteger(), most);
  EXPECT_EQ(Value(-1e300).signedInteger(), least);
  EXPECT_EQ(Value(0x1p63).signedInteger(), most);
  EXPECT_EQ(Value(-2.9).signedInteger(), -2);
  EXPECT_EQ(Value(std::nan("")).signedInteger(), 0);
  EXPECT_EQ(Value(true).signedInteger(), 1);
  EXPECT_EQ(Value("5").signedInteger(), 0);
  EXPECT_EQ(Value().signedInteger(), 0);
}

// --- Values within values ------------------------------------------------------------------------

Value nested() {
  return Dictionary{{"items", Array{Dictionary{{"name", "a"}}, Dictionary{{"name", "b"}}}},
                    {"count", 2}};
}

TEST(ValueTest, FollowsAPath) {
  const Value value = nested();
  EXPECT_EQ(value.at({"items", 1, "name"}), Value("b"));
  EXPECT_EQ(value.at({std::string("count")}), Value(2));
  EXPECT_EQ(&value.at({}), &value);
  EXPECT_TRUE(value.at({"items", 2}).isNull());
  EXPECT_TRUE(value.at({"items", -1}).isNull());
  EXPECT_TRUE(value.at({"items", "0"}).isNull());
  EXPECT_TRUE(value.at({0}).isNull());
  EXPECT_TRUE(value.at({"count", "x", 0}).isNull());
}

TEST(ValueTest, ReplacesTheValueAtAPath) {
  Value value = nested();
  const Value before = value;
  EXPECT_TRUE(value.setAt({"items", 1, "name"}, "c"));
  EXPECT_EQ(value.at({"items", 1, "name"}), Value("c"));
  EXPECT_EQ(before, nested()) << "no change reaches a copy";
  EXPECT_TRUE(value.setAt({"items", std::size_t{0}}, 7));
  EXPECT_EQ(value.at({"items"}), Value(Array{7, Dictionary{{"name", "c"}}}));
  EXPECT_TRUE(value.setAt({}, "all"));
  EXPECT_EQ(value, Value("all"));
}

TEST(ValueTest, AddsAKeyAtTheEndOfAPath) {
  Value value = nested();
  EXPECT_TRUE(value.setAt({"items", 0, "new"}, nullptr));
  EXPECT_TRUE(value.at({"items", 0}).dictionary().contains("new"));
  Value empty = Dictionary();
  EXPECT_TRUE(empty.setAt({"a"}, 1));
  EXPECT_EQ(empty, Value(Dictionary{{"a", 1}}));
  for (int key = 0; key < 100; ++key)
    EXPECT_TRUE(empty.setAt({std::to_string(key)}, key));
  EXPECT_EQ(empty.at({"99"}), Value(99));
}

TEST(ValueTest, AWrongPathChangesNothing) {
  Value value = nested();
  EXPECT_FALSE(value.setAt({"items", 2}, 1));
  EXPECT_FALSE(value.setAt({"items", -1}, 1));
  EXPECT_FALSE(value.setAt({"items", "name"}, 1));
  EXPECT_FALSE(value.setAt({"missing", "name"}, 1));
  EXPECT_FALSE(value.setAt({"count", "name"}, 1));
  EXPECT_FALSE(value.setAt({0}, 1));
  EXPECT_EQ(value, nested());
  Value null;
  EXPECT_FALSE(null.setAt({"a"}, 1));
}

TEST(ValueTest, AValueCanBeSetWithinItself) {
  Value value = nested();
  EXPECT_TRUE(value.setAt({"items", 0}, value));
  EXPECT_EQ(value.at({"items", 0}), nested());
  EXPECT_EQ(value.at({"items", 1, "name"}), Value("b"));
}

TEST(ValueTest, AnArrayReplacesAtAnIndex) {
  Array array{1, 2};
  const Array before = array;
  array.set(1, "b");
  array.set(2, "beyond");
  EXPECT_EQ(array, (Array{1, "b"}));
  EXPECT_EQ(before, (Array{1, 2}));
}

}  // namespace
