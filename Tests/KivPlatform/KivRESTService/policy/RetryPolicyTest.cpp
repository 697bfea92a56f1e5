#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "KivPlatform/KivRESTService/policy/RetryPolicy.h"
#include "KivPlatform/KivRESTService/policy/TransferSettings.h"

namespace {

using namespace std::chrono_literals;
using Code = KivRESTServiceErrorCode;
using std::chrono::milliseconds;

TEST(RetryPolicy, StatusesThatMayPass) {
  for (const int status : {408, 429, 500, 502, 503, 504})
    EXPECT_TRUE(kiv::isRetryable(status)) << status;
  for (const int status :
       {101, 200, 204, 206, 301, 304, 400, 401, 403, 404, 410, 416, 501, 505, 599})
    EXPECT_FALSE(kiv::isRetryable(status)) << status;
}

TEST(RetryPolicy, ErrorsThatMayPass) {
  for (const Code code : {Code::cannotConnect, Code::timedOut, Code::connectionLost})
    EXPECT_TRUE(kiv::isRetryable(code)) << static_cast<int>(code);
  for (const Code code :
       {Code::unknown, Code::unsupportedURL, Code::cannotResolveHost, Code::malformedResponse,
        Code::secureConnectionFailed, Code::tooManyRedirects, Code::refusedRedirect,
        Code::bodyTooLarge, Code::outOfResources, Code::unsupportedRequest})
    EXPECT_FALSE(kiv::isRetryable(code)) << static_cast<int>(code);
}

class RetryPolicyTest : public testing::Test {
 protected:
  std::vector<milliseconds> waits(int failures, std::optional<milliseconds> asked = {}) {
    kiv::RetryPolicy policy(settings_, 7);
    std::vector<milliseconds> waits(2000);
    std::generate(waits.begin(), waits.end(), [&] { return policy.wait(failures, asked); });
    return waits;
  }
  milliseconds longest(int failures) {
    const auto all = waits(failures);
    return *std::max_element(all.begin(), all.end());
  }

  kiv::TransferSettings settings_;
};

TEST_F(RetryPolicyTest, TheBoundDoublesWithEachFailure) {
  // The longest of 2,000 random delays is near the limit, and none exceeds it.
  EXPECT_LE(longest(1), 500ms);
  EXPECT_GE(longest(1), 480ms);
  EXPECT_LE(longest(2), 1000ms);
  EXPECT_GE(longest(2), 960ms);
  EXPECT_LE(longest(3), 2000ms);
  EXPECT_GE(longest(3), 1920ms);
}

TEST_F(RetryPolicyTest, TheJitterIsFull) {
  const auto all = waits(2);
  const auto below = std::count_if(all.begin(), all.end(), [](auto wait) { return wait < 500ms; });
  EXPECT_GT(below, 900);
  EXPECT_LT(below, 1100);
  EXPECT_LT(*std::min_element(all.begin(), all.end()), 20ms);
}

TEST_F(RetryPolicyTest, NoWaitIsLongerThanTheLongest) {
  settings_.longestRetryDelay = 3000ms;
  EXPECT_LE(longest(60), 3000ms);
  EXPECT_GE(longest(60), 2900ms);
}

TEST_F(RetryPolicyTest, WithoutADelayThereIsNone) {
  settings_.firstRetryDelay = 0ms;
  EXPECT_EQ(longest(5), 0ms);
}

TEST_F(RetryPolicyTest, SenselessSettingsDoNotBreakIt) {
  settings_.firstRetryDelay = -5ms;
  settings_.longestRetryDelay = -7ms;
  EXPECT_EQ(longest(3), 0ms);
}

TEST_F(RetryPolicyTest, TheServersWishIsObeyedUpToABound) {
  settings_.longestRetryAfter = 60s;
  for (const auto wait : waits(1, 20s))
    EXPECT_EQ(wait, 20s);
  for (const auto wait : waits(1, 3600s))
    EXPECT_EQ(wait, 60s);
}

TEST_F(RetryPolicyTest, AShortWishDoesNotShortenTheWait) {
  const auto with = waits(3, 0ms);
  EXPECT_EQ(with, waits(3));
}

}  // namespace
