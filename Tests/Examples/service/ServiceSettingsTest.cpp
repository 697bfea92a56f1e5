#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Examples/service/ServiceSettings.h"
#include "Tests/Examples/service/WrongSettings.h"
#include "Tests/Support/ReadFile.h"

namespace {

using namespace kiv::test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::string withMembers(const std::string& more) {
  return R"({"directory":"/d","configuration":"https://a.example/c.json","main":"https://a.example")" +
         more + "}";
}

TEST(ServiceSettingsTest, TheSampleIsValid) {
  const auto settings = ServiceSettings::read(readFile(SERVICE_SETTINGS));
  ASSERT_TRUE(settings) << settings.error().localizedDescription();
  EXPECT_EQ(settings->directory, "/var/lib/kivresource-service");
  EXPECT_EQ(settings->configuration.absoluteString(), "https://ads.example/config.json");
  ASSERT_EQ(settings->mirrors.size(), 1U);
  EXPECT_EQ(settings->interval, std::chrono::hours(1));
  EXPECT_EQ(settings->mainServer, "https://ads.example/files");
  EXPECT_EQ(settings->reserveServer, "https://mirror.example/files");
  EXPECT_EQ(settings->tokenFile, "/etc/kivresource-service/token");
  EXPECT_EQ(settings->limit, 2'000'000'000U);
  EXPECT_EQ(settings->trimRule, KivResourceTrimOptions::Rule::orphansOnly);
  EXPECT_EQ(settings->transfers.parallelTransfers, 3U);
  EXPECT_THAT(settings->origins(), ElementsAre("https://ads.example", "https://mirror.example",
                                               "https://ads.example", "https://mirror.example"));
}

TEST(ServiceSettingsTest, WhatIsLeftOutHasDefaults) {
  const auto settings = ServiceSettings::read(withMembers(""));
  ASSERT_TRUE(settings) << settings.error().localizedDescription();
  EXPECT_THAT(settings->mirrors, IsEmpty());
  EXPECT_EQ(settings->interval, std::chrono::hours(1));
  EXPECT_EQ(settings->reserveServer, std::nullopt);
  EXPECT_EQ(settings->tokenFile, "");
  EXPECT_EQ(settings->limit, std::nullopt);
  EXPECT_EQ(settings->trimRule, KivResourceTrimOptions::Rule::orphansOnly);
  EXPECT_EQ(settings->transfers.parallelTransfers,
            KivRESTService::defaultSettings().parallelTransfers);
}

TEST(ServiceSettingsTest, TheRuleIsTaken) {
  const auto settings =
      ServiceSettings::read(withMembers(R"(,"limit":1,"trimRule":"leastRecentlyShown")"));
  ASSERT_TRUE(settings) << settings.error().localizedDescription();
  EXPECT_EQ(settings->limit, 1U);
  EXPECT_EQ(settings->trimRule, KivResourceTrimOptions::Rule::leastRecentlyShown);
}

TEST(ServiceSettingsTest, TheErrorNamesTheWrongMember) {
  for (const auto& wrong : wrongSettings("/d")) {
    const auto settings = ServiceSettings::read(wrong.text);
    ASSERT_FALSE(settings) << wrong.text;
    EXPECT_THAT(settings.error().localizedDescription(), HasSubstr(wrong.message)) << wrong.text;
  }
}

}  // namespace
