// Malformed and extreme saved lists and configurations, passed through the whole manager. Each one
// loads or fails with the error of the JSON reader. None may crash, hang or exhaust the stack when
// it is read, copied or saved again.

#include <initializer_list>
#include <limits>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include "KivPlatform/Foundation/values/JSON.h"
#include "KivResource/KivResourceFactory.h"
#include "KivResource/KivResourceStorageModule.h"
#include "Tests/Support/ManagerFixture.h"
#include "Tests/Support/ResourceItems.h"

namespace kiv::test {
namespace {

using namespace std::string_literals;
using testing::ElementsAre;
using testing::IsEmpty;

struct Piece {
  std::string text;
  std::size_t times = 1;
};

/// A text in pieces, joined only by the test that uses it: each start of the test program creates
/// all parameters, and some texts have megabytes.
class Text {
 public:
  Text(const char* text) : pieces_{{text}} {}
  Text(std::string text) : pieces_{{std::move(text)}} {}
  Text(std::initializer_list<Piece> pieces) : pieces_(pieces) {}

  /// This text with `before` in front of it and `behind` after it.
  [[nodiscard]] Text within(std::string before, std::string behind) const {
    Text whole = *this;
    whole.pieces_.insert(whole.pieces_.begin(), Piece{std::move(before)});
    whole.pieces_.push_back({std::move(behind)});
    return whole;
  }

  [[nodiscard]] std::string string() const {
    std::string all;
    for (const auto& [text, times] : pieces_) {
      all.reserve(all.size() + text.size() * times);
      for (std::size_t i = 0; i < times; ++i)
        all += text;
    }
    return all;
  }

 private:
  std::vector<Piece> pieces_;
};

/// One document, used both as a saved list and as the items of a configuration.
struct Document {
  friend void PrintTo(const Document& document, std::ostream* stream) { *stream << document.title; }

