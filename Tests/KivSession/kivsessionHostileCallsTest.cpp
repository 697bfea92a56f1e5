// Calls that a program may send by a mistake or with malice. Each is answered by one line of JSON,
// and the session keeps working.

#include <algorithm>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <vector>

#include <gtest/gtest.h>

#include "KivPlatform/Foundation/values/JSON.h"
#include "KivSession/kivsession.h"
#include "Tests/KivSession/OpenedSession.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace {

using namespace kiv::test;
using namespace std::string_literals;

std::string repeated(const std::string& text, std::size_t times) {
  std::string all;
  for (std::size_t time = 0; time < times; ++time)
    all += text;
  return all;
}

/// One line, complete JSON, and fit for a terminal.
void expectLine(const std::string& line) {
  const auto value = kiv::JSON::read(line);
  ASSERT_TRUE(value) << line.substr(0, 500);
  EXPECT_TRUE(value->isDictionary());
  EXPECT_TRUE(std::none_of(line.begin(), line.end(), [](char character) {
    return static_cast<unsigned char>(character) < ' ';
  })) << line.substr(0, 500);
}

class kivsessionHostileCallsTest : public testing::Test {
 protected:
  /// The answer to a call without a tag.
  std::string answerTo(const std::string& call) {
    EXPECT_EQ(session_.send(call), KIVSESSION_OK);
    EXPECT_EQ(session_.send(R"({"call":"setDomains","tag":"next"})"), KIVSESSION_OK);
    const auto lines = session_.receiveUpTo("next");
    EXPECT_EQ(lines.size(), 2u) << call.substr(0, 500);
    for (const auto& line : lines)
      expectLine(line);
    return lines.front();
  }
  void expectError(const std::string& call) {
    const auto line = answerTo(call);
    EXPECT_TRUE(line.starts_with(R"({"error":")")) << call.substr(0, 500) << line.substr(0, 500);
  }

  const TemporaryDirectory directory_;
  const OpenedSession session_{directory_.path("root")};
};

TEST_F(kivsessionHostileCallsTest, WhatIsNoCallIsAnError) {
  for (const std::string call : {"",
                                 " ",
                                 "\n",
                                 "{",
                                 "}",
                                 "null",
                                 "5",
                                 "\"state\"",
                                 "[]",
                                 "{}",
                                 "{}{}",
                                 "{\"call\":\"state\"}\n{}",
                                 "{'call':'state'}",
                                 "{\"call\":\"state\",}",
                                 R"({"call":null})",
                                 R"({"call":["state"]})",
                                 R"({"call":"State"})",
                                 R"({"call":""})",
                                 R"({"call":"state\u0000"})",
                                 R"({"Call":"state"})",
                                 R"({"call":"a\"b\\\n\u001b[31m\u2028"})",
                                 "{\"call\":\"sta\nte\"}",
                                 "\xef\xbb\xbf{\"call\":\"none\"}",
                                 "// {\"call\":\"state\"}",
                                 R"({"call":"sleep","ms":1e400})",
                                 R"({"call":"sleep","ms":-1})",
                                 R"({"call":"sleep","ms":"1"})",
                                 R"({"call":"sleep","ms":true})",
                                 R"({"call":"sleep"})",
                                 R"({"call":"waitForFinish","timeout_ms":null})",
                                 R"({"call":"setDomains","main":1})",
                                 R"({"call":"reportProgress"})",
                                 R"({"call":"reportProgress","enabled":"yes"})",
                                 R"({"call":"reportPasses","enabled":[]})",
                                 R"({"call":"revalidate","id":7})",
                                 R"({"call":"revalidate","type":[]})",
                                 R"({"call":"follow"})",
                                 R"({"call":"follow","url":"http://\u0000/c.json"})",
                                 R"({"call":"follow","url":"http://a/","mirrors":[[[]]]})",
                                 R"({"call":"follow","url":"http://a/","interval_s":-1e400})",
                                 R"({"call":"follow","url":"http://a/","jitter":1e400})",
                                 R"({"call":"checkNow"})",
                                 R"({"call":"setBandwidth","bytesPerSecond":-1e400})",
                                 R"({"call":"answerRequests","enabled":0})",
                                 R"({"call":"sendRequest","request":1e400})",
                                 R"({"call":"sendRequest","request":1,"headers":[]})",
                                 R"({"call":"refuseRequest","request":0})",
                                 R"({"call":"allowTransfers"})",
                                 R"({"call":"cleanUpOrphans","dryRun":0})",
                                 R"({"call":"trim"})",
                                 R"({"call":"trim","bytes":1e400,"resources":5})",
                                 R"({"call":"setSettings"})",
                                 R"({"call":"setSettings","settings":{"threads":1e300}})",
                                 R"({"call":"setSettings","settings":{"\u0000":1}})",
                                 R"({"call":"setSettings","settings":[]})",
                                 R"({"call":"loadResourcesForConfig"})",
                                 R"({"call":"loadResourcesForConfig","config":[]})",
                                 R"({"call":"loadResourceWithID","id":5,"config":null})",
                                 R"({"call":"state","tag":null})",
                                 R"({"call":"state","tag":[1]})",
                                 R"({"call":"state","tag":{"a":1}})",
                                 R"({"call":"state","tag":true})"})
    expectError(call);
}

