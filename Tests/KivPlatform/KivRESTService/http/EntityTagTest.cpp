#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "KivPlatform/KivRESTService/http/HeaderFields.h"
// Both use the functions under test: neither accepts an invalid tag.
#include "KivPlatform/KivRESTService/http/ResponseCheck.h"
#include "KivPlatform/KivRESTService/partial/PartialBody.h"
#include "Tests/KivPlatform/KivRESTService/ClientFixture.h"

namespace {

using namespace kiv::test;
using namespace std::string_view_literals;

struct Case {
  const char* name;
  std::string_view text;
  bool isProper;
};

void PrintTo(const Case& testCase, std::ostream* out) {
  *out << testCase.name;
}

constexpr auto nameOf = [](const auto& testCase) { return std::string(testCase.param.name); };

class EntityTags : public testing::TestWithParam<Case> {};

TEST_P(EntityTags, AreThoseOfTheGrammar) {
  EXPECT_EQ(kiv::isEntityTag(GetParam().text), GetParam().isProper);
  const bool isWeak = std::string_view(GetParam().text).starts_with("W/");
  EXPECT_EQ(kiv::isStrongEntityTag(GetParam().text), GetParam().isProper && !isWeak);
}

INSTANTIATE_TEST_SUITE_P(
    All, EntityTags,
    testing::Values(Case{"Plain", "\"a\"", true}, Case{"Empty", "\"\"", true},
                    Case{"Weak", "W/\"a\"", true}, Case{"WeakAndEmpty", "W/\"\"", true},
                    Case{"Punctuation", "\"!#$%&'()*+,-./:;<=>?@[\\]^_`{|}~\"", true},
                    Case{"BytesBeyondASCII", "\"\x80\xc3\xa4\xff\"", true},
                    Case{"Nothing", "", false}, Case{"OneQuote", "\"", false},
                    Case{"NoQuotes", "a", false}, Case{"NoQuoteAtTheStart", "a\"", false},
                    Case{"NoQuoteAtTheEnd", "\"a", false}, Case{"QuoteWithin", "\"a\"b\"", false},
                    Case{"TwoTags", "\"a\",\"b\"", false}, Case{"BlankWithin", "\"a b\"", false},
                    Case{"BlankBefore", " \"a\"", false}, Case{"BlankAfter", "\"a\" ", false},
                    Case{"Tabulator", "\"a\tb\"", false},
                    Case{"CarriageReturn", "\"a\rX-Injected: yes\"", false},
                    Case{"LineFeed", "\"a\nX-Injected: yes\"", false},
                    Case{"BothBehind", "\"a\"\r\nX-Injected: \"yes\"", false},
                    Case{"NUL", "\"a\0b\""sv, false}, Case{"Escape", "\"a\x1b\"", false},
                    Case{"Delete", "\"a\x7f\"", false}, Case{"LowerCaseWeak", "w/\"a\"", false},
                    Case{"WeakWithoutTag", "W/", false}, Case{"WeakWithoutQuotes", "W/a", false},
                    Case{"WeakTwice", "W/W/\"a\"", false}),
    nameOf);

class DateCharacters : public testing::TestWithParam<Case> {};

TEST_P(DateCharacters, AreThoseOfTheGrammar) {
  EXPECT_EQ(kiv::hasCharactersOfDate(GetParam().text), GetParam().isProper);
}

INSTANTIATE_TEST_SUITE_P(
    All, DateCharacters,
    testing::Values(Case{"Fixed", "Sun, 06 Nov 1994 08:49:37 GMT", true},
                    Case{"Obsolete", "Sunday, 06-Nov-94 08:49:37 GMT", true},
                    Case{"Asctime", "Sun Nov  6 08:49:37 1994", true}, Case{"Nothing", "", false},
                    Case{"CarriageReturn", "Sun, 06 Nov 1994 08:49:37 GMT\rX-Injected: yes", false},
                    Case{"LineFeed", "Sun, 06 Nov 1994 08:49:37 GMT\nX: y", false},
                    Case{"NUL", "Sun, 06 Nov 1994 08:49:37 GMT\0"sv, false},
                    Case{"Tabulator", "Sun,\t06 Nov 1994 08:49:37 GMT", false},
                    Case{"BeyondASCII", "Sun, 06 N\xc3\xb6v 1994 08:49:37 GMT", false}),
    nameOf);

/// An entity tag or date from the server, in a response that is cut off.
class InjectedHeader : public ClientFixture, public testing::WithParamInterface<const char*> {};

TEST_P(InjectedHeader, IsNotSentBack) {
  server_.serve("/a",
                Response::raw("HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n" +
                              std::string(GetParam()) + "\r\n\r\n" + std::string(60'000, 'x')));
  spool();
  ASSERT_TRUE(loaded().hasEnded());
  const auto requests = server_.requests("/a");
  ASSERT_EQ(requests.size(), 3U);
  for (const auto& request : requests) {
    EXPECT_FALSE(request.header("X-Injected"));
    EXPECT_FALSE(request.header("If-Range"));
    EXPECT_FALSE(request.header("Range"));
  }
}

INSTANTIATE_TEST_SUITE_P(
    All, InjectedHeader,
    testing::Values("ETag: \"a\rX-Injected: yes\"",
                    "Last-Modified: Sun, 06 Nov 1994 08:49:37 GMT\rX-Injected: yes"));

TEST(PartialRecordTest, AVersionThatMayNotBeSentIsNotBelieved) {
  kiv::PartialRecord record;
  record.url = record.finalURL = std::string("http://a.test/");
  record.length = 100;
  record.version.entityTag = "\"1\"";
  EXPECT_TRUE(kiv::PartialRecord::fromText(record.text()));
  record.version.entityTag = "\"1\r\nX-Injected: yes\"";
  EXPECT_FALSE(kiv::PartialRecord::fromText(record.text()));
  record.version = {"", "Sun, 06 Nov 1994 08:49:37 GMT\r\nX-Injected: yes"};
  EXPECT_FALSE(kiv::PartialRecord::fromText(record.text()));
  record.version.entityTag = "W/\"1\"";
  EXPECT_FALSE(kiv::PartialRecord::fromText(record.text())) << "a weak tag is no validator";
}

}  // namespace