  std::string title;
  Text text;  ///< of an array of items
  std::optional<JSONErrorCode> refusal = {};
  std::size_t resources = 1;
};

constexpr const char* itemStart =
    R"({"engine":"other","name":"n","type":"t","banner_id":"b","priority":1,"updated":1,"x":)";

/// An item that needs no files, with an additional value.
std::string itemWith(std::string_view value) {
  return itemStart + std::string(value) + "}";
}
/// An array of one such item.
Text listWith(const Text& value) {
  return value.within(std::string("[") + itemStart, "}]");
}

Document accepted(std::string title, const Text& value) {
  return {std::move(title), listWith(value)};
}
Document refused(std::string title, const Text& value,
                 JSONErrorCode code = JSONErrorCode::malformed) {
  return {std::move(title), listWith(value), code, 0};
}

/// A value nested that many levels deep. The list around it adds two levels, a configuration three.
Text nested(std::size_t levels) {
  return {{"[", levels}, {"]", levels}};
}
Text nestedObjects(std::size_t levels) {
  return {{R"({"a":)", levels}, {"1"}, {"}", levels}};
}

Text manyCopies() {
  return {{"[" + itemWith("1")}, {"," + itemWith("[{}]"), 999}, {"]"}};
}

std::vector<Document> documents() {
  const auto deepest = std::size_t{JSON::deepestNesting} - 3;
  return {
      accepted("Plain", "1"),
      {"Empty", "[]", std::nullopt, 0},
      {"Nothing", "", JSONErrorCode::malformed, 0},
      {"Blank", " \n\t ", JSONErrorCode::malformed, 0},
      {"NoText", "\0\0\0\0"s, JSONErrorCode::malformed, 0},
      {"Cut", "[" + itemWith("1"), JSONErrorCode::malformed, 0},
      {"CommaAtTheEnd", "[" + itemWith("1") + ",]", JSONErrorCode::malformed, 0},
      {"SomethingBehind", "[" + itemWith("1") + "]x", JSONErrorCode::malformed, 0},
      {"NulBehind", "[" + itemWith("1") + "]\0"s, JSONErrorCode::malformed, 0},
      {"MarkOfUTF16", "\xff\xfe[\0]\0"s, JSONErrorCode::malformed, 0},
      {"OtherElements", "[1,null,\"x\",[{}],{}," + itemWith("1") + ",true]"},
      {"ManyCopies", manyCopies(), std::nullopt, 1000},
      accepted("NestedToTheLimit", nested(deepest)),
      accepted("ObjectsNestedToTheLimit", nestedObjects(deepest)),
      refused("NestedBeyondTheLimit", nested(deepest + 2), JSONErrorCode::tooDeep),
      refused("ObjectsNestedBeyondTheLimit", nestedObjects(deepest + 2), JSONErrorCode::tooDeep),
      refused("NestedAMillionDeep", nested(1'000'000), JSONErrorCode::tooDeep),
      refused("ObjectsNestedAMillionDeep", nestedObjects(1'000'000), JSONErrorCode::tooDeep),
      refused("NeverClosed", {{"[{\"a\":", 500'000}}, JSONErrorCode::tooDeep),
      refused("NoUTF8", "\"\xff\""),
      refused("CutUTF8", "\"\xe2\x82\""),
      refused("OverlongUTF8", "\"\xc0\xaf\""),
      refused("SurrogateInUTF8", "\"\xed\xa0\x80\""),
      refused("BeyondUnicode", "\"\xf5\x80\x80\x80\""),
      refused("LoneHighSurrogate", R"("\ud800")"),
      refused("LoneLowSurrogate", R"("\udc00")"),
      refused("HighSurrogateTwice", R"("\ud800\ud800")"),
      accepted("SurrogatePair", R"("\ud83d\ude00")"),
      accepted("NulInAString", R"("a\u0000b")"),
      refused("NulByteInAString", "\"a\0b\""s),
      accepted("NulInAKey", R"({"a\u0000b":1,"a":2})"),
      accepted("EmptyKey", R"({"":{"":[]}})"),
      accepted("EqualKeys", R"(1,"x":2,"x":{"x":3,"x":4})"),
      accepted("EqualRequiredKeys", R"(1,"banner_id":17,"banner_id":"b")"),
      {"EqualKeysOfWhichTheLastIsNoGood", "[" + itemWith(R"(1,"banner_id":17)") + "]", std::nullopt,
       0},
      accepted("LargestInteger", "18446744073709551615"),
      accepted("IntegerBeyond64Bits", "18446744073709551616"),
      accepted("IntegerBelow64Bits", "-9223372036854775809"),
      accepted("IntegerOfAThousandDigitsBehindAPoint", {{"0."}, {"7", 1000}}),
      refused("IntegerOfAThousandDigits", {{"7", 1000}}),
      refused("BeyondDoubles", "1e400"),
      accepted("BelowDoubles", "1e-400"),
      accepted("MinusZero", "-0"),
      accepted("MinusZeroPointZero", "-0.0"),
      refused("NotANumber", "NaN"),
      refused("Infinity", "Infinity"),
      refused("MinusInfinity", "-Infinity"),
      refused("LeadingZero", "01"),
      refused("LeadingPlus", "+1"),
      refused("Hexadecimal", "0x10"),
      refused("SingleQuotes", "'a'"),
      refused("Comment", "1/* */"),
      accepted("AMillionCharacters", {{"\""}, {"x", 1'000'000}, {"\""}}),
      accepted("AHundredThousandValues", {{"[0"}, {",0", 99'999}, {"]"}}),
  };
}

class HostileDocumentsTest : public ManagerFixture, public testing::WithParamInterface<Document> {
 protected:
  /// Expects that the registry can be copied and saved, and is equal after a restart.
  void expectLoadedAndLasting(std::size_t count) {
    const Array dictionaries = registryDictionaries();
    EXPECT_EQ(dictionaries.size(), count);
    EXPECT_EQ(manager->allLoadedResources().size(), count);
    manager->saveLoadedResorcesList();
    restart();
    EXPECT_TRUE(registryDictionaries() == dictionaries);
  }

  [[nodiscard]] Array registryDictionaries() const {
    Array dictionaries;
    for (const auto& resource : *manager->loadedResources())
      dictionaries.append(*resource->resourceDictionary());
    return dictionaries;
  }
};

TEST_P(HostileDocumentsTest, AsTheSavedListItLoadsOrFailsWithTheReadersError) {
  const Document& document = GetParam();
  write(listPath(), document.text.string());
  std::optional<Error> error;
  const auto list = KivResourceStorageModule::loadResourcesListWithError(&error);
  ASSERT_TRUE(list);
  EXPECT_EQ(error.has_value(), document.refusal.has_value());
  if (error) {
    EXPECT_EQ(error->domain, JSONErrorDomain);
    EXPECT_EQ(error->code, static_cast<int>(document.refusal.value()));
    EXPECT_THAT(*list, IsEmpty());
  }
  restart();
  expectLoadedAndLasting(document.resources);
}

TEST_P(HostileDocumentsTest, AsAConfigurationItLoadsOrFailsWithTheReadersError) {
  const Document& document = GetParam();
  const auto configuration = JSON::read(Data("{\"items\":" + document.text.string() + "}"));
  EXPECT_EQ(!configuration, document.refusal.has_value());
  if (!configuration) {
    EXPECT_EQ(configuration.error().domain, JSONErrorDomain);
    return;  // the code can differ from that of the list, because of the object around "items"
  }
  EXPECT_EQ(KivResourceFactory::resourcesArrayForResourcesConfig(*configuration).size(),
            document.resources);
  manager->updateResourcesForConfig(*configuration);
  const Events events = takeEvents();
  EXPECT_EQ(events.size(), document.resources + 1);
  EXPECT_EQ(events.back(), "finished");
  expectLoadedAndLasting(document.resources);
}

INSTANTIATE_TEST_SUITE_P(Documents, HostileDocumentsTest, testing::ValuesIn(documents()),
                         [](const auto& test) { return test.param.title; });

// --- The whole text ------------------------------------------------------------------------------

class HostileTextsTest : public HostileDocumentsTest {};

// A document that is not an array, or not a list at all.
INSTANTIATE_TEST_SUITE_P(Lists, HostileTextsTest,
                         testing::Values(Document{"Object", "{}"}, Document{"Number", "7"},
                                         Document{"String", "\"x\""}, Document{"Null", "null"}),
                         [](const auto& test) { return test.param.title; });

TEST_P(HostileTextsTest, AListThatIsNoArrayIsAnEmptyOne) {
  write(listPath(), GetParam().text.string());
  std::optional<Error> error;
  const auto list = KivResourceStorageModule::loadResourcesListWithError(&error);
  ASSERT_TRUE(list && error);
  EXPECT_THAT(*list, IsEmpty());
  const bool isObject = GetParam().title == "Object";
  EXPECT_EQ(error->domain, isObject ? KivResourceStorageModuleErrorDomain : JSONErrorDomain);
  EXPECT_EQ(error->code, isObject ? 110 : static_cast<int>(JSONErrorCode::bareValue));
  restart();
  EXPECT_THAT(registry(), IsEmpty());
}

TEST_F(HostileDocumentsTest, AByteOrderMarkBeforeAListOrAConfigurationIsPassedOver) {
  const std::string mark = "\xef\xbb\xbf";
  write(listPath(), mark + "[" + itemWith("1") + "]");
  restart();
  expectLoadedAndLasting(1);
  const auto configuration = JSON::read(Data(mark + "{\"items\":[" + itemWith("2") + "]}"));
  ASSERT_TRUE(configuration);
  manager->loadResourcesForConfig(*configuration);
  EXPECT_THAT(takeEvents(), ElementsAre("loaded b", "finished"));
  write(listPath(), mark + mark + "[]");
  std::optional<Error> error;
  (void)KivResourceStorageModule::loadResourcesListWithError(&error);
  EXPECT_TRUE(error) << "a second mark is text";
}

TEST_F(HostileDocumentsTest, AHundredMegabytesAreReadCopiedAndSaved) {
  constexpr std::size_t megabyte = 1'000'000;
  constexpr std::size_t zeros = 500'000;
  const Text value{{"\""}, {"x", 20 * megabyte}, {"\",\"y\":[0"}, {",0", zeros}, {"]"}};
  std::string item = itemWith(value.string());
  std::string text = std::string(80 * megabyte, ' ') + "[" + std::exchange(item, "") + "]";
  ASSERT_GT(text.size(), 100 * megabyte);
  write(listPath(), text);
  restart();
  ASSERT_THAT(registry(), ElementsAre("b"));
  const auto copies = manager->allLoadedResources();
  EXPECT_EQ(copies.at(0)->resourceDictionary()->operator[]("y").array().size(), zeros + 1);
  manager->saveLoadedResorcesList();
  EXPECT_LT(std::filesystem::file_size(listPath()), text.size()) << "was not saved";
  restart();
  EXPECT_THAT(registry(), ElementsAre("b"));

  text.pop_back();  // the closing bracket
  write(listPath(), text);
  std::optional<Error> error;
  (void)KivResourceStorageModule::loadResourcesListWithError(&error);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain, JSONErrorDomain);
  text.insert(0, "{\"items\":");
  text += "]}";
  auto configuration = JSON::read(Data(std::move(text)));
  ASSERT_TRUE(configuration);
  manager->updateResourcesForConfig(*configuration);
  EXPECT_THAT(takeEvents(), ElementsAre("loaded b", "finished"));
}

// --- Numbers -------------------------------------------------------------------------------------

struct Reading {
  friend void PrintTo(const Reading& reading, std::ostream* stream) { *stream << reading.text; }

  const char* text;
  std::uint64_t value;
};

class HostileNumbersTest : public ManagerFixture, public testing::WithParamInterface<Reading> {};

constexpr std::uint64_t largest = std::numeric_limits<std::uint64_t>::max();

INSTANTIATE_TEST_SUITE_P(
    Numbers, HostileNumbersTest,
    testing::Values(Reading{"0", 0}, Reading{"-0", 0}, Reading{"-0.0", 0}, Reading{"3.9", 3},
                    Reading{"0.999", 0}, Reading{"-1", largest}, Reading{"-0.5", 0},
                    Reading{"-1.5", largest}, Reading{"true", 1}, Reading{"false", 0},
                    Reading{"1e-400", 0}, Reading{"1e3", 1000},
                    Reading{"18446744073709551615", largest},
                    Reading{"18446744073709551616", largest}, Reading{"1e300", largest},
                    Reading{"99999999999999999999999999", largest},
                    Reading{"9007199254740993", 9007199254740993},
                    Reading{"-9223372036854775808", std::uint64_t{1} << 63},
                    Reading{"-9223372036854775809", std::uint64_t{1} << 63},
                    Reading{"-1e300", std::uint64_t{1} << 63}));

TEST_P(HostileNumbersTest, AreReadAlikeFromConfigurationAndList) {
  const std::string item =
      R"({"engine":"other","name":"n","type":"t","banner_id":"b","priority":)" +
      std::string(GetParam().text) + R"(,"updated":)" + GetParam().text + "}";
  const auto configuration = JSON::read(Data("{\"items\":[" + item + "]}"));
  ASSERT_TRUE(configuration);
  manager->loadResourcesForConfig(*configuration);
  ASSERT_THAT(takeEvents(), ElementsAre("loaded b", "finished"));
  for (int start = 0; start < 2; ++start) {
    const auto resource = manager->loadedResourcesWithID("b").at(0);
    EXPECT_EQ(resource->priority(), GetParam().value);
    EXPECT_EQ(resource->updated(), GetParam().value);
    restart();
  }
}

// --- Values that JSON cannot express -------------------------------------------------------------

TEST_F(HostileDocumentsTest, WhatCannotBeSavedIsLoadedAndLeavesTheFormerList) {
  Value deep(1);
  for (int level = 0; level < 100'000; ++level) {
    Array array;
    array.append(std::exchange(deep, Value()));
    deep = Value(std::move(array));
  }
  const std::vector<Value> values{deep, std::numeric_limits<double>::quiet_NaN(),
                                  std::numeric_limits<double>::infinity(), Value("\xff")};
  load({plain("kept", 1)});
  const std::string list = read(listPath());
  for (const Value& value : values) {
    beginLoad({with(plain("odd", 1), "x", value)});
    EXPECT_THAT(takeEvents(), ElementsAre("loaded odd", "finished"));
    EXPECT_EQ(manager->allLoadedResources().size(), 2U);
    EXPECT_EQ(read(listPath()), list);
    restart();
    EXPECT_THAT(registry(), ElementsAre("kept"));
  }
}

}  // namespace
}  // namespace kiv::test
