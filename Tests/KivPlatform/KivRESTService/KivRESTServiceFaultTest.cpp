#include <ostream>
#include <string>

#include <gtest/gtest.h>

#include "Tests/KivPlatform/KivRESTService/ClientFixture.h"

namespace {

using namespace kiv::test;
using Code = KivRESTServiceErrorCode;

/// The result of a task: a body, a status or an error.
struct Outcome {
  std::string body;
  int status = 200;
  Code error = {};

  /// True if the client must retry; the server then does the same again.
  [[nodiscard]] bool isRetryable() const {
    return error == Code::connectionLost || error == Code::timedOut || status == 500;
  }
};

Outcome body(std::string bytes) {
  return {std::move(bytes), 200, {}};
}
Outcome status(int code) {
  return {{}, code, {}};
}
Outcome error(Code code) {
  return {{}, 0, code};
}

struct FaultCase {
  const char* name;
  Response response;
  Outcome outcome;
};

std::string repeated(std::string_view text, int times) {
  std::string all;
  for (int count = 0; count < times; ++count)
    all += text;
  return all;
}

const std::string head = "HTTP/1.1 200 OK\r\n";
const std::string five = "Content-Length: 5\r\n";

const Outcome lost = error(Code::connectionLost);
const Outcome malformed = error(Code::malformedResponse);
const Outcome stalled = error(Code::timedOut);
const Outcome tooLarge = error(Code::bodyTooLarge);
const std::string chunks = head + "Transfer-Encoding: chunked\r\n";

std::vector<FaultCase> connectionFaults() {
  return {
      {"ClosedWithoutAByte", Response::nothing(), lost},
      {"ResetWithoutAByte", Response::nothing().resetAt(0), lost},
      {"ClosedInStatusLine", Response::raw("HTTP/1.1 20"), lost},
      {"ClosedAfterStatusLine", Response::raw(head), lost},
      {"ClosedInHeaders", Response::raw(head + "Content-Le"), lost},
      {"ResetInHeaders", Response::raw(head + five).resetAt(30), lost},
      {"ClosedAfterHeaders", Response::ok("12345").closeAt(0), lost},
      {"ResetAfterHeaders", Response::ok("12345").resetAt(0), lost},
      {"ClosedInBody", Response::ok("12345").closeAt(3), lost},
      {"ResetInBody", Response::ok("12345").resetAt(3), lost},
      {"ClosedOneByteBeforeTheEnd", Response::ok(std::string(300'000, 'x')).closeAt(299'999), lost},
      {"SilentFromTheStart", Response::nothing().stallAt(0), stalled},
      {"SilentInHeaders", Response::raw(head + five).stallAt(30), stalled},
      {"SilentAfterHeaders", Response::ok("12345").stallAt(0), stalled},
      {"SilentInBody", Response::ok("12345").stallAt(3), stalled},
      {"DrippingTooSlowly",
       Response::ok(std::string(1000, 'x')).drip(1, std::chrono::milliseconds(100)), stalled},
      {"DrippingFastEnough",
       Response::ok(std::string(300, 'x')).drip(3, std::chrono::milliseconds(1)),
       body(std::string(300, 'x'))},
  };
}

std::vector<FaultCase> lengthFaults() {
  return {
      {"MoreThanTheLength", Response::raw(head + five + "\r\n1234567"), body("12345")},
      {"SameLengthTwice", Response::raw(head + five + five + "\r\n12345"), body("12345")},
      {"TwoLengths", Response::raw(head + five + "Content-Length: 3\r\n\r\n12345"), malformed},
      {"TwoLengthsInAList", Response::raw(head + "Content-Length: 5, 3\r\n\r\n12345"), malformed},
      {"JunkAfterLength", Response::raw(head + "Content-Length: 5x\r\n\r\n12345"), malformed},
      {"JunkInsteadOfLength", Response::raw(head + "Content-Length: five\r\n\r\n12345"), malformed},
      {"NegativeLength", Response::raw(head + "Content-Length: -5\r\n\r\n12345"), malformed},
      {"EmptyLength", Response::raw(head + "Content-Length:\r\n\r\n12345"), malformed},
      {"OverflowingLength",
       Response::raw(head + "Content-Length: 18446744073709551621\r\n\r\n12345"), malformed},
      {"LargestNumberAsLength",
       Response::raw(head + "Content-Length: 9223372036854775807\r\n\r\n12345"), tooLarge},
      {"LengthBeyondTheBound", Response::raw(head + "Content-Length: 1000001\r\n\r\n12345"),
       tooLarge},
      {"NoLengthOverHTTP11", Response::ok("12345").withoutLength().thenCloseUnannounced(),
       malformed},
      {"NoLengthOverHTTP11ThatCloses", Response::ok("12345").withoutLength().thenClose(),
       malformed},
      {"NoLengthOverHTTP10", Response::ok("12345").withoutLength().http10(), body("12345")},
      {"NoBodyOverHTTP10", Response::ok("").withoutLength().http10(), body("")},
      {"LengthOverHTTP10", Response::ok("12345").http10(), body("12345")},
      {"ClosedInBodyOverHTTP10", Response::ok("12345").http10().closeAt(3), lost},
      {"ResetWithoutLengthOverHTTP10", Response::ok("12345").withoutLength().http10().resetAt(3),
       lost},
      {"EndlessOverHTTP10", Response::ok(std::string(9999, 'x')).http10().endless(), tooLarge},
      {"EndlessChunks", Response::ok(std::string(9999, 'x')).chunked().endless(), tooLarge},
  };
}

std::vector<FaultCase> chunkFaults() {
  return {
      {"Chunks", Response::ok("1234567").chunked(3), body("1234567")},
      {"NoChunks", Response::ok("").chunked(), body("")},
      {"ChunksWithTrailer",
       Response::raw(chunks + "\r\n5\r\n12345\r\n0\r\nContent-Length: 9\r\n\r\n"), body("12345")},
      {"ChunksOfTheLength", Response::raw(chunks + five + "\r\n5\r\n12345\r\n0\r\n\r\n"),
       body("12345")},
      {"ChunksOfAnotherLength", Response::raw(chunks + five + "\r\n3\r\n123\r\n0\r\n\r\n"), lost},
      {"ClosedInChunk", Response::raw(chunks + "\r\n5\r\n123"), lost},
      {"ClosedBetweenChunks", Response::raw(chunks + "\r\n5\r\n12345\r\n"), lost},
      {"ClosedBeforeTheFinalLine", Response::raw(chunks + "\r\n5\r\n12345\r\n0\r\n"), lost},
      {"ChunkSizeThatIsNone", Response::raw(chunks + "\r\nxyz\r\n12345\r\n0\r\n\r\n"), malformed},
      {"ChunkSizeThatIsTooSmall", Response::raw(chunks + "\r\n3\r\n12345\r\n0\r\n\r\n"), malformed},
      {"ChunkSizeThatOverflows",
       Response::raw(chunks + "\r\nfffffffffffffffff\r\n12345\r\n0\r\n\r\n"), malformed},
      {"ChunkedTwice",
       Response::raw(chunks + "Transfer-Encoding: chunked\r\n\r\n5\r\n12345\r\n0\r\n\r\n"),
       malformed},
      {"ChunkedOverHTTP10",
       Response::raw(
           "HTTP/1.0 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\n12345\r\n0\r\n\r\n"),
       malformed},
  };
}

std::vector<FaultCase> codingFaults() {
  return {
      {"GzipTransferCoding",
       Response::raw(head + "Transfer-Encoding: gzip\r\n\r\n\x1f\x8b\x08\x01\x02\x03"), malformed},
      {"GzipContentCoding", Response::ok("12345").header("Content-Encoding", "gzip"), malformed},
      {"DeflateContentCoding", Response::ok("12345").header("Content-Encoding", "deflate"),
       malformed},
      {"IdentityContentCoding", Response::ok("12345").header("Content-Encoding", "identity"),
       body("12345")},
      {"EncodedErrorPage", Response::status(404, "12345").header("Content-Encoding", "gzip"),
       status(404)},
  };
}

std::vector<FaultCase> headFaults() {
  return {
      {"NoHTTPAtAll", Response::raw("hello, here is your file: 12345"), malformed},
      {"HTTP09", Response::raw("12345"), malformed},
      {"OtherProtocol", Response::raw("ICY 200 OK\r\n" + five + "\r\n12345"), malformed},
      {"StatusOfTwoDigits", Response::raw("HTTP/1.1 20 OK\r\n" + five + "\r\n12345"), malformed},
      {"StatusOfFourDigits", Response::raw("HTTP/1.1 2000 OK\r\n" + five + "\r\n12345"), malformed},
      {"HTTP2InText", Response::raw("HTTP/2 200 OK\r\n" + five + "\r\n12345"), malformed},
      {"FoldedHeader", Response::raw(head + "X-Note: a\r\n b\r\n" + five + "\r\n12345"),
       body("12345")},
      {"LineFeedsAlone", Response::raw("HTTP/1.1 200 OK\nContent-Length: 5\n\n12345"),
       body("12345")},
      {"BlankBeforeColon", Response::raw(head + "Content-Length : 5\r\n\r\n12345"), malformed},
      {"NULInHeader", Response::raw(head + five + std::string("X: a\0b\r\n\r\n12345", 14)),
       malformed},
      {"HugeHeader", Response::ok("12345").header("X-Large", std::string(200'000, 'x')), malformed},
      {"ManyHeaders",
       Response::raw(head + five + repeated("X-Header: " + std::string(90, 'x') + "\r\n", 5000) +
                     "\r\n12345"),
       malformed},
      {"EndlessHeaders", Response::raw(repeated(head, 1) + repeated("X: y\r\n", 50'000)),
       malformed},
  };
}

std::vector<FaultCase> interimResponses() {
  return {
      {"OneInterimResponse",
       Response::raw("HTTP/1.1 100 Continue\r\n\r\n" + head + five + "\r\n12345"), body("12345")},
      {"EarlyHints",
       Response::raw("HTTP/1.1 103 Early Hints\r\nContent-Length: 7\r\n\r\n" + head + five +
                     "\r\n12345"),
       body("12345")},
      {"AThousandInterimResponses",
       Response::raw(repeated("HTTP/1.1 100 Continue\r\n\r\n", 1000) + head + five + "\r\n12345"),
       body("12345")},
      {"FiftyThousandInterimResponses",
       Response::raw(repeated("HTTP/1.1 100 Continue\r\n\r\n", 50'000) + head + five + "\r\n12345"),
       malformed},
      {"OnlyAnInterimResponse", Response::raw("HTTP/1.1 100 Continue\r\n\r\n"), lost},
      {"SwitchingProtocols",
       Response::raw("HTTP/1.1 101 Switching\r\nUpgrade: x\r\nConnection: upgrade\r\n\r\n12345"),
       status(101)},
  };
}

std::vector<FaultCase> otherStatuses() {
  return {
      {"NoContent", Response::status(204), status(204)},
      {"ResetContent", Response::status(205), status(205)},
      {"PartialContentUnasked", Response::status(206, "123").header("Content-Range", "bytes 0-2/5"),
       status(206)},
      {"NotModified", Response::status(304), status(304)},
      {"RangeNotSatisfiable", Response::status(416, "x"), status(416)},
      {"Unauthorized", Response::status(401).header("WWW-Authenticate", "Basic"), status(401)},
      {"ErrorPageThatIsCut", Response::status(500, "12345").closeAt(2), status(500)},
      {"ErrorPageThatIsReset", Response::status(500, "12345").resetAt(2), status(500)},
      {"ErrorPageThatStalls", Response::status(500, "12345").stallAt(2), status(500)},
      {"ErrorPageWithoutLength", Response::status(404, "12345").withoutLength().thenClose(),
       status(404)},
      {"ErrorPageWithoutEnd", Response::status(404, std::string(999, 'x')).chunked().endless(),
       status(404)},
      {"ErrorPageBeyondTheBound",
       Response::raw("HTTP/1.1 404 No\r\nContent-Length: 99999999\r\n\r\n" +
                     std::string(200'000, 'x')),
       status(404)},
      {"RedirectToTwoPlaces", Response::redirect(302, "/b").header("Location", "/c"), malformed},
      {"RedirectToNoURL", Response::redirect(302, "http://a b c:x/"), malformed},
      {"RedirectThatIsCut", Response::raw("HTTP/1.1 302 Go\r\nLocation: /x\r\n"), lost},
  };
}

void PrintTo(const FaultCase& testCase, std::ostream* out) {
  *out << testCase.name;
}

using KivRESTServiceFaultTest = ClientFixture;

class KivRESTServiceFaults : public ClientFixture, public testing::WithParamInterface<FaultCase> {};

TEST_P(KivRESTServiceFaults, EndAsTheyShould) {
  const auto& [name, response, outcome] = GetParam();
  server_.serve("/a", response);
  settings_.stallTimeout = std::chrono::seconds(1);
  settings_.largestBody = 1'000'000;
  const Load load = loaded();
  EXPECT_EQ(load.status(), outcome.status) << load.message();
  EXPECT_EQ(load.errorCode(), codeOf(outcome.error)) << load.message();
  EXPECT_EQ(load.hasBody(), outcome.status == 200);
  EXPECT_TRUE(load.body() == outcome.body) << load.body();
  EXPECT_EQ(load.completions(), 1);
  EXPECT_EQ(server_.requests("/a").size(), outcome.isRetryable() ? 3U : 1U);
}

std::string nameOf(const testing::TestParamInfo<FaultCase>& testCase) {
  return testCase.param.name;
}

INSTANTIATE_TEST_SUITE_P(Connection, KivRESTServiceFaults, testing::ValuesIn(connectionFaults()),
                         nameOf);
INSTANTIATE_TEST_SUITE_P(Length, KivRESTServiceFaults, testing::ValuesIn(lengthFaults()), nameOf);
INSTANTIATE_TEST_SUITE_P(Chunks, KivRESTServiceFaults, testing::ValuesIn(chunkFaults()), nameOf);
INSTANTIATE_TEST_SUITE_P(Codings, KivRESTServiceFaults, testing::ValuesIn(codingFaults()), nameOf);
INSTANTIATE_TEST_SUITE_P(Heads, KivRESTServiceFaults, testing::ValuesIn(headFaults()), nameOf);
INSTANTIATE_TEST_SUITE_P(InterimResponses, KivRESTServiceFaults,
                         testing::ValuesIn(interimResponses()), nameOf);
INSTANTIATE_TEST_SUITE_P(Statuses, KivRESTServiceFaults, testing::ValuesIn(otherStatuses()),
                         nameOf);

TEST_F(KivRESTServiceFaultTest, ABrokenBodyIsNotGluedToThatOfTheMirror) {
  server_.serve("/a", Response::ok("of the main server").closeAt(6));
  mirror_.serve("/a", Response::ok("of the mirror"));
  EXPECT_EQ(loaded(urls()).body(), "of the mirror");
}

TEST_F(KivRESTServiceFaultTest, ABodyOfExactlyTheBoundIsTaken) {
  server_.serve("/a", Response::ok(std::string(1000, 'x')));
  server_.serve("/b", Response::ok(std::string(1000, 'x')).chunked(300));
  settings_.largestBody = 1000;
  const Load plain(client(), url());
  const Load inChunks(client(), url("/b"));
  ASSERT_TRUE(plain.waitForEnd() && inChunks.waitForEnd());
  EXPECT_EQ(plain.body().size(), 1000u);
  EXPECT_EQ(inChunks.body().size(), 1000u);
}

TEST_F(KivRESTServiceFaultTest, AHostThatNeverAnswersEndsWithTheConnectTimeout) {
  const UnreachableServer server;
  settings_.connectTimeout = std::chrono::milliseconds(200);
  EXPECT_EQ(loaded(server.url("/a")).errorCode(), codeOf(Code::timedOut));
}

TEST_F(KivRESTServiceFaultTest, TheMessageOfAnErrorShowsNoSecrets) {
  const RefusingServer server;
  auto url = server.url("/a.png?token=secret");
  url.insert(url.find("127"), "user:password@");
  const Load load = loaded(url);
  EXPECT_EQ(load.message(),
            "Could not load \"" + server.url("/a.png") + "\": the server could not be reached.");
}

}  // namespace
