// Settings as JSON.

#include <limits>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "KivPlatform/Foundation/values/JSON.h"
#include "KivPlatform/Foundation/values/Result.h"
#include "KivPlatform/Foundation/values/Value.h"
#include "KivPlatform/KivRESTService/KivRESTServiceSettings.h"

namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;

kiv::Result<KivRESTServiceSettings> read(std::string_view text) {
  return KivRESTServiceSettings::fromDictionary((*kiv::JSON::read(text)).dictionary(), {});
}

TEST(KivRESTServiceSettingsJSONTest, ReadsWhatItWrites) {
  KivRESTServiceSettings settings;
  settings.parallelTransfers = 9;
  settings.threads = 3;
  settings.bandwidth = 123'456'789'012;
  settings.connectTimeout = 1500ms;
  settings.deadline = 90s;
  settings.triesPerServer = 5;
  settings.largestBody = 0;
  settings.takesBodiesWithoutLength = true;
  settings.followsRedirectsToPrivateAddresses = true;
  settings.spoolDirectory = "/s";
  settings.largestPartials = 7;
  settings.proxy = "";
  settings.certificateAuthoritiesPath = "/c";
  settings.userAgent = "é";
  settings.http2 = false;
  const auto dictionary = settings.dictionary();
  const auto read = KivRESTServiceSettings::fromDictionary(dictionary, {});
  ASSERT_TRUE(read) << read.error().description();
  EXPECT_EQ(read->dictionary(), dictionary);
  EXPECT_EQ(read->parallelTransfers, 9U);
  EXPECT_EQ(read->bandwidth, 123'456'789'012);
  EXPECT_EQ(read->connectTimeout, 1500ms);
  EXPECT_EQ(read->deadline, 90s);
  EXPECT_EQ(read->proxy, "");
  EXPECT_EQ(read->userAgent, "é");
  EXPECT_FALSE(read->http2);
  for (const auto& entry : KivRESTServiceSettings().dictionary()) {
    EXPECT_FALSE(dictionary[entry.key()] == entry.value) << entry.key() << " is not the default";
  }
}

TEST(KivRESTServiceSettingsJSONTest, KeepsWhatIsNotNamed) {
  KivRESTServiceSettings base;
  base.threads = 3;
  base.userAgent = "host";
  const auto settings = KivRESTServiceSettings::fromDictionary({{"threads", 1}}, base);
  ASSERT_TRUE(settings);
  EXPECT_EQ(settings->threads, 1U);
  EXPECT_EQ(settings->userAgent, "host");
}

TEST(KivRESTServiceSettingsJSONTest, AWholeNumberMayHaveAPoint) {
  ASSERT_TRUE(read(R"({"threads":2.0})"));
  EXPECT_EQ((*read(R"({"deadline_s":1e2})")).deadline, 100s);
}

TEST(KivRESTServiceSettingsJSONTest, TheProxyOfTheEnvironmentIsNull) {
  KivRESTServiceSettings base;
  base.proxy = "http://p";
  EXPECT_EQ((*KivRESTServiceSettings::fromDictionary({{"proxy", nullptr}}, base)).proxy,
            std::nullopt);
  EXPECT_TRUE(KivRESTServiceSettings().dictionary()["proxy"].isNull());
}

TEST(KivRESTServiceSettingsJSONTest, ErrorsNameTheFirstMember) {
  const auto whole = [](const std::string& least, const std::string& most) {
    return "is to be a whole number from " + least + " to " + most;
  };
  const std::vector<std::pair<std::string, std::string>> cases{
      {R"({"Threads":2})", R"(the setting "Threads" is unknown)"},
      {R"({"threads":0})", R"(the setting "threads" )" + whole("1", "64")},
      {R"({"threads":65})", R"(the setting "threads" )" + whole("1", "64")},
      {R"({"threads":1.5})", R"(the setting "threads" )" + whole("1", "64")},
      {R"({"threads":-1})", R"(the setting "threads" )" + whole("1", "64")},
      {R"({"threads":true})", R"(the setting "threads" )" + whole("1", "64")},
      {R"({"threads":"2"})", R"(the setting "threads" )" + whole("1", "64")},
      {R"({"threads":1e300})", R"(the setting "threads" )" + whole("1", "64")},
      {R"({"bandwidth":18446744073709551615})",
       R"(the setting "bandwidth" )" + whole("0", "9007199254740991")},
      {R"({"bandwidth":9007199254740992})",
       R"(the setting "bandwidth" )" + whole("0", "9007199254740991")},
      {R"({"connectTimeout_ms":null})",
       R"(the setting "connectTimeout_ms" )" + whole("1", "86400000")},
      {R"({"http2":1})", R"(the setting "http2" is to be true or false)"},
      {R"({"userAgent":null})", R"(the setting "userAgent" is to be a string)"},
      {R"({"userAgent":"a\u0000b"})", R"(the setting "userAgent" is to be a string)"},
      {R"({"userAgent":"a\r\nX: b"})", R"(the setting "userAgent" is to be a string)"},
      {R"({"spoolDirectory":"s"})",
       R"(the setting "spoolDirectory" is to be an absolute path, or empty)"},
      {R"({"certificateAuthoritiesPath":"c/d"})",
       R"(the setting "certificateAuthoritiesPath" is to be an absolute path, or empty)"},
      {R"({"proxy":5})", R"(the setting "proxy" is to be a string or null)"},
      {R"({"http2":0,"threads":0})", R"(the setting "threads" )" + whole("1", "64")},
  };
  for (const auto& [text, message] : cases) {
    const auto settings = read(text);
    ASSERT_FALSE(settings) << text;
    EXPECT_EQ(settings.error().localizedDescription(), message) << text;
  }
}

TEST(KivRESTServiceSettingsJSONTest, TheLimitsAreAccepted) {
  EXPECT_EQ((*read(R"({"bandwidth":9007199254740991})")).bandwidth, 9'007'199'254'740'991);
  EXPECT_EQ((*read(R"({"threads":64})")).threads, 64U);
  EXPECT_EQ((*read(R"({"deadline_s":0})")).deadline, 0s);
}

}  // namespace
