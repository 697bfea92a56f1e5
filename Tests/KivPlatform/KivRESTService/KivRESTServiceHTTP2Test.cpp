// Responses over HTTP/2 that are torn, and connections that end. What HTTP/2 does not deliver whole
// is requested again over HTTP/1.1, where the server of these tests sends another body.

#include <chrono>
#include <condition_variable>
#include <fstream>
#include <functional>
#include <mutex>
#include <ostream>
#include <string>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "Tests/KivPlatform/KivRESTService/ClientFixture.h"
#include "Tests/Support/HTTP2Server.h"
#include "Tests/Support/LoopbackServerSockets.h"
#include "Tests/Support/ReadFile.h"

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
  KivRESTServiceHTTP2() { settings_.threads = 1; }

  void trust(const HTTP2Server& server) {
    settings_.certificateAuthoritiesPath = server.certificatePath();
  }
};

// --- Single responses ----------------------------------------------------------------------------

/// What the server sends on the stream of a request.
struct HTTP2Case {
  const char* name;
  std::function<HTTP2Answer(std::uint32_t stream)> answer;
};

void PrintTo(const HTTP2Case& testCase, std::ostream* out) {
  *out << testCase.name;
}

std::string nameOf(const testing::TestParamInfo<HTTP2Case>& testCase) {
  return testCase.param.name;
}

using Head = std::string (*)(std::uint32_t stream);

std::string ofFive(std::uint32_t stream) {
  return headersOfLength(stream, 5);
}

HTTP2Case wholeCase(const char* name, const std::string& after, Then then = Then::goOn) {
  return {name, [=](std::uint32_t stream) {
            return HTTP2Answer{wholeResponse(stream, "12345") + after, then};
          }};
}

std::vector<HTTP2Case> wholeResponses() {
  return {
      wholeCase("Whole", ""),
      wholeCase("ThenGoAway", goAway(1, Error::none), Then::close),
      wholeCase("ThenEnd", "", Then::closeUnannounced),
      {"EndedByAnEmptyFrame",
       [](std::uint32_t stream) {
         return HTTP2Answer{ofFive(stream) + data(stream, "12345") + data(stream, "", endStream)};
       }},
      {"EndedByTrailers",
       [](std::uint32_t stream) {
         return HTTP2Answer{
             ofFive(stream) + data(stream, "12345") +
             frame(Type::headers, endHeaders | endStream, stream, std::string("\0\1x\1y", 5))};
       }},
      {"AfterAnInterimResponse",
       [](std::uint32_t stream) {
         return HTTP2Answer{headers(stream, {{":status", "103"}}) + wholeResponse(stream, "12345")};
       }},
  };
}

/// A response of which three bytes come, with what follows them at once and later.
HTTP2Case cut(const char* name, Head head, std::function<std::string(std::uint32_t)> after,
              Then then = Then::goOn, std::function<std::string(std::uint32_t)> later = nullptr) {
  return {name, [=](std::uint32_t stream) {
            return HTTP2Answer{head(stream) + data(stream, "123") + (after ? after(stream) : ""),
                               then, later ? later(stream) : ""};
          }};
}

/// Streams that end early on a connection that stays open.
std::vector<HTTP2Case> cutStreams(Head head) {
  const auto resetWith = [](Error error) {
    return [error](std::uint32_t stream) { return reset(stream, error); };
  };
  const auto end = [](std::uint32_t stream) { return data(stream, "", endStream); };
  return {
      cut("ResetWithNoError", head, resetWith(Error::none)),
      cut("ResetWithInternalError", head, resetWith(Error::internal)),
      cut("ResetWithCancel", head, resetWith(Error::cancel)),
      cut("ResetWithNoErrorLater", head, nullptr, Then::goOn, resetWith(Error::none)),
      cut("ResetWithCancelLater", head, nullptr, Then::goOn, resetWith(Error::cancel)),
      cut("EndOfStream", head, end),
      cut("EndOfStreamLater", head, nullptr, Then::goOn, end),
  };
}

std::vector<HTTP2Case> cutByTheEndOfTheConnection(Head head) {
  const auto goAwayWith = [](Error error) {
    return [error](std::uint32_t stream) { return goAway(stream, error); };
  };
  return {
      cut("GoAwayLater", head, nullptr, Then::close, goAwayWith(Error::none)),
      cut("End", head, nullptr, Then::closeUnannounced),
      cut("AnnouncedEnd", head, nullptr, Then::close),
      cut("GoAway", head, goAwayWith(Error::none), Then::close),
      cut("GoAwayWithError", head, goAwayWith(Error::internal), Then::close),
      cut("GoAwayAndUnannouncedEnd", head, goAwayWith(Error::none), Then::closeUnannounced),
  };
}

