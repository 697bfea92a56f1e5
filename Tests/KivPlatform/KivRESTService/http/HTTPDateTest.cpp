#include <string>

#include <gtest/gtest.h>

#include "KivPlatform/KivRESTService/http/HTTPDate.h"

namespace {

using std::chrono::seconds;

constexpr const char* newYear = "Wed, 01 Jan 2025 00:00:00 GMT";
constexpr std::int64_t newYearSeconds = 1735689600;

TEST(HTTPDate, IsReadInItsThreeForms) {
  EXPECT_EQ(kiv::secondsFromHTTPDate(newYear), newYearSeconds);
  EXPECT_EQ(kiv::secondsFromHTTPDate("Wednesday, 01-Jan-25 00:00:00 GMT"), newYearSeconds);
  EXPECT_EQ(kiv::secondsFromHTTPDate("Wed Jan  1 00:00:00 2025"), newYearSeconds);
}

TEST(HTTPDate, WhatIsNoneIsNothing) {
  EXPECT_EQ(kiv::secondsFromHTTPDate(""), std::nullopt);
  EXPECT_EQ(kiv::secondsFromHTTPDate("yesterday"), std::nullopt);
  EXPECT_EQ(kiv::secondsFromHTTPDate("Wed, 99 Jan 2025 00:00:00 GMT"), std::nullopt);
}

TEST(RetryAfter, HoldsSecondsOrADate) {
  EXPECT_EQ(kiv::waitFromRetryAfter("0", {}), seconds(0));
  EXPECT_EQ(kiv::waitFromRetryAfter("120", {}), seconds(120));
  EXPECT_EQ(kiv::waitFromRetryAfter(newYear, newYearSeconds - 30), seconds(30));
}

TEST(RetryAfter, ADateThatIsPastAsksForNoWait) {
  EXPECT_EQ(kiv::waitFromRetryAfter(newYear, newYearSeconds + 30), seconds(0));
  EXPECT_EQ(kiv::waitFromRetryAfter(newYear, {}), seconds(0));  // of this computer's clock
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