TEST_F(kivsessionHostileCallsTest, BytesThatAreNoUTF8AreAnError) {
  for (const std::string bytes :
       {"\xff", "\xc0\xaf", "\xed\xa0\x80", "\xf4\x90\x80\x80", "\xe2\x82", "\x80"}) {
    expectError(R"({"call":")" + bytes + "\"}");
    expectError(R"({"call":"state","tag":")" + bytes + "\"}");
    expectError(R"({"call":"loadedResourcesWithID","id":")" + bytes + "\"}");
    expectError(bytes);
  }
  expectError(R"({"call":"state","tag":"\ud800"})");
}

TEST_F(kivsessionHostileCallsTest, DeepNestingIsAnError) {
  constexpr std::size_t depth = 1'000'000;
  expectError(std::string(depth, '['));
  expectError(repeated("{\"a\":", depth));
  expectError(R"({"call":"loadResourcesForConfig","config":)" + repeated("{\"a\":", depth) + "1" +
              std::string(depth, '}') + "}");
  expectError(R"({"call":"state","tag":)" + std::string(depth, '[') + std::string(depth, ']') +
              "}");
}

TEST_F(kivsessionHostileCallsTest, TenMegabytesAreTaken) {
  constexpr std::size_t size = 10'000'000;
  expectError(std::string(size, ' '));
  expectError(std::string(size, '"'));
  expectError(R"({"call":")" + std::string(size, 'a') + "\"}");
  const auto tag = repeated("\\\"", size / 2);
  EXPECT_EQ(answerTo(R"({"call":"setDomains","tag":")" + tag + "\"}"),
            R"({"result":"setDomains","tag":")" + tag + "\"}");
  EXPECT_EQ(answerTo(R"({"call":"loadedResourcesWithID","id":")" + std::string(size, 'i') + "\"}"),
            R"({"result":"loadedResourcesWithID","resources":[]})");
}

TEST_F(kivsessionHostileCallsTest, ATagComesBackAsItIs) {
  for (const std::string tag :
       {R"("")", R"("\"}\n{")", R"("\u0000")", R"("\u001f")", R"("\\\"")", "\"\xf0\x9f\x98\x80\"",
        "0", "-1", "1.5", "18446744073709551615", "-9223372036854775808"}) {
    const auto line = answerTo(R"({"call":"setDomains","tag":)" + tag + "}");
    const auto value = kiv::JSON::read(line);
    const auto sent = kiv::JSON::read("[" + tag + "]");
    ASSERT_TRUE(value && sent);
    EXPECT_EQ(value->dictionary()["tag"], sent->array()[0]) << line;
    EXPECT_TRUE(line.find("\"tag\":") != std::string::npos && line.ends_with("}")) << line;
  }
}

TEST_F(kivsessionHostileCallsTest, APathThatIsNoConfigurationIsAnError) {
  const auto empty = directory_.write("empty", "");
  const auto noObject = directory_.write("array.json", "[]");
  const auto broken = directory_.write("broken.json", "{\"items\":[\xff]}");
  for (const std::string& path :
       {directory_.path(), directory_.path("absent"), empty, noObject, broken, "/dev/null"s,
        "/proc/self/mem"s, std::string(5000, 'a'), ""s})
    expectError(R"({"call":"loadResourcesForConfig","config":")" + path + "\"}");
  expectError(R"({"call":"loadResourcesForConfig","config":"/dev/null\u0000.json"})");
}

TEST_F(kivsessionHostileCallsTest, APathThatNeverEndsIsAnErrorAndDoesNotHoldUpTheSession) {
  const auto pipe = directory_.path("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  for (const std::string& path : {pipe, "/dev/zero"s, "/dev/full"s})
    expectError(R"({"call":"loadResourcesForConfig","config":")" + path + "\"}");
}

TEST_F(kivsessionHostileCallsTest, ConfigurationsOfStrangeItemsAreTaken) {
  for (
      const std::string items :
      {"[null,true,5,\"a\",[],{}]", "{}", "null", R"([{"engine":5}])",
       R"([{"engine":"eco_standard","banner_id":"../../a","image_728x90":"../../../etc/passwd","updated":-1}])",
       R"([{"engine":"eco_fs","html":"a\u0000b.zip","name":"\u001b[31m","updated":1e308}])"}) {
    EXPECT_EQ(session_.send(R"({"call":"updateResourcesForConfig","config":{"items":)" + items +
                            R"(},"tag":"call"})"),
              KIVSESSION_OK);
    EXPECT_EQ(session_.send(R"({"call":"waitForFinish","tag":"over"})"), KIVSESSION_OK);
    for (const auto& line : session_.receiveUpTo("over"))
      expectLine(line);
    EXPECT_TRUE(session_.answers());
  }
  EXPECT_TRUE(std::filesystem::exists("/etc/passwd"));
}

TEST_F(kivsessionHostileCallsTest, ManyCallsMayWait) {
  constexpr int calls = 20'000;
  for (int call = 0; call < calls; ++call)
    ASSERT_EQ(session_.send("{"), KIVSESSION_OK);
  for (int call = 0; call < calls; ++call)
    ASSERT_TRUE(session_.receive());
  EXPECT_FALSE(session_.receive(0));
}

}  // namespace