std::vector<HTTP2Case> badLengths() {
  return {
      {"Empty",
       [](std::uint32_t stream) {
         return HTTP2Answer{
             headers(stream, {{":status", "200"}, {"content-length", "5"}}, endStream)};
       }},
      {"Long",
       [](std::uint32_t stream) {
         return HTTP2Answer{ofFive(stream) + data(stream, "1234567", endStream)};
       }},
      {"TwoLengths",
       [](std::uint32_t stream) {
         return HTTP2Answer{
             headers(stream,
                     {{":status", "200"}, {"content-length", "5"}, {"content-length", "3"}}) +
             data(stream, "12345", endStream)};
       }},
      {"None",
       [](std::uint32_t stream) {
         return HTTP2Answer{headersWithoutLength(stream) + data(stream, "12345", endStream)};
       }},
      {"NoneAndEmpty",
       [](std::uint32_t stream) {
         return HTTP2Answer{headers(stream, {{":status", "200"}}, endStream)};
       }},
  };
}

/// Streams that end without a response on a connection that stays open.
std::vector<HTTP2Case> noResponses() {
  const auto resetWith = [](Error error) {
    return [error](std::uint32_t stream) { return HTTP2Answer{reset(stream, error)}; };
  };
  return {
      {"ResetWithNoError", resetWith(Error::none)},
      {"ResetWithInternalError", resetWith(Error::internal)},
      {"Refused", resetWith(Error::refusedStream)},
      {"DataBeforeHeaders",
       [](std::uint32_t stream) { return HTTP2Answer{data(stream, "12345", endStream)}; }},
      {"NoStatus",
       [](std::uint32_t stream) {
         return HTTP2Answer{headers(stream, {{"content-length", "5"}}) +
                            data(stream, "12345", endStream)};
       }},
      {"OnlyAnInterimResponse",
       [](std::uint32_t stream) {
         return HTTP2Answer{headers(stream, {{":status", "103"}}, endStream)};
       }},
  };
}

/// Ends of a connection, whatever is on the stream.
std::vector<HTTP2Case> endsOfConnections() {
  const auto always = [](const HTTP2Answer& answer) {
    return [answer](std::uint32_t) { return answer; };
  };
  return {
      {"End", always({"", Then::closeUnannounced})},
      {"AnnouncedEnd", always({"", Then::close})},
      {"GoAway", always({goAway(0, Error::none), Then::close})},
      {"GoAwayWithError", always({goAway(0, Error::protocol), Then::closeUnannounced})},
      {"AFrameThatIsNone", always({std::string("HTTP/1.1 200 OK\r\n\r\n"), Then::close})},
      {"DataOfNoStream", always({frame(Type::data, 0, 0, "12345")})},
  };
}

class WholeOverHTTP2 : public KivRESTServiceHTTP2, public testing::WithParamInterface<HTTP2Case> {};

TEST_P(WholeOverHTTP2, IsTaken) {
  HTTP2Server server([&](const HTTP2Request& request) { return GetParam().answer(request.stream); },
                     answerPlainly);
  trust(server);
  const Load load = loaded(server.url("/a"));
  EXPECT_EQ(load.body(), "12345") << load.message();
  EXPECT_EQ(load.task()->metrics().tries, 1);
  EXPECT_EQ(server.plainRequests(), 0U);
}

INSTANTIATE_TEST_SUITE_P(Responses, WholeOverHTTP2, testing::ValuesIn(wholeResponses()), nameOf);

class TornOverHTTP2 : public KivRESTServiceHTTP2, public testing::WithParamInterface<HTTP2Case> {};

