#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "KivPlatform/Foundation/values/JSON.h"

namespace {

using kiv::Array;
using kiv::Data;
using kiv::Dictionary;
using kiv::Error;
using kiv::JSON;
using kiv::JSONErrorCode;
using kiv::Value;
using Kind = kiv::Value::Kind;
using namespace std::string_view_literals;

Data dataOf(std::string_view text) {
  return Data(std::string(text));
}

/// The value of a text that must be valid; null if it is rejected.
Value read(std::string_view text) {
  auto value = JSON::read(dataOf(text));
  EXPECT_TRUE(value) << value.error().localizedDescription();
  return std::move(value).value_or(Value());
}

/// The single element of an array with this text.
Value readElement(std::string_view element) {
  const Value root = read("[" + std::string(element) + "]");
  EXPECT_EQ(root.array().size(), 1U);
  return root.array()[0];
}

/// The error of a text that must be rejected.
Error refusal(std::string_view text) {
  const auto value = JSON::read(dataOf(text));
  EXPECT_FALSE(value) << text.substr(0, 100);
  return value ? Error("no error", 0, "") : value.error();
}

void expectRefused(std::string_view text, JSONErrorCode code) {
  const Error error = refusal(text);
  const std::string_view start = text.substr(0, 100);
  EXPECT_EQ(error.domain, kiv::JSONErrorDomain) << start;
  EXPECT_EQ(error.code, static_cast<int>(code)) << start << "\n" << error.localizedDescription();
  EXPECT_TRUE(error.localizedDescription().starts_with("The JSON text "));
}

std::string written(const Value& value) {
  const auto text = JSON::write(value);
  EXPECT_TRUE(text) << text.error().localizedDescription();
  return text ? std::string(text->view()) : std::string();
}

std::string nested(std::size_t depth, std::string_view inside = "") {
  return std::string(depth, '[') + std::string(inside) + std::string(depth, ']');
}

Value nestedValue(int depth) {
  Value value(7);
  for (int level = 0; level < depth; ++level)
    value = Value(Array{value});
  return value;
}

/// Splits at double spaces.
std::vector<std::string> separated(std::string_view texts) {
  std::vector<std::string> all;
  while (!texts.empty()) {
    const auto end = texts.find("  ");
    all.emplace_back(texts.substr(0, end));
    texts.remove_prefix(end == texts.npos ? texts.size() : end + 2);
  }
  return all;
}

// --- Reading: numbers ----------------------------------------------------------------------------

struct Number {
  std::string_view text;
  Kind kind;
  std::uint64_t bits;  // of the integer value
  double floating;
};

constexpr double twoTo64 = 18446744073709551616.0;

class JSONNumberTest : public testing::TestWithParam<Number> {};

TEST_P(JSONNumberTest, IsReadExactlyAndComesBackAfterWriting) {
  const Number& number = GetParam();
  const Value value = readElement(number.text);
  ASSERT_EQ(value.kind(), number.kind);
  if (number.kind != Kind::floating) {
    EXPECT_EQ(value.unsignedInteger(), number.bits);
  }
  EXPECT_EQ(value.floating(), number.floating);
  EXPECT_EQ(std::signbit(value.floating()), std::signbit(number.floating));

  const Value again = readElement(JSON::toCompactString(value));
  EXPECT_EQ(again.kind(), value.kind());
  EXPECT_EQ(again.unsignedInteger(), value.unsignedInteger());
  EXPECT_EQ(again.floating(), value.floating());
  EXPECT_EQ(std::signbit(again.floating()), std::signbit(value.floating()));
}

constexpr auto minInt64 = std::uint64_t{1} << 63;

INSTANTIATE_TEST_SUITE_P(
    Numbers, JSONNumberTest,
    testing::Values(
        Number{"0", Kind::unsignedInteger, 0, 0}, Number{"-0", Kind::unsignedInteger, 0, 0},
        Number{"-0.0", Kind::floating, 0, -0.0}, Number{"-0e5", Kind::floating, 0, -0.0},
        Number{"0.0", Kind::floating, 0, 0}, Number{"1", Kind::unsignedInteger, 1, 1},
        Number{"-1", Kind::signedInteger, UINT64_MAX, -1}, Number{"3.0", Kind::floating, 0, 3},
        Number{"3e0", Kind::floating, 0, 3}, Number{"1E+2", Kind::floating, 0, 100},
        Number{"4.7", Kind::floating, 0, 4.7}, Number{"1e-7", Kind::floating, 0, 1e-7},
        Number{"1e22", Kind::floating, 0, 1e22}, Number{"1e300", Kind::floating, 0, 1e300},
        Number{"5e-324", Kind::floating, 0, 5e-324}, Number{"1e-400", Kind::floating, 0, 0},
        Number{"1.7976931348623157e308", Kind::floating, 0, 1.7976931348623157e308},
        Number{"9007199254740993", Kind::unsignedInteger, 9007199254740993, 9007199254740992.0},
        Number{"9223372036854775807", Kind::unsignedInteger, minInt64 - 1, 9223372036854775807.0},
        Number{"9223372036854775808", Kind::unsignedInteger, minInt64, 9223372036854775808.0},
        Number{"18446744073709551615", Kind::unsignedInteger, UINT64_MAX, twoTo64},
        Number{"-9223372036854775808", Kind::signedInteger, minInt64, -9223372036854775808.0},
        Number{"18446744073709551616", Kind::floating, 0, twoTo64},
        Number{"-9223372036854775809", Kind::floating, 0, -9223372036854775808.0},
        Number{"100000000000000000000000000000", Kind::floating, 0, 1e29},
        Number{"4.70000000000000017763568394002504646778106689453125", Kind::floating, 0, 4.7},
        Number{"-123456789012345678901234567890e-20", Kind::floating, 0, -1234567890.1234567},
        Number{"18446744073709551615.0", Kind::floating, 0, twoTo64}));

TEST(JSONReadTest, TextIsTakenFromAnyKindOfString) {
  const std::string text = "\xef\xbb\xbf[1]";
  const Value expected = kiv::Array{1};
  EXPECT_EQ(JSON::read(text).value_or(Value()), expected);
  EXPECT_EQ(JSON::read(std::string_view(text)).value_or(Value()), expected);
  EXPECT_EQ(JSON::read("[1]").value_or(Value()), expected);
  EXPECT_EQ(JSON::read(dataOf(text)).value_or(Value()), expected);
  EXPECT_FALSE(JSON::read("[1"));
}

TEST(JSONReadTest, LongIntegersAreDoublesWhereverTheyStand) {
  const Value root = read(
      "{\"a\":18446744073709551616 , \"b\" : [ -9223372036854775809\n,\t1],"
      "\"c\":99999999999999999999}");
  EXPECT_EQ(root.dictionary()["a"].floating(), twoTo64);
  EXPECT_EQ(root.dictionary()["b"].array().size(), 2U);
  EXPECT_EQ(root.dictionary()["b"].array()[0].kind(), Kind::floating);
  EXPECT_EQ(root.dictionary()["c"].floating(), 1e20);
}

TEST(JSONReadTest, NumbersThatAreNoneAreRefused) {
  const auto texts =
      separated(R"t(01  -01  00  +1  -  --1  1.  .5  1e  1e+  1.e5  0x10  1_000  1 2  1a  NaN  )t"
                R"t(-NaN  nan  Infinity  -Infinity  inf  1e400  -1e400  1e99999999999  )t"
                R"t(018446744073709551616  -018446744073709551616  18446744073709551616a  )t"
                R"t(18446744073709551616 1  1.7976931348623159e308)t");
  for (const auto& text : texts) {
    expectRefused("[" + std::string(text) + "]", JSONErrorCode::malformed);
    expectRefused("{\"a\":" + std::string(text) + "}", JSONErrorCode::malformed);
  }
  expectRefused("[" + std::string(400, '9') + "]", JSONErrorCode::malformed);
  expectRefused("[1\0]"sv, JSONErrorCode::malformed);
}

TEST(JSONReadTest, AMillionDigitsAreAnAnswerNotACrash) {
  expectRefused("[" + std::string(1'000'000, '9') + "]", JSONErrorCode::malformed);
  EXPECT_EQ(readElement("0." + std::string(1'000'000, '1')).floating(), 0.1111111111111111);
}

// --- Reading: strings ----------------------------------------------------------------------------

struct Text {
  std::string_view json;
  std::string_view string;
};

class JSONStringTest : public testing::TestWithParam<Text> {};

TEST_P(JSONStringTest, IsReadAsValueAndAsKeyAndComesBackAfterWriting) {
  const Text& text = GetParam();
  const Value value = readElement(text.json);
  ASSERT_TRUE(value.isString());
  EXPECT_EQ(value.stringView(), text.string);
  EXPECT_EQ(readElement(JSON::toCompactString(value)).stringView(), text.string);

  const Value root = read("{" + std::string(text.json) + ":1}");
  EXPECT_TRUE(root.dictionary().contains(text.string));
  EXPECT_TRUE(read(written(root)).dictionary().contains(text.string));
}

INSTANTIATE_TEST_SUITE_P(
    Strings, JSONStringTest,
    testing::Values(
        Text{R"("")", ""}, Text{R"("a b")", "a b"},
        Text{R"("\"\\\/\b\f\n\r\t")", "\"\\/\b\f\n\r\t"}, Text{R"("a\u0000b")", "a\0b"sv},
        Text{R"("\u0000")", "\0"sv}, Text{R"("\u001f\u007f")", "\x1f\x7f"},
        Text{R"("\u00e9")", "\xc3\xa9"}, Text{R"("\u20AC")", "\xe2\x82\xac"},
        Text{R"("\uD83D\uDE00")", "\xf0\x9f\x98\x80"},
        Text{R"("\udbff\udfff")", "\xf4\x8f\xbf\xbf"}, Text{R"("\ufeff")", "\xef\xbb\xbf"},
        Text{R"("\uffff")", "\xef\xbf\xbf"}, Text{"\"\xf0\x9f\x98\x80\"", "\xf0\x9f\x98\x80"},
        Text{"\"\xe2\x80\xa8\x7f\"", "\xe2\x80\xa8\x7f"}, Text{R"("[{,:}]//")", "[{,:}]//"}));

TEST(JSONReadTest, StringsThatAreNoneAreRefused) {
  auto texts =
      separated(R"t("\ud83d"  "\ude00"  "\ud83dx"  "\ud83d\n"  "\ud83d\u0041"  "\ud83d\ud83d"  )t"
                R"t("\ude00\ud83d"  "\ud83d\ude0"  "\x41"  "\a"  "\'"  "\u12"  "\u12g4"  )t"
                R"t("\u+123"  "\u 123"  "\U0041"  'a'  "a  "\")t");
  texts.insert(texts.end(), {"\"a\nb\"", "\"a\tb\"", "\"\x01\"", "\"\x1f\""});
  for (const auto& text : texts) {
    expectRefused("[" + std::string(text) + "]", JSONErrorCode::malformed);
    expectRefused("{" + std::string(text) + ":1}", JSONErrorCode::malformed);
  }
  expectRefused("[\"a\0b\"]"sv, JSONErrorCode::malformed);
}

TEST(JSONReadTest, TextThatIsNotUTF8IsRefused) {
  for (const std::string_view bytes :
       {"\x80", "\xff", "\xc3", "\xc0\x80", "\xc1\xbf", "\xe0\x80\x80", "\xed\xa0\x80",
        "\xed\xb0\x80", "\xf0\x80\x80\x80", "\xf4\x90\x80\x80", "\xf5\x80\x80\x80", "\xe2\x82",
        "\xf0\x9f\x98"}) {
    expectRefused("[\"" + std::string(bytes) + "\"]", JSONErrorCode::malformed);
    expectRefused("{\"" + std::string(bytes) + "\":1}", JSONErrorCode::malformed);
    expectRefused("[]" + std::string(bytes), JSONErrorCode::malformed);
  }
  expectRefused("\xff\xfe[\0]\0"sv, JSONErrorCode::malformed);  // UTF-16
}

// --- Reading: structure --------------------------------------------------------------------------

TEST(JSONReadTest, ReadsEveryKindInItsOrder) {
  const Value root = read(" { \"z\" : null , \"a\":[true,false,{}],\"m\":{\"k\":[]} }\r\n\t");
  std::string keys;
  for (const auto& entry : root.dictionary())
    keys += entry.key();
  EXPECT_EQ(keys, "zam");
  EXPECT_TRUE(root.dictionary()["z"].isNull());
  EXPECT_TRUE(root.dictionary().contains("z"));
  const Array& list = root.dictionary()["a"].array();
  ASSERT_EQ(list.size(), 3U);
  EXPECT_TRUE(list[0].isBoolean() && list[0].boolean());
  EXPECT_TRUE(list[1].isBoolean() && !list[1].boolean());
  EXPECT_TRUE(list[2].isDictionary() && list[2].dictionary().empty());
  EXPECT_TRUE(root.dictionary()["m"].dictionary()["k"].isArray());
}

TEST(JSONReadTest, OfEqualKeysTheLastCountsInThePlaceOfTheFirst) {
  const Value root = read(R"({"a":1,"b":2,"a":[3],"\u0061":4})");
  EXPECT_EQ(root, Value(Dictionary({{"a", 4}, {"b", 2}})));
  EXPECT_EQ(root.dictionary().begin()->key(), "a");
}

TEST(JSONReadTest, AByteOrderMarkIsPassedOver) {
  EXPECT_EQ(read("\xef\xbb\xbf[1]").array().size(), 1U);
  expectRefused("\xef\xbb\xbf\xef\xbb\xbf[1]", JSONErrorCode::malformed);
  expectRefused(" \xef\xbb\xbf[1]", JSONErrorCode::malformed);
  expectRefused("[1]\xef\xbb\xbf", JSONErrorCode::malformed);
  expectRefused("\xef\xbb\xbf", JSONErrorCode::malformed);
  expectRefused("\xef\xbb[1]", JSONErrorCode::malformed);
}

TEST(JSONReadTest, TextWithoutAValueIsRefused) {
  for (const std::string_view text : {""sv, " "sv, "\n\t\r "sv, "\0"sv}) {
    expectRefused(text, JSONErrorCode::malformed);
  }
  EXPECT_EQ(refusal("").localizedDescription(), "The JSON text is empty (line 1, column 1).");
  EXPECT_FALSE(JSON::read(Data()));
}

TEST(JSONReadTest, BareValuesAreRefused) {
  for (const std::string_view text :
       {"1", "-1.5", "\"a\"", "true", "false", "null", " 7 ", "1e400"}) {
    expectRefused(text, JSONErrorCode::bareValue);
  }
}

TEST(JSONReadTest, StructuresThatAreNoneAreRefused) {
  auto texts =
      separated(R"t([1,]  [,1]  [,]  [1,,2]  [1 2]  [1;2]  [1:2]  ["a":1]  [  ]  [[]  []]  [}  )t"
                R"t({]  {  }  {"a"}  {"a":}  {"a":1,}  {,}  {,"a":1}  {:1}  {"a" 1}  {"a",1}  )t"
                R"t({"a"::1}  {"a":1 "b":2}  {"a":1,,"b":2}  {1:2}  {a:1}  {null:1}  {[]:1}  )t"
                R"t({'a':1}  {"a":1]  [1}  [tru]  [truee]  [True]  [nul]  [nulll]  [n]  [n0ll]  )t"
                R"t([fals]  [falsee]  [true false]  [undefined]  [a]  [/**/]  [1]//  [1]#  )t"
                R"t(["a""b"]  ["a" "b"]  [[1][2]]  [{}{}]  {"a":{}"b":1}  @  \)t");
  texts.insert(texts.end(), {"[\\]", "[\v1]", "[\f1]", "[\xc2\xa0]"});
  for (const auto& text : texts) {
    expectRefused(text, JSONErrorCode::malformed);
  }
}

TEST(JSONReadTest, TextAfterTheValueIsRefused) {
  for (const std::string_view text : {"[]x"sv, "[] []"sv, "{}{}"sv, "[],"sv, "[1] 2"sv, "{} null"sv,
                                      "[]\0"sv, "[] \0"sv, "[]\"a\""sv, "{}:"sv, "[]]"sv}) {
    expectRefused(text, JSONErrorCode::malformed);
  }
}

constexpr std::string_view sample =
    R"( {"items": [{"engine": "eco_video", "updated": 18446744073709551615, "votes": -3,
    "rating": 4.5e0, "title": "\u0416 \ud83d\ude00\n\"x\"", "on": true, "off": false, "none": null,
    "long": 36893488147419103232, "list": [[], {}, [1, 2]]}], "é": "ü"} )";

