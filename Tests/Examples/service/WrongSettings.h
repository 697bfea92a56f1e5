#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kiv::test {

/// A text that is no valid settings, and what the error says.
struct WrongSettings {
  std::string text;
  std::string message;
};

/// Settings for that directory, each with one mistake.
inline std::vector<WrongSettings> wrongSettings(const std::string& directory) {
  const std::string place = R"("directory":")" + directory + "\"";
  const std::string config = R"("configuration":"http://127.0.0.1:1/c.json")";
  const std::string main = R"("main":"http://127.0.0.1:1")";
  const std::string valid = place + "," + config + "," + main;
  const auto with = [&](std::string_view member) {
    return "{" + valid + "," + std::string(member) + "}";
  };
  const std::string wholeNumber = "is to be a whole number from 1 to ";
  return {
      {"", "JSON"},
      {"{" + valid, "JSON"},
      {"[]", "JSON object"},
      {"{" + config + "," + main + "}", R"("directory" is missing)"},
      {"{" + place + "," + main + "}", R"("configuration" is missing)"},
      {"{" + place + "," + config + "}", R"("main" is missing)"},
      {R"({"directory":"var",)" + config + "," + main + "}",
       R"("directory" is to be an absolute path)"},
      {R"({"directory":7,)" + config + "," + main + "}",
       R"("directory" is to be an absolute path)"},
      {R"({"directory":"/a\u0000b",)" + config + "," + main + "}",
       R"("directory" is to be an absolute path)"},
      {"{" + place + R"(,"configuration":"c.json",)" + main + "}",
       R"("configuration" is to be an http or https URL)"},
      {"{" + place + R"(,"configuration":"file:///c.json",)" + main + "}",
       R"("configuration" is to be an http or https URL)"},
      {"{" + place + R"(,"configuration":null,)" + main + "}",
       R"("configuration" is to be an http or https URL)"},
      {"{" + place + "," + config + R"(,"main":"http://"})",
       R"("main" is to be an http or https URL)"},
      {with(R"("reserve":"ftp://a.example")"), R"("reserve" is to be an http or https URL)"},
      {with(R"("mirrors":"http://a.example")"), R"("mirrors" is to be an array of URLs)"},
      {with(R"("mirrors":["http://a.example", 1])"), R"("mirrors" is to be an http or https URL)"},
      {with(R"("interval_s":0)"), R"("interval_s" )" + wholeNumber},
      {with(R"("interval_s":-5)"), R"("interval_s" )" + wholeNumber},
      {with(R"("interval_s":1.5)"), R"("interval_s" )" + wholeNumber},
      {with(R"("interval_s":"60")"), R"("interval_s" )" + wholeNumber},
      {with(R"("interval_s":true)"), R"("interval_s" )" + wholeNumber},
      {with(R"("interval_s":31536001)"), R"("interval_s" )" + wholeNumber + "31536000"},
      {with(R"("tokenFile":"token")"), R"("tokenFile" is to be an absolute path)"},
      {with(R"("tokenFile":"")"), R"("tokenFile" is to be an absolute path)"},
      {with(R"("limit":0)"), R"("limit" )" + wholeNumber},
      {with(R"("limit":"1 GB")"), R"("limit" )" + wholeNumber},
      {with(R"("trimRule":"orphansOnly")"), R"("limit" is missing)"},
      {with(R"("limit":1,"trimRule":"oldest")"), R"("trimRule" is to be "orphansOnly" or )"},
      {with(R"("limit":1,"trimRule":null)"), R"("trimRule" is to be "orphansOnly" or )"},
      {with(R"("transfers":[])"), R"("transfers" is to be an object)"},
      {with(R"("transfers":{"threads":"two"})"), R"("transfers" is wrong: )"},
      {with(R"("transfers":{"speed":1})"), "speed"},
      {with(R"("intervall_s":60)"), R"("intervall_s" is unknown)"},
      {with(R"("token":"secret")"), R"("token" is unknown)"},
  };
}

}  // namespace kiv::test