TEST_P(TornOverHTTP2, IsRequestedAgainOverHTTP1) {
  HTTP2Server server([&](const HTTP2Request& request) { return GetParam().answer(request.stream); },
                     answerPlainly);
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
  HTTP2Server server([&](const HTTP2Request& request) { return GetParam().answer(request.stream); },
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

INSTANTIATE_TEST_SUITE_P(StreamsWithLength, TornOverHTTP2, testing::ValuesIn(cutStreams(ofFive)),
                         nameOf);
INSTANTIATE_TEST_SUITE_P(StreamsWithoutLength, TornOverHTTP2,
                         testing::ValuesIn(cutStreams(headersWithoutLength)), nameOf);
INSTANTIATE_TEST_SUITE_P(ConnectionsWithLength, TornOverHTTP2,
                         testing::ValuesIn(cutByTheEndOfTheConnection(ofFive)), nameOf);
INSTANTIATE_TEST_SUITE_P(ConnectionsWithoutLength, TornOverHTTP2,
                         testing::ValuesIn(cutByTheEndOfTheConnection(headersWithoutLength)),
                         nameOf);
INSTANTIATE_TEST_SUITE_P(Lengths, TornOverHTTP2, testing::ValuesIn(badLengths()), nameOf);
INSTANTIATE_TEST_SUITE_P(NoResponse, TornOverHTTP2, testing::ValuesIn(noResponses()), nameOf);
INSTANTIATE_TEST_SUITE_P(Ends, TornOverHTTP2, testing::ValuesIn(endsOfConnections()), nameOf);

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

class EndOfHTTP2Connection : public KivRESTServiceHTTP2,
                             public testing::WithParamInterface<HTTP2Case> {};

/// Five responses are begun when the sixth request ends the connection. libcurl itself repeats
/// those that a GOAWAY excludes, over another connection.
TEST_P(EndOfHTTP2Connection, IsNoFailedTryOfItsStreams) {
  HTTP2Server server(
      [&](const HTTP2Request& request) {
        if (request.connection > 1) return HTTP2Answer{wholeResponse(request.stream, plainBody)};
        if (request.number == 6) return GetParam().answer(request.stream);
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

// --- Faults with neighbours ----------------------------------------------------------------------

class FaultsWithNeighbours : public KivRESTServiceHTTP2,
                             public testing::WithParamInterface<HTTP2Case> {};

/// The third request of the first connection gets the fault, when two responses have begun. libcurl
/// may repeat some streams over another connection.
TEST_P(FaultsWithNeighbours, HarmNoOtherFile) {
  HTTP2Server server(
      [&](const HTTP2Request& request) {
        if (request.connection > 1) return HTTP2Answer{wholeResponse(request.stream, plainBody)};
        if (request.number == 3) return GetParam().answer(request.stream);
        if (request.number < 3)
          return HTTP2Answer{ofFive(request.stream) + data(request.stream, "123")};
        std::string frames = wholeResponse(request.stream, "12345");
        if (request.number == 40) frames += data(1, "45", endStream) + data(3, "45", endStream);
        return HTTP2Answer{frames};
      },
      answerPlainly);
  trust(server);
  settings_.parallelTransfers = settings_.parallelTransfersPerHost = 40;
  const auto loads = makeLoads(client(), server.url("/a"), 40);
  ASSERT_TRUE(waitForEnd(loads));
  for (const Load& load : loads) {
    EXPECT_TRUE(load.body() == "12345" || load.body() == plainBody) << load.message();
    EXPECT_EQ(load.task()->metrics().tries, 1);
    EXPECT_TRUE(load.task()->metrics().failedTries.empty());
  }
  EXPECT_LE(server.requests() + server.plainRequests(), 80U) << "one more for each file at most";
}

INSTANTIATE_TEST_SUITE_P(StreamsWithLength, FaultsWithNeighbours,
                         testing::ValuesIn(cutStreams(ofFive)), nameOf);
INSTANTIATE_TEST_SUITE_P(StreamsWithoutLength, FaultsWithNeighbours,
                         testing::ValuesIn(cutStreams(headersWithoutLength)), nameOf);
INSTANTIATE_TEST_SUITE_P(ConnectionsWithLength, FaultsWithNeighbours,
                         testing::ValuesIn(cutByTheEndOfTheConnection(ofFive)), nameOf);
INSTANTIATE_TEST_SUITE_P(Lengths, FaultsWithNeighbours, testing::ValuesIn(badLengths()), nameOf);
INSTANTIATE_TEST_SUITE_P(NoResponse, FaultsWithNeighbours, testing::ValuesIn(noResponses()),
                         nameOf);
INSTANTIATE_TEST_SUITE_P(Ends, FaultsWithNeighbours, testing::ValuesIn(endsOfConnections()),
                         nameOf);

// --- Stalls --------------------------------------------------------------------------------------

class KivRESTServiceHTTP2Stalls : public KivRESTServiceHTTP2 {
 protected:
  KivRESTServiceHTTP2Stalls() { settings_.sharedStallTimeout = std::chrono::milliseconds(100); }
};

TEST_F(KivRESTServiceHTTP2Stalls, AConnectionThatStallsIsNoFailedTryOfItsFiles) {
  HTTP2Server server(
      [](const HTTP2Request& request) {
        if (request.number % 2 == 1) return HTTP2Answer{};
        return HTTP2Answer{ofFive(request.stream) + data(request.stream, "123")};
      },
      answerPlainly);
  trust(server);
  settings_.parallelTransfers = settings_.parallelTransfersPerHost = 24;
  settings_.triesPerServer = 1;
  const auto loads = makeLoads(client(), server.url("/a"), 60);
  expectBodies(loads, plainBody);
  for (const Load& load : loads) {
    EXPECT_EQ(load.task()->metrics().tries, 1);
    EXPECT_TRUE(load.task()->metrics().failedTries.empty());
  }
  EXPECT_LE(server.requests(), 24U) << "the others know that the server stalls";
  EXPECT_EQ(server.plainRequests(), 60U);
}

TEST_F(KivRESTServiceHTTP2Stalls, TheRestOfALargeBodyIsRequestedOverHTTP1) {
  const std::string body(100'000, 'x');
  HTTP2Server server(
      [&](const HTTP2Request& request) {
        return HTTP2Answer{
            headers(request.stream,
                    {{":status", "200"}, {"content-length", "100000"}, {"etag", "\"1\""}}) +
            data(request.stream, body.substr(0, 60'000))};
      },
      [&](std::string_view) {
        return "HTTP/1.1 206 Rest\r\nContent-Range: bytes 60000-99999/100000\r\n"
               "ETag: \"1\"\r\nContent-Length: 40000\r\n\r\n" +
               body.substr(60'000);
      });
  trust(server);
  spool();
  const auto loads = makeLoads(client(), server.url("/a"), 6);
  expectBodies(loads, body);
  for (const Load& load : loads)
    EXPECT_EQ(load.task()->metrics().resumedBytes, 60'000);
}

TEST_F(KivRESTServiceHTTP2Stalls, ARequestThatWaitsAloneIsLeftToTheStallTimeout) {
  HTTP2Server server([](const HTTP2Request&) { return HTTP2Answer{}; }, answerPlainly);
  trust(server);
  settings_.stallTimeout = std::chrono::seconds(1);
  const Load load = loaded(server.url("/a"));
  EXPECT_EQ(load.body(), plainBody);
  ASSERT_EQ(load.task()->metrics().failedTries.size(), 1U);
  EXPECT_EQ(load.task()->metrics().failedTries.front().error, Code::timedOut);
}

/// Over HTTP/2 a body may wait for those of other streams, so a time-out is not the only try.
TEST_F(KivRESTServiceHTTP2Stalls, AStreamThatStallsHoldsUpNoNeighbour) {
  HTTP2Server server(
      [](const HTTP2Request& request) {
        return request.number == 1 ? HTTP2Answer{}
                                   : HTTP2Answer{wholeResponse(request.stream, "12345")};
      },
      answerPlainly);
  trust(server);
  settings_.sharedStallTimeout = std::chrono::seconds(60);  // also if this machine stalls
  settings_.stallTimeout = std::chrono::seconds(1);
  settings_.triesPerServer = 1;
  const auto loads = makeLoads(client(), server.url("/a"), 40);
  ASSERT_TRUE(waitForEnd(loads));
  EXPECT_EQ(loads.front().body(), plainBody) << loads.front().message();
  EXPECT_EQ(loads.front().task()->metrics().tries, 2);
  for (std::size_t other = 1; other < loads.size(); ++other)
    EXPECT_EQ(loads[other].body(), "12345");
}

TEST_F(KivRESTServiceHTTP2Stalls, TheMirrorIsAskedNextAfterATimeOut) {
  HTTP2Server server([](const HTTP2Request&) { return HTTP2Answer{}; }, answerPlainly);
  mirror_.serve("/a", Response::ok("of the mirror"));
  trust(server);
  settings_.stallTimeout = std::chrono::seconds(1);
  EXPECT_EQ(loaded({server.url("/a"), mirror_.url("/a")}).body(), "of the mirror");
}

TEST_F(KivRESTServiceHTTP2, FilesThatWaitForAHandshakeShareItsTimeOut) {
  const int silent = listeningSocket();
  settings_.connectTimeout = std::chrono::milliseconds(300);
  const auto loads = makeLoads(client(), loopbackURL(portOf(silent), "/a").insert(4, "s"), 18);
  expectErrors(loads, Code::timedOut);
  int tries = 0;
  for (const Load& load : loads)
    tries += load.task()->metrics().tries;
  EXPECT_LE(tries, 6 + 1) << "six that did not know, and the probe";
  close(silent);
}

/// Each finds out itself why TLS has failed.
TEST_F(KivRESTServiceHTTP2, FilesThatWaitForAHandshakeThatFailsSayWhy) {
  HTTP2Server server([](const HTTP2Request&) { return HTTP2Answer{}; }, answerPlainly);
  const auto loads = makeLoads(client(), server.url("/a"), 18);
  expectErrors(loads, Code::secureConnectionFailed);
  for (const Load& load : loads)
    EXPECT_NE(load.message().find("is signed by itself"), std::string::npos) << load.message();
  EXPECT_LE(server.connections(), 7U);
}

// --- Servers that speak HTTP/1.1 only ------------------------------------------------------------

struct PlainCase {
  const char* name;
  HTTP2Server::Choice choice;
  const char* header;
};

void PrintTo(const PlainCase& testCase, std::ostream* out) {
  *out << testCase.name;
}

class PlainServers : public KivRESTServiceHTTP2, public testing::WithParamInterface<PlainCase> {
 protected:
  /// Waits for five others.
  std::string answerSixTogether() {
    std::unique_lock lock(mutex_);
    const std::size_t round = asked_++ / 6;
    changed_.notify_all();
    const bool areSix = changed_.wait_for(lock, std::chrono::seconds(20),
                                          [&] { return asked_ >= 6 * (round + 1); });
    const std::string body = areSix ? plainBody : "alone";
    return "HTTP/1.1 200 OK\r\n" + std::string(GetParam().header) +
           "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::size_t asked_ = 0;
};

TEST_P(PlainServers, GetAsManyConnectionsAsWithoutHTTP2) {
  HTTP2Server server([](const HTTP2Request&) { return HTTP2Answer{}; },
                     [this](std::string_view) { return answerSixTogether(); }, GetParam().choice);
  trust(server);
  const auto loads = makeLoads(client(), server.url("/a"), 30);
  expectBodies(loads, plainBody);
  for (const Load& load : loads)
    EXPECT_EQ(load.task()->metrics().tries, 1);
  EXPECT_EQ(server.plainRequests(), 30U);
}

INSTANTIATE_TEST_SUITE_P(
    All, PlainServers,
    testing::Values(PlainCase{"HTTP1", HTTP2Server::Choice::http1, ""},
                    PlainCase{"HTTP1AndClose", HTTP2Server::Choice::http1, "Connection: close\r\n"},
                    PlainCase{"NoALPN", HTTP2Server::Choice::nothing, ""},
                    PlainCase{"NoALPNAndClose", HTTP2Server::Choice::nothing,
                              "Connection: close\r\n"}),
    [](const testing::TestParamInfo<PlainCase>& plain) { return plain.param.name; });

/// An offer would make further requests wait for the connection.
TEST_F(KivRESTServiceHTTP2, IsNotOfferedAgainToAServerThatRefusesIt) {
  HTTP2Server server([](const HTTP2Request&) { return HTTP2Answer{}; },
                     [](std::string_view) {
                       return "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 0\r\n\r\n";
                     },
                     HTTP2Server::Choice::http1);
  trust(server);
  for (int count = 0; count < 3; ++count)
    EXPECT_EQ(loaded(server.url("/a")).status(), 200);
  EXPECT_EQ(server.connections(), 3U);
  EXPECT_EQ(server.offersOfHTTP2(), 1U);
}

TEST_F(KivRESTServiceHTTP2, IsNotOfferedOverHTTP) {
  server_.serve("/a", Response::ok("12345"));
  EXPECT_EQ(loaded().body(), "12345");
  ASSERT_EQ(server_.requests().size(), 1U);
  EXPECT_FALSE(server_.requests().front().header("Upgrade"));
}

TEST_F(KivRESTServiceHTTP2, IsNotOfferedWithABandwidth) {
  HTTP2Server server([](const HTTP2Request&) { return HTTP2Answer{}; }, answerPlainly);
  trust(server);
  settings_.bandwidth = 1'000'000;
  EXPECT_EQ(loaded(server.url("/a")).body(), plainBody);
}

TEST_F(KivRESTServiceHTTP2, RedirectsLeadFromHTTP2ToHTTP1) {
  HTTP2Server target([](const HTTP2Request&) { return HTTP2Answer{}; }, answerPlainly,
                     HTTP2Server::Choice::http1);
  HTTP2Server server(
      [&](const HTTP2Request& request) {
        return HTTP2Answer{headers(
            request.stream, {{":status", "302"}, {"location", target.url("/b")}}, endStream)};
      },
      answerPlainly);
  const auto authorities = directory_.path("authorities.pem");
  std::ofstream(authorities) << readFile(server.certificatePath())
                             << readFile(target.certificatePath());
  settings_.certificateAuthoritiesPath = authorities;
  const auto loads = makeLoads(client(), server.url("/a"), 30);
  expectBodies(loads, plainBody);
  EXPECT_EQ(server.requests(), 30U);
  EXPECT_EQ(target.plainRequests(), 30U);
}

}  // namespace
