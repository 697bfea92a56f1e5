#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "KivSession/OpenSettings.h"

namespace {

using kiv::session::OpenSettings;
using namespace std::string_literals;

TEST(OpenSettingsTest, TakesTheRootAlone) {
  const auto settings = OpenSettings::read(R"({"root":"/r"})");
  ASSERT_TRUE(settings) << settings.error().description();
  EXPECT_EQ(settings->root, "/r");
  EXPECT_EQ(settings->mainURL, std::nullopt);
  EXPECT_EQ(settings->reserveURL, std::nullopt);
  EXPECT_EQ(settings->resources, std::nullopt);
  EXPECT_TRUE(settings->transfers.empty());
}

TEST(OpenSettingsTest, TakesEverything) {
  const auto settings =
      OpenSettings::read(R"({"root":"/r","main":"http://a","reserve":"http://b","resources":"/p",)"
                         R"("settings":{"threads":1}})");
  ASSERT_TRUE(settings) << settings.error().description();
  EXPECT_EQ(settings->mainURL, "http://a");
  EXPECT_EQ(settings->reserveURL, "http://b");
  EXPECT_EQ(settings->resources, "/p");
  EXPECT_EQ(settings->transfers, (kiv::Dictionary{{"threads", 1}}));
}

TEST(OpenSettingsTest, FilesElsewhereAreAcceptedOnlyIfItSaysSo) {
  const auto rootsOf = [](const std::string& more) {
    const auto settings = OpenSettings::read(R"({"root":"/r")" + more + "}");
    return settings ? settings->lookupRoots : std::vector<std::string>{"not valid"};
  };
  EXPECT_EQ(rootsOf(""), std::vector<std::string>());
  EXPECT_EQ(rootsOf(R"(,"lookupRoots":[])"), std::vector<std::string>());
  EXPECT_EQ(rootsOf(R"(,"lookupRoots":["/a","/b"])"), (std::vector<std::string>{"/a", "/b"}));
  EXPECT_EQ(rootsOf(R"(,"lookupRoots":null)"), std::nullopt);
}

TEST(OpenSettingsTest, AServerMayBeNull) {
  const auto settings = OpenSettings::read(R"({"root":"/r","main":null,"reserve":null})");
  ASSERT_TRUE(settings) << settings.error().description();
  EXPECT_EQ(settings->mainURL, std::nullopt);
}

TEST(OpenSettingsTest, ErrorsNameTheMember) {
  const std::vector<std::pair<std::string, std::string>> cases{
      {"", "The JSON text is empty (line 1, column 1)."},
      {"[]", "the settings are to be a JSON object"},
      {"{}", R"(there is no "root")"},
      {R"({"root":null})", R"("root" is to be an absolute path)"},
      {R"({"root":""})", R"("root" is to be an absolute path)"},
      {R"({"root":"here"})", R"("root" is to be an absolute path)"},
      {R"({"root":"/a\u0000b"})", R"("root" is to be an absolute path)"},
      {R"({"root":"/r","resources":null})", R"("resources" is to be an absolute path)"},
      {R"({"root":"/r","main":5})", R"("main" is to be a URL)"},
      {R"({"root":"/r","reserve":"http://a\u0000"})", R"("reserve" is to be a URL)"},
      {R"({"root":"/r","lookupRoots":"/a"})",
       R"("lookupRoots" is to be an array of absolute paths, or null)"},
      {R"({"root":"/r","lookupRoots":["/a","b"]})",
       R"("lookupRoots" is to be an array of absolute paths, or null)"},
      {R"({"root":"/r","lookupRoots":[5]})",
       R"("lookupRoots" is to be an array of absolute paths, or null)"},
      {R"({"root":"/r","settings":[]})", R"("settings" is to be an object)"},
      {R"({"root":"/r","Main":"http://a"})", R"("Main" is unknown)"},
      {R"({"root":"/r","a\nb":1})", R"("a\x0ab" is unknown)"},
      {R"({"root":"/r","settings":{"threads":0}})",
       R"(the setting "threads" is to be a whole number from 1 to 64)"},
  };
  for (const auto& [text, message] : cases) {
    const auto settings = OpenSettings::read(text);
    ASSERT_FALSE(settings) << text;
    EXPECT_EQ(settings.error().localizedDescription(), message) << text;
  }
}

}  // namespace
