// Responses over HTTP/2 that are torn, and connections that end. What HTTP/2 does not deliver whole
// is requested again over HTTP/1.1, where the server of these tests sends another body.

#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Tests/KivPlatform/KivRESTService/ClientFixture.h"
#include "Tests/Support/HTTP2Server.h"

namespace {

using namespace kiv::test;
using namespace kiv::test::http2;
using Code = KivRESTServiceErrorCode;
using Then = HTTP2Answer::Then;

const std::string plainBody = "over HTTP/1.1";

std::string plainResponse(std::string_view body) {
  return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
         std::string(body);
}

std::string answerPlainly(std::string_view) {
  return plainResponse(plainBody);
}

std::string answerPlainlyWithACutBody(std::string_view) {
  return "HTTP/1.1 200 OK\r\nContent-Length: x\r\n\r\n";
}

class KivRESTServiceHTTP2 : public ClientFixture {
 protected:
  KivRESTServiceHTTP2() {
    settings_.http2 = true;
    settings_.threads = 1;
  }

  void trust(const HTTP2Server& server) {
    settings_.certificateAuthoritiesPath = server.certificatePath();
  }
};

// --- Single responses ----------------------------------------------------------------------------

constexpr std::uint32_t stream = 1;

struct HTTP2Case {
  const char* name;
  HTTP2Answer answer;
};

void PrintTo(const HTTP2Case& testCase, std::ostream* out) {
  *out << testCase.name;
}

std::string nameOf(const testing::TestParamInfo<HTTP2Case>& testCase) {
  return testCase.param.name;
}

const std::string five = headersOfLength(stream, 5);
const std::string unknown = headersWithoutLength(stream);

std::vector<HTTP2Case> wholeResponses() {
  return {
      {"Whole", {wholeResponse(stream, "12345")}},
      {"EndedByAnEmptyFrame", {five + data(stream, "12345") + data(stream, "", endStream)}},
      {"EndedByTrailers",
       {five + data(stream, "12345") +
        frame(Type::headers, endHeaders | endStream, stream, std::string("\0\1x\1y", 5))}},
      {"AfterAnInterimResponse",
       {headers(stream, {{":status", "103"}}) + wholeResponse(stream, "12345")}},
      {"ThenGoAway", {wholeResponse(stream, "12345") + goAway(stream, Error::none), Then::close}},
      {"ThenEnd", {wholeResponse(stream, "12345"), Then::closeUnannounced}},
  };
}

std::vector<HTTP2Case> tornWithLength() {
  const std::string part = five + data(stream, "123");
  return {
      {"Short", {five + data(stream, "123", endStream)}},
      {"Empty", {headers(stream, {{":status", "200"}, {"content-length", "5"}}, endStream)}},
      {"Long", {five + data(stream, "1234567", endStream)}},
      {"ResetWithNoError", {part + reset(stream, Error::none)}},
      {"ResetWithNoErrorLater", {part, Then::goOn, reset(stream, Error::none)}},
      {"ResetWithCancelLater", {part, Then::goOn, reset(stream, Error::cancel)}},
      {"GoAwayLater", {part, Then::close, goAway(stream, Error::none)}},
      {"EndOfStreamLater", {part, Then::goOn, data(stream, "", endStream)}},
      {"ResetWithInternalError", {part + reset(stream, Error::internal)}},
      {"ResetWithCancel", {part + reset(stream, Error::cancel)}},
      {"End", {part, Then::closeUnannounced}},
      {"AnnouncedEnd", {part, Then::close}},
      {"GoAway", {part + goAway(stream, Error::none), Then::close}},
      {"GoAwayBeforeTheStream", {goAway(0, Error::none), Then::close}},
      {"GoAwayWithError", {part + goAway(stream, Error::internal), Then::close}},
      {"GoAwayAndUnannouncedEnd", {part + goAway(stream, Error::none), Then::closeUnannounced}},
      {"TwoLengths",
       {headers(stream, {{":status", "200"}, {"content-length", "5"}, {"content-length", "3"}}) +
        data(stream, "12345", endStream)}},
  };
}

std::vector<HTTP2Case> tornWithoutLength() {
  const std::string part = unknown + data(stream, "123");
  return {
      {"Ended", {unknown + data(stream, "12345", endStream)}},
      {"Empty", {headers(stream, {{":status", "200"}}, endStream)}},
      {"ResetWithNoError", {part + reset(stream, Error::none)}},
      {"ResetWithNoErrorLater", {part, Then::goOn, reset(stream, Error::none)}},
      {"ResetWithCancelLater", {part, Then::goOn, reset(stream, Error::cancel)}},
      {"GoAwayLater", {part, Then::close, goAway(stream, Error::none)}},
      {"EndOfStreamLater", {part, Then::goOn, data(stream, "", endStream)}},
      {"ResetWithInternalError", {part + reset(stream, Error::internal)}},
      {"ResetWithCancel", {part + reset(stream, Error::cancel)}},
      {"End", {part, Then::closeUnannounced}},
      {"AnnouncedEnd", {part, Then::close}},
      {"GoAway", {part + goAway(stream, Error::none), Then::close}},
      {"GoAwayAndUnannouncedEnd", {part + goAway(stream, Error::none), Then::closeUnannounced}},
  };
}

std::vector<HTTP2Case> noResponses() {
  return {
      {"ResetWithNoError", {reset(stream, Error::none)}},
      {"ResetWithInternalError", {reset(stream, Error::internal)}},
      {"Refused", {reset(stream, Error::refusedStream)}},
      {"End", {"", Then::closeUnannounced}},
      {"AnnouncedEnd", {"", Then::close}},
      {"AFrameThatIsNone", {std::string("HTTP/1.1 200 OK\r\n\r\n"), Then::close}},
      {"DataOfNoStream", {frame(Type::data, 0, 0, "12345")}},
      {"DataBeforeHeaders", {data(stream, "12345", endStream)}},
      {"NoStatus", {headers(stream, {{"content-length", "5"}}) + data(stream, "12345", endStream)}},
      {"OnlyAnInterimResponse", {headers(stream, {{":status", "103"}}, endStream)}},
  };
}

class WholeOverHTTP2 : public KivRESTServiceHTTP2, public testing::WithParamInterface<HTTP2Case> {};

TEST_P(WholeOverHTTP2, IsTaken) {
  HTTP2Server server([&](const HTTP2Request&) { return GetParam().answer; }, answerPlainly);
  trust(server);
  const Load load = loaded(server.url("/a"));
  EXPECT_EQ(load.body(), "12345") << load.message();
  EXPECT_EQ(load.task()->metrics().tries, 1);
  EXPECT_EQ(server.plainRequests(), 0U);
}

INSTANTIATE_TEST_SUITE_P(Responses, WholeOverHTTP2, testing::ValuesIn(wholeResponses()), nameOf);

class TornOverHTTP2 : public KivRESTServiceHTTP2, public testing::WithParamInterface<HTTP2Case> {};

TEST_P(TornOverHTTP2, IsRequestedAgainOverHTTP1) {
  HTTP2Server server([&](const HTTP2Request&) { return GetParam().answer; }, answerPlainly);
  trust(server);
  const Load load = loaded(server.url("/a"));
  EXPECT_EQ(load.body(), plainBody) << load.message();
  EXPECT_EQ(load.completions(), 1);
  EXPECT_EQ(load.task()->metrics().tries, 1);
  EXPECT_TRUE(load.task()->metrics().failedTries.empty());
  EXPECT_EQ(server.plainRequests(), 1U);
}

/// The repetition is free, but happens once: the server has its three tries and no more.
TEST_P(TornOverHTTP2, IsRequestedOverHTTP2OnlyOnce) {
  HTTP2Server server([&](const HTTP2Request&) { return GetParam().answer; },
                     [](std::string_view) {
                       return std::string(
                           "HTTP/1.1 503 No\r\n"
                           "Content-Length: 0\r\n\r\n");
                     });
  trust(server);
  const Load load = loaded(server.url("/a"));
  EXPECT_EQ(load.status(), 503) << load.message();
  EXPECT_EQ(load.task()->metrics().tries, 3);
  EXPECT_EQ(server.plainRequests(), 3U);
}

INSTANTIATE_TEST_SUITE_P(WithLength, TornOverHTTP2, testing::ValuesIn(tornWithLength()), nameOf);
INSTANTIATE_TEST_SUITE_P(WithoutLength, TornOverHTTP2, testing::ValuesIn(tornWithoutLength()),
                         nameOf);
INSTANTIATE_TEST_SUITE_P(NoResponse, TornOverHTTP2, testing::ValuesIn(noResponses()), nameOf);

TEST_F(KivRESTServiceHTTP2, AnotherStatusNeedsNoLength) {
  HTTP2Server server(
      [](const HTTP2Request& request) {
        return HTTP2Answer{headers(request.stream, {{":status", "404"}}) +
                           data(request.stream, "gone", endStream)};
      },
      answerPlainly);
  trust(server);
  EXPECT_EQ(loaded(server.url("/a")).status(), 404);
  EXPECT_EQ(server.plainRequests(), 0U);
}

TEST_F(KivRESTServiceHTTP2, TheMirrorIsAskedIfHTTP1FailsToo) {
  HTTP2Server server(
      [](const HTTP2Request& request) {
        return HTTP2Answer{headersWithoutLength(request.stream) +
                           data(request.stream, "12345", endStream)};
      },
      answerPlainlyWithACutBody);
  mirror_.serve("/a", Response::ok("of the mirror"));
  trust(server);
  EXPECT_EQ(loaded({server.url("/a"), mirror_.url("/a")}).body(), "of the mirror");
  EXPECT_EQ(server.requests(), 1U);
  EXPECT_EQ(server.plainRequests(), 1U);
}

TEST_F(KivRESTServiceHTTP2, TheRestOfALargeBodyIsRequestedOverHTTP1) {
  const std::string body(100'000, 'x');
  std::string requested;
  HTTP2Server server(
      [&](const HTTP2Request& request) {
        return HTTP2Answer{
            headers(request.stream,
                    {{":status", "200"}, {"content-length", "100000"}, {"etag", "\"1\""}}) +
                data(request.stream, body.substr(0, 60'000)),
            Then::goOn, reset(request.stream, Error::internal)};
      },
      [&](std::string_view head) {
        requested = head;
        return "HTTP/1.1 206 Rest\r\nContent-Range: bytes 60000-99999/100000\r\n"
               "ETag: \"1\"\r\nContent-Length: 40000\r\n\r\n" +
               body.substr(60'000);
      });
  trust(server);
  spool();
  const Load load = loaded(server.url("/a"));
  EXPECT_TRUE(load.body() == body) << load.message();
  EXPECT_EQ(load.task()->metrics().resumedBytes, 60'000);
  EXPECT_NE(requested.find("\r\nRange: bytes=60000-\r\n"), std::string::npos) << requested;
}

/// libcurl would send the next request over the connection that has stalled.
TEST_F(KivRESTServiceHTTP2, AFileThatStallsIsTriedOverHTTP1) {
  HTTP2Server server(
      [](const HTTP2Request& request) {
        return HTTP2Answer{headersOfLength(request.stream, 5) + data(request.stream, "123")};
      },
      answerPlainly);
  trust(server);
  settings_.stallTimeout = std::chrono::seconds(1);
  const Load load = loaded(server.url("/a"));
  EXPECT_EQ(load.body(), plainBody) << load.message();
  EXPECT_EQ(load.task()->metrics().tries, 2);
  ASSERT_EQ(load.task()->metrics().failedTries.size(), 1U);
  EXPECT_EQ(load.task()->metrics().failedTries.front().error, Code::timedOut);
  const Load next = loaded(server.url("/b"));
  EXPECT_EQ(next.body(), plainBody);
  EXPECT_EQ(server.requests(), 1U) << "the server stalls over HTTP/2";
}

// --- Connections with several streams ------------------------------------------------------------

std::vector<HTTP2Case> endsOfConnections() {
  return {
      {"End", {"", Then::closeUnannounced}},
      {"AnnouncedEnd", {"", Then::close}},
      {"GoAway", {goAway(0, Error::none), Then::close}},
      {"GoAwayWithError", {goAway(0, Error::protocol), Then::closeUnannounced}},
      {"AFrameThatIsNone", {std::string("HTTP/1.1 200 OK\r\n\r\n"), Then::close}},
      {"DataOfNoStream", {frame(Type::data, 0, 0, "12345")}},
  };
}

class EndOfHTTP2Connection : public KivRESTServiceHTTP2,
                             public testing::WithParamInterface<HTTP2Case> {};

/// Five responses are begun when the sixth request ends the connection. libcurl itself repeats
/// those that a GOAWAY excludes, over another connection.
TEST_P(EndOfHTTP2Connection, IsNoFailedTryOfItsStreams) {
  HTTP2Server server(
      [&](const HTTP2Request& request) {
        if (request.connection > 1) return HTTP2Answer{wholeResponse(request.stream, plainBody)};
        if (request.number == 6) return GetParam().answer;
        return HTTP2Answer{headersOfLength(request.stream, 5) + data(request.stream, "123")};
      },
      answerPlainly);
  trust(server);
  const auto loads = makeLoads(client(), server.url("/a"), 6);
  expectBodies(loads, plainBody);
  for (const Load& load : loads) {
    EXPECT_EQ(load.task()->metrics().tries, 1);
    EXPECT_TRUE(load.task()->metrics().failedTries.empty());
  }
}

INSTANTIATE_TEST_SUITE_P(Reasons, EndOfHTTP2Connection, testing::ValuesIn(endsOfConnections()),
                         nameOf);

TEST_F(KivRESTServiceHTTP2, AResetStreamLeavesItsNeighboursAlone) {
  HTTP2Server server(
      [](const HTTP2Request& request) {
        if (request.number == 3) return HTTP2Answer{reset(request.stream, Error::internal)};
        return HTTP2Answer{wholeResponse(request.stream, "12345")};
      },
      answerPlainly);
  trust(server);
  const auto loads = makeLoads(client(), server.url("/a"), 6);
  ASSERT_TRUE(waitForEnd(loads));
  EXPECT_EQ(std::count_if(loads.begin(), loads.end(),
                          [](const Load& load) { return load.body() == "12345"; }),
            5);
  EXPECT_EQ(server.plainRequests(), 1U);
}

TEST_F(KivRESTServiceHTTP2, ARefusedBodyLeavesItsNeighboursAlone) {
  HTTP2Server server(
      [](const HTTP2Request& request) {
        const bool isWhole = request.number != 3;
        const std::string head = isWhole ? headersOfLength(request.stream, 100'000)
                                         : headersWithoutLength(request.stream);
        return HTTP2Answer{head + data(request.stream, std::string(100'000, 'x'), endStream)};
      },
      answerPlainly);
  trust(server);
  const auto loads = makeLoads(client(), server.url("/a"), 6);
  ASSERT_TRUE(waitForEnd(loads));
  EXPECT_EQ(std::count_if(loads.begin(), loads.end(),
                          [](const Load& load) { return load.body().size() == 100'000; }),
            5);
  EXPECT_EQ(server.plainRequests(), 1U);
}

TEST_F(KivRESTServiceHTTP2, AServerThatNeverDeliversIsAskedOverHTTP1AtOnce) {
  HTTP2Server server(
      [](const HTTP2Request& request) {
        return HTTP2Answer{headersWithoutLength(request.stream) +
                           data(request.stream, "12345", endStream)};
      },
      answerPlainly);
  trust(server);
  const auto loads = makeLoads(client(), server.url("/a"), 60);
  expectBodies(loads, plainBody);
  EXPECT_LE(server.requests(), 18U);
  EXPECT_EQ(server.plainRequests(), 60U);
}

}  // namespace