TEST(JSONReadTest, ATextCutAnywhereIsRefused) {
  ASSERT_TRUE(JSON::read(dataOf(sample)));
  const std::size_t last = sample.find_last_of('}');
  for (std::size_t length = 0; length < sample.size(); ++length) {
    const bool isWhole = length > last;
    EXPECT_EQ(JSON::read(dataOf(sample.substr(0, length))).has_value(), isWhole) << length;
  }
}

TEST(JSONReadTest, ATextThatLostOneByteIsAnsweredWithinItsBounds) {
  // Allocates exactly the size of the text, so that AddressSanitizer detects reads past its end.
  for (std::size_t at = 0; at < sample.size(); ++at) {
    std::string text(sample);
    text.erase(at, 1);
    text.shrink_to_fit();
    const auto value = JSON::read(Data(text));
    EXPECT_TRUE(value || value.error().domain == kiv::JSONErrorDomain) << at;
  }
}

// --- Reading: depth and size ---------------------------------------------------------------------

TEST(JSONReadTest, NestsAsDeepAsTheLimitAndNoDeeper) {
  EXPECT_TRUE(JSON::read(dataOf(nested(JSON::deepestNesting))));
  EXPECT_TRUE(JSON::read(dataOf(nested(JSON::deepestNesting, "7"))));
  expectRefused(nested(JSON::deepestNesting + 1), JSONErrorCode::tooDeep);
  expectRefused(nested(1023), JSONErrorCode::tooDeep);
  expectRefused(nested(1024), JSONErrorCode::tooDeep);
  expectRefused(nested(1025), JSONErrorCode::tooDeep);
  expectRefused(nested(100'000), JSONErrorCode::tooDeep);
}

TEST(JSONReadTest, ObjectsNestAsDeepAsArrays) {
  std::string text = "7";
  for (int level = 0; level < JSON::deepestNesting; ++level)
    text = "{\"a\":" + text + "}";
  EXPECT_TRUE(JSON::read(dataOf(text)));
  expectRefused("{\"a\":" + text + "}", JSONErrorCode::tooDeep);
  expectRefused("[" + text + "]", JSONErrorCode::tooDeep);
}

TEST(JSONReadTest, DepthIsNotTheNumberOfNeighbours) {
  std::string text = "[[[]]";
  for (int neighbour = 0; neighbour < 5000; ++neighbour)
    text += ",[{}],{\"a\":[]}";
  EXPECT_EQ(read(text + "]").array().size(), 10001U);
}

TEST(JSONReadTest, AMillionOpeningBracketsAreRefused) {
  expectRefused(std::string(1'000'000, '['), JSONErrorCode::malformed);
  expectRefused(std::string(1'000'000, '[') + "]", JSONErrorCode::tooDeep);
  std::string objects;
  for (int level = 0; level < 1'000'000; ++level)
    objects += "{\"a\":";
  expectRefused(objects, JSONErrorCode::malformed);
  expectRefused(objects + "}", JSONErrorCode::tooDeep);
}

TEST(JSONReadTest, AHundredThousandKeysAreReadAndFound) {
  std::string text = "{";
  for (int key = 0; key < 100'000; ++key) {
    if (key != 0) text += ',';
    text += "\"key" + std::to_string(key) + "\":" + std::to_string(key);
  }
  const Value root = read(text + ",\"key7\":\"again\"}");
  EXPECT_EQ(root.dictionary().size(), 100'000U);
  EXPECT_EQ(root.dictionary()["key7"].stringView(), "again");
  EXPECT_EQ(root.dictionary()["key99999"].unsignedInteger(), 99'999U);
}

TEST(JSONReadTest, AHundredThousandObjectsShareTheirKeys) {
  std::string text = "[";
  for (int item = 0; item < 100'000; ++item) {
    if (item != 0) text += ',';
    text += R"({"engine":"eco_standard","updated":)" + std::to_string(item) + "}";
  }
  const Array list = read(text + "]").array();
  ASSERT_EQ(list.size(), 100'000U);
  EXPECT_EQ(list[99'999].dictionary()["updated"].unsignedInteger(), 99'999U);
  EXPECT_EQ(list[0].dictionary().begin()->key().data(),
            list[99'999].dictionary().begin()->key().data());
}

// --- Reading: where and why ----------------------------------------------------------------------

struct Located {
  std::string_view text;
  std::string_view message;
};

class JSONErrorTest : public testing::TestWithParam<Located> {};

TEST_P(JSONErrorTest, NamesCauseLineAndColumn) {
  EXPECT_EQ(refusal(GetParam().text).localizedDescription(), GetParam().message);
}

INSTANTIATE_TEST_SUITE_P(
    Errors, JSONErrorTest,
    testing::Values(
        Located{"[1,\n 2,\n  x]", "The JSON text is not well formed (line 3, column 3)."},
        Located{"[1,\n 1e400]",
                "The JSON text has a number that cannot be read (line 2, column 2)."},
        Located{"[\"a\",\n\"\\x\"]",
                "The JSON text has a string with a wrong escape (line 2, column 1)."},
        Located{"{\"a\":1,\n\"\\x\":2}",
                "The JSON text has a string with a wrong escape (line 2, column 1)."},
        Located{"[\n\"a\nb\"]",
                "The JSON text has a control character inside a string (line 2, column 3)."},
        Located{"[\n\"\xff\"]", "The JSON text is not valid UTF-8 (line 2, column 2)."},
        Located{"[\n\"abc\xf0\x9f\x98\"]", "The JSON text is not valid UTF-8 (line 2, column 5)."},
        Located{"[\"\xf0\x9f\x98\x80\xff\"]",
                "The JSON text is not valid UTF-8 (line 1, column 7)."},
        Located{"\xef\xbb\xbf[x]", "The JSON text is not well formed (line 1, column 2)."},
        Located{"[\n1]\n[]", "The JSON text goes on after its end (line 3, column 1)."},
        Located{"[1,\n\"a", "The JSON text ends inside a string (line 2, column 3)."},
        Located{"\n [1,\n2",
                "The JSON text does not end with the bracket that closes it (line 2, column 2)."},
        Located{"\n\n7",
                "The JSON text has neither an array nor an object at its top level "
                "(line 3, column 1)."}));

TEST(JSONReadTest, NestingTooDeepIsLocatedAtTheBracketTooMany) {
  EXPECT_EQ(refusal("\n" + nested(1001)).localizedDescription(),
            "The JSON text nests too deep (line 2, column 1001).");
}

// --- Writing -------------------------------------------------------------------------------------

TEST(JSONWriteTest, IsIndentedAndEndsInALineFeed) {
  EXPECT_EQ(written(Array()), "[]\n");
  EXPECT_EQ(written(Dictionary()), "{}\n");
  EXPECT_EQ(written(Array{Dictionary{{"b", 1}, {"a", Array{true, nullptr}}}, Array{}}),
            "[\n  {\n    \"b\": 1,\n    \"a\": [\n      true,\n      null\n    ]\n  },\n  []\n]\n");
}

TEST(JSONWriteTest, IsReadBackAsTheSameValue) {
  const Value value = read(sample);
  EXPECT_EQ(read(written(value)), value);
  EXPECT_EQ(written(read(written(value))), written(value));
}

TEST(JSONWriteTest, ControlCharactersAreEscaped) {
  EXPECT_EQ(JSON::toCompactString("a\0\x01\x1f\n\r\t\b\f\"\\/"sv),
            R"("a\u0000\u0001\u001f\n\u000d\t\u0008\u000c\"\\/")");
}

TEST(JSONWriteTest, FloatingNumbersKeepAFraction) {
  EXPECT_EQ(JSON::toCompactString(3.0), "3.0");
  EXPECT_EQ(JSON::toCompactString(-0.0), "-0.0");
  EXPECT_EQ(JSON::toCompactString(1e-7), "1e-07");
  EXPECT_EQ(JSON::toCompactString(0.1), "0.1");
  EXPECT_EQ(readElement(JSON::toCompactString(twoTo64)).kind(), Kind::floating);
}

TEST(JSONWriteTest, BareValuesAreRefused) {
  for (const Value& value : {Value(), Value(1), Value("a"), Value(true), Value(1.5)}) {
    const auto text = JSON::write(value);
    ASSERT_FALSE(text);
    EXPECT_EQ(text.error().code, static_cast<int>(JSONErrorCode::bareValue));
  }
}

void expectUnwritable(const Value& value) {
  const auto text = JSON::write(value);
  ASSERT_FALSE(text);
  EXPECT_EQ(text.error().domain, kiv::JSONErrorDomain);
  EXPECT_EQ(text.error().code, static_cast<int>(JSONErrorCode::unwritable));
}

TEST(JSONWriteTest, WhatHasNoJSONFormIsRefused) {
  expectUnwritable(Array{std::nan("")});
  expectUnwritable(Array{std::numeric_limits<double>::infinity()});
  expectUnwritable(Dictionary{{"a", Array{-std::numeric_limits<double>::infinity()}}});
  expectUnwritable(Array{"\xff"});
  expectUnwritable(Array{"\xed\xa0\x80"});
  expectUnwritable(Dictionary{{"\xff", 1}});
}

TEST(JSONWriteTest, NestsAsDeepAsTheLimitAndNoDeeper) {
  const Value deepest = nestedValue(JSON::deepestNesting);
  EXPECT_EQ(read(written(deepest)), deepest);
  expectUnwritable(nestedValue(JSON::deepestNesting + 1));
  expectUnwritable(Dictionary{{"a", deepest}});
}

TEST(JSONWriteTest, AValueNestedAMillionDeepIsRefusedNotACrash) {
  expectUnwritable(nestedValue(1'000'000));
}

// --- Describing ----------------------------------------------------------------------------------

TEST(JSONDescribeTest, IsOneLine) {
  EXPECT_EQ(JSON::toCompactString(Dictionary{{"a", Array{1, "x\ny"}}, {"b", Dictionary()}}),
            R"({"a": [1, "x\ny"], "b": {}})");
  EXPECT_EQ(JSON::toCompactString(Value()), "null");
  EXPECT_EQ(JSON::toCompactString("a"), "\"a\"");
}

TEST(JSONDescribeTest, WhatHasNoJSONFormIsNull) {
  EXPECT_EQ(JSON::toCompactString(std::nan("")), "null");
  EXPECT_EQ(JSON::toCompactString(Array{1, "\xff", std::numeric_limits<double>::infinity(), 2}),
            "[1, null, null, 2]");
  const std::string deepest = JSON::toCompactString(nestedValue(JSON::deepestNesting + 5));
  EXPECT_EQ(deepest, std::string(1000, '[') + "null" + std::string(1000, ']'));
}

// --- Temporaries ---------------------------------------------------------------------------------

/// The text of a list, too long for the small string optimization.
Data listText() {
  return Data(R"({"items":["a string too long to be held in place","b",["c"]]})");
}

TEST(JSONTest, ALoopOverATemporaryKeepsWhatItLoopsOver) {
  const std::vector<std::string> expected{"a string too long to be held in place", "b", ""};
  std::vector<std::string> strings;
  for (auto& item : (*JSON::read(listText())).dictionary()["items"].array())
    strings.push_back(item.string());
  EXPECT_EQ(strings, expected);
  strings.clear();
  for (auto& item : JSON::read(listText()).value_or(Value()).dictionary()["items"].array())
    strings.push_back(item.string());
  EXPECT_EQ(strings, expected);
  strings.clear();
  for (auto& item : (*JSON::read(listText())).dictionary()["items"].array()[2].array())
    strings.push_back(item.string());
  EXPECT_EQ(strings, std::vector<std::string>{"c"});
  std::size_t keys = 0;
  for (auto& entry : (*JSON::read(listText())).dictionary())
    keys += entry.key().size();
  EXPECT_EQ(keys, 5U);
}

}  // namespace
