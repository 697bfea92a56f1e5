#include <locale>
#include <string>

#include <gtest/gtest.h>

#include "KivPlatform/KivRESTService/http/HeaderFields.h"

namespace {

using std::chrono::seconds;

constexpr const char* newYear = "Wed, 01 Jan 2025 00:00:00 GMT";
constexpr std::int64_t newYearSeconds = 1735689600;

struct Comma : std::numpunct<char> {
  char do_thousands_sep() const override { return ','; }
  std::string do_grouping() const override { return "\1"; }
};

TEST(HTTPDate, IsReadInItsThreeForms) {
  EXPECT_EQ(kiv::secondsFromHTTPDate(newYear), newYearSeconds);
  EXPECT_EQ(kiv::secondsFromHTTPDate("Wednesday, 01-Jan-25 00:00:00 GMT"), newYearSeconds);
  EXPECT_EQ(kiv::secondsFromHTTPDate("Wed Jan  1 00:00:00 2025"), newYearSeconds);
}

TEST(HTTPDate, WhatIsNoneIsNothing) {
  EXPECT_EQ(kiv::secondsFromHTTPDate(""), std::nullopt);
  EXPECT_EQ(kiv::secondsFromHTTPDate("yesterday"), std::nullopt);
  for (const char* const text :
       {"Wed, 99 Jan 2025 00:00:00 GMT", "Fri, 31 Feb 2025 00:00:00 GMT",
        "Wed, 01 Jan 2025 24:00:00 GMT", "Wed, 01 Jan 2025 00:00:00 GMT and more",
        "Wed, 01 Jan 2025 00:00:00", "Wed, 01 Jan 2025", "Wed, 01 Jan 2025 00:00:00 gmt",
        " Wed, 01 Jan 2025 00:00:00 GMT", "Wed, 1 Jan 2025 00:00:00 GMT",
        "Wed, 31 Dec 1969 23:59:59 GMT", "Wed, 01 Jan 99999 00:00:00 GMT"}) {
    EXPECT_EQ(kiv::secondsFromHTTPDate(text), std::nullopt) << text;
  }
}

TEST(HTTPDate, AYearOfTwoDigitsIsOfThisCenturyOrTheLast) {
  EXPECT_EQ(kiv::secondsFromHTTPDate("Sunday, 06-Nov-94 08:49:37 GMT"), 784111777);
  EXPECT_EQ(kiv::secondsFromHTTPDate("Thursday, 29-Feb-24 00:00:00 GMT"), 1709164800);
}

// The host may have set another locale.
TEST(HTTPDate, IsReadInEnglishWhateverTheLocale) {
  const std::locale before = std::locale::global(std::locale(std::locale::classic(), new Comma));
  EXPECT_EQ(kiv::secondsFromHTTPDate(newYear), newYearSeconds);
  std::locale::global(before);
}

TEST(RetryAfter, HoldsSecondsOrADate) {
  EXPECT_EQ(kiv::waitFromRetryAfter("0", {}), seconds(0));
  EXPECT_EQ(kiv::waitFromRetryAfter("120", {}), seconds(120));
  EXPECT_EQ(kiv::waitFromRetryAfter(newYear, newYearSeconds - 30), seconds(30));
}

TEST(RetryAfter, ADateThatIsPastAsksForNoWait) {
  EXPECT_EQ(kiv::waitFromRetryAfter(newYear, newYearSeconds + 30), seconds(0));
  EXPECT_EQ(kiv::waitFromRetryAfter(newYear, {}), seconds(0));  // by the clock of this machine
}

TEST(RetryAfter, NeverAsksForMoreThanAYear) {
  const seconds year{366LL * 24 * 3600};
  EXPECT_EQ(kiv::waitFromRetryAfter("99999999999", {}), year);
  EXPECT_EQ(kiv::waitFromRetryAfter("99999999999999999999999999", {}), year);
  EXPECT_EQ(kiv::waitFromRetryAfter("18446744073709551615", {}), year);
}

TEST(RetryAfter, NonsenseIsNothing) {
  for (const char* const text : {"", "soon", "-5", "5s", "1.5"})
    EXPECT_EQ(kiv::waitFromRetryAfter(text, {}), std::nullopt) << text;
}

}  // namespace
