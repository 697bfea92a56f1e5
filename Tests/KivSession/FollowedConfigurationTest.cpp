#include <chrono>
#include <string>

#include <gtest/gtest.h>

#include "KivSession/FollowedConfiguration.h"

namespace kiv::session {
namespace {

Result<FollowedConfiguration> reading(const std::string& members) {
  const auto call = JSON::read("{" + members + "}");
  EXPECT_TRUE(call) << members;
  return FollowedConfiguration::read(call->dictionary());
}

void expectProblem(const std::string& members, const std::string& problem) {
  const auto read = reading(members);
  ASSERT_FALSE(read) << members.substr(0, 200);
  EXPECT_EQ(read.error().localizedDescription(), problem) << members.substr(0, 200);
}

const std::string url = R"("url":"http://127.0.0.1/c.json")";

TEST(FollowedConfigurationTest, TheDefaultsAreThoseOfTheUpdater) {
  const auto read = reading(url);
  ASSERT_TRUE(read);
  EXPECT_EQ(read->url.absoluteString(), "http://127.0.0.1/c.json");
  EXPECT_TRUE(read->options.mirrors.empty());
  EXPECT_EQ(read->options.interval, std::chrono::hours(1));
  EXPECT_EQ(read->options.jitter, 0.1);
  EXPECT_TRUE(read->options.usesSavedConfiguration);
}

TEST(FollowedConfigurationTest, EveryMemberIsRead) {
  const auto read =
      reading(R"("url":"HTTPS://u:p@[::1]:8443/c?a=b#d","mirrors":["http://a/","https://b/c"],)"
              R"("interval_s":31536000,"jitter":1,"usesSavedConfiguration":false,"more":7)");
  ASSERT_TRUE(read);
  EXPECT_EQ(read->url.absoluteString(), "HTTPS://u:p@[::1]:8443/c?a=b#d");
  ASSERT_EQ(read->options.mirrors.size(), 2U);
  EXPECT_EQ(read->options.mirrors[0].absoluteString(), "http://a/");
  EXPECT_EQ(read->options.mirrors[1].absoluteString(), "https://b/c");
  EXPECT_EQ(read->options.interval, std::chrono::hours(24 * 365));
  EXPECT_EQ(read->options.jitter, 1);
  EXPECT_FALSE(read->options.usesSavedConfiguration);
}

TEST(FollowedConfigurationTest, TheLeastNumbersAreTaken) {
  const auto read = reading(url + R"(,"mirrors":[],"interval_s":0,"jitter":0.0)");
  ASSERT_TRUE(read);
  EXPECT_EQ(read->options.interval, std::chrono::seconds(0));
  EXPECT_EQ(read->options.jitter, 0);
}

TEST(FollowedConfigurationTest, WhatCannotBeFetchedIsNoURL) {
  expectProblem("", R"("url" is to be an http or https URL)");
  for (const std::string value : {"null",
                                  "7",
                                  "true",
                                  "[]",
                                  "{}",
                                  R"([" http://a/"])",
                                  R"("")",
                                  R"("c.json")",
                                  R"("/etc/passwd")",
                                  R"("file:///etc/passwd")",
                                  R"("ftp://a/c.json")",
                                  R"("http:")",
                                  R"("http://")",
                                  R"("http:///c.json")",
                                  R"("http:c.json")",
                                  R"("//a/c.json")",
                                  R"("http://a b/")",
                                  R"(" http://a/")",
                                  R"("http://a/\n")",
                                  R"("http://a/\u0000")",
                                  R"("http://a:99999/")",
                                  R"("http://a/%")",
                                  R"("http://ä/")",
                                  R"("javascript:alert")"}) {
    expectProblem("\"url\":" + value, R"("url" is to be an http or https URL)");
    expectProblem(url + R"(,"mirrors":["http://a/",)" + value + "]",
                  R"("mirrors" is to be an array of http or https URLs)");
  }
  expectProblem(R"("url":")" + std::string(1'000'000, 'a') + "\"",
                R"("url" is to be an http or https URL)");
}

TEST(FollowedConfigurationTest, MirrorsAreAnArray) {
  for (const std::string value : {"null", "7", "{}", R"("http://a/")"}) {
    expectProblem(url + ",\"mirrors\":" + value,
                  R"("mirrors" is to be an array of http or https URLs)");
  }
}

TEST(FollowedConfigurationTest, AnIntervalIsAWholeNumberUpToAYear) {
  for (const std::string value :
       {"null", "true", "\"1\"", "[]", "-1", "0.5", "3600.5", "31536001", "18446744073709551615",
        "-9223372036854775808", "1e300", "-1e300"}) {
    expectProblem(url + ",\"interval_s\":" + value,
                  R"("interval_s" is to be a whole number from 0 to 31536000)");
  }
}

TEST(FollowedConfigurationTest, AJitterIsAFraction) {
  for (const std::string value : {"null", "true", "\"0.1\"", "{}", "-0.1", "1.1", "2", "1e300"}) {
    expectProblem(url + ",\"jitter\":" + value, R"("jitter" is to be a number from 0 to 1)");
  }
}

TEST(FollowedConfigurationTest, WhetherTheSavedOneIsUsedIsABoolean) {
  for (const std::string value : {"null", "1", "0", "\"true\"", "[]"}) {
    expectProblem(url + ",\"usesSavedConfiguration\":" + value,
                  R"("usesSavedConfiguration" is to be true or false)");
  }
}

}  // namespace
}  // namespace kiv::session
