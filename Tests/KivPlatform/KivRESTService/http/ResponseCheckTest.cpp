#include <string>

#include <gtest/gtest.h>

#include "KivPlatform/KivRESTService/http/ResponseCheck.h"

namespace {

using Code = KivRESTServiceErrorCode;
using kiv::ResponseCheck;

constexpr std::int64_t largestBody = 1000;

/// Passes the header section to the check, line by line, with an empty line at the end.
void feed(ResponseCheck& check, std::string_view head) {
  while (!head.empty()) {
    const auto end = head.find('\n');
    std::string line(head.substr(0, end));
    if (!check.addHeaderLine(line.append("\r\n"))) return;
    head.remove_prefix(end == std::string_view::npos ? head.size() : end + 1);
  }
  check.addHeaderLine("\r\n");
}

/// A check that has received this header section.
class FedCheck : public ResponseCheck {
 public:
  explicit FedCheck(std::string_view head) : ResponseCheck(largestBody) { feed(*this, head); }
};

/// Ends the body after that many bytes.
void endAfter(ResponseCheck& check, std::size_t bytes) {
  check.addBodyBytes(bytes);
  check.end();
}

void expectProblem(const ResponseCheck& check, Code code) {
  ASSERT_TRUE(check.problem());
  EXPECT_EQ(check.problem()->code, code) << check.problem()->what;
}

struct HeadCase {
  const char* name;
  const char* head;
  std::optional<Code> problem;
};

class ResponseHeads : public testing::TestWithParam<HeadCase> {};

TEST_P(ResponseHeads, AreTakenOrRefused) {
  FedCheck check(GetParam().head);
  if (!GetParam().problem) {
    EXPECT_FALSE(check.problem()) << check.problem()->what;
    EXPECT_TRUE(check.hasHeaders());
  } else {
    expectProblem(check, *GetParam().problem);
  }
}

constexpr auto malformed = Code::malformedResponse;

INSTANTIATE_TEST_SUITE_P(
    All, ResponseHeads,
    testing::Values(
        HeadCase{"Length", "HTTP/1.1 200 OK\nContent-Length: 5", {}},
        HeadCase{"LengthInAnyCase", "HTTP/1.1 200 OK\ncOnTeNt-LeNgTh:5", {}},
        HeadCase{"NoReason", "HTTP/1.1 200\nContent-Length: 5", {}},
        HeadCase{"Chunked", "HTTP/1.1 200 OK\nTransfer-Encoding: Chunked", {}},
        HeadCase{"ChunkedWithLength",
                 "HTTP/1.1 200 OK\nTransfer-Encoding: chunked\nContent-Length: 5",
                 {}},
        HeadCase{"SameLengthTwice", "HTTP/1.1 200 OK\nContent-Length: 5\nContent-Length: 5", {}},
        HeadCase{"SameLengthInAList", "HTTP/1.1 200 OK\nContent-Length: 5, 5", {}},
        HeadCase{"FoldedLength", "HTTP/1.1 200 OK\nContent-Length:\n 5", {}},
        HeadCase{"Identity", "HTTP/1.1 200 OK\nContent-Length: 5\nContent-Encoding: identity", {}},
        HeadCase{"HTTP10WithoutLength", "HTTP/1.0 200 OK\nServer: old", {}},
        HeadCase{"LargestBody", "HTTP/1.1 200 OK\nContent-Length: 1000", {}},
        HeadCase{"OtherStatusEncoded", "HTTP/1.1 404 No\nContent-Encoding: gzip", {}},
        HeadCase{"OtherStatusTooLarge", "HTTP/1.1 404 No\nContent-Length: 5000", {}},
        HeadCase{"AfterInterim", "HTTP/1.1 100 Go\n\nHTTP/1.1 200 OK\nContent-Length: 5", {}},
        HeadCase{"LengthOfAnInterimResponseIsForgotten",
                 "HTTP/1.1 103 Hints\nContent-Length: 7\n\nHTTP/1.1 200 OK\nContent-Length: 5",
                 {}},
        HeadCase{"HTTP11WithoutLength", "HTTP/1.1 200 OK\nServer: x", malformed},
        HeadCase{"HTTP11WithoutLengthThatCloses", "HTTP/1.1 200 OK\nConnection: close", malformed},
        HeadCase{"TwoLengths", "HTTP/1.1 200 OK\nContent-Length: 5\nContent-Length: 6", malformed},
        HeadCase{"TwoLengthsInAList", "HTTP/1.1 200 OK\nContent-Length: 5, 6", malformed},
        HeadCase{"JunkAfterLength", "HTTP/1.1 200 OK\nContent-Length: 5x", malformed},
        HeadCase{"JunkAfterFoldedLength", "HTTP/1.1 200 OK\nContent-Length: 5\n 6", malformed},
        HeadCase{"SignedLength", "HTTP/1.1 200 OK\nContent-Length: +5", malformed},
        HeadCase{"NegativeLength", "HTTP/1.1 200 OK\nContent-Length: -5", malformed},
        HeadCase{"HexLength", "HTTP/1.1 200 OK\nContent-Length: 0x5", malformed},
        HeadCase{"EmptyLength", "HTTP/1.1 200 OK\nContent-Length:", malformed},
        HeadCase{"EmptyLengthInAList", "HTTP/1.1 200 OK\nContent-Length: 5,", malformed},
        HeadCase{"OverflowingLength", "HTTP/1.1 200 OK\nContent-Length: 99999999999999999999",
                 malformed},
        HeadCase{"BlankBeforeColon", "HTTP/1.1 200 OK\nContent-Length : 5", malformed},
        HeadCase{"GzipTransfer", "HTTP/1.1 200 OK\nTransfer-Encoding: gzip, chunked", malformed},
        HeadCase{"ChunkedTwice",
                 "HTTP/1.1 200 OK\nTransfer-Encoding: chunked\nTransfer-Encoding: chunked",
                 malformed},
        HeadCase{"ChunkedOverHTTP10", "HTTP/1.0 200 OK\nTransfer-Encoding: chunked", malformed},
        HeadCase{"GzipContent", "HTTP/1.1 200 OK\nContent-Length: 5\nContent-Encoding: gzip",
                 malformed},
        HeadCase{"BrotliContent", "HTTP/1.1 200 OK\nContent-Length: 5\nContent-Encoding: br",
                 malformed},
        HeadCase{"TwoLocations", "HTTP/1.1 302 Go\nLocation: /a\nLocation: /b", malformed},
        HeadCase{"NotHTTP", "ICY 200 OK", malformed},
        HeadCase{"HTTP2Text", "HTTP/2 200", malformed},
        HeadCase{"StatusOf2Digits", "HTTP/1.1 20 OK", malformed},
        HeadCase{"StatusOf4Digits", "HTTP/1.1 2000 OK", malformed},
        HeadCase{"StatusTooSmall", "HTTP/1.1 099 OK", malformed},
        HeadCase{"StatusTooLarge", "HTTP/1.1 600 OK", malformed},
        HeadCase{"TooLarge", "HTTP/1.1 200 OK\nContent-Length: 1001", Code::bodyTooLarge}),
    [](const auto& testCase) { return std::string(testCase.param.name); });

TEST(ResponseCheck, KnowsWhatTheHeadersSay) {
  ResponseCheck check(largestBody);
  EXPECT_FALSE(check.hasHeaders());
  feed(check, "HTTP/1.1 302 Go\nLocation: \t/there \nContent-Length: 3");
  EXPECT_EQ(check.status(), 302);
  EXPECT_EQ(check.location(), "/there");
  EXPECT_EQ(check.fileLength(), 3);
  EXPECT_FALSE(check.isFile());
}

TEST(ResponseCheck, OnlyStatus200IsAFile) {
  for (const int status : {201, 204, 206, 304, 404, 500}) {
    FedCheck check("HTTP/1.1 " + std::to_string(status) + " X\nContent-Length: 0");
    EXPECT_FALSE(check.isFile()) << status;
    EXPECT_EQ(check.status(), status);
  }
}

TEST(ResponseCheck, ABodyOfItsLengthIsWhole) {
  FedCheck check("HTTP/1.1 200 OK\nContent-Length: 5");
  EXPECT_TRUE(check.addBodyBytes(2));
  EXPECT_TRUE(check.addBodyBytes(3));
  check.end();
  EXPECT_FALSE(check.problem());
  EXPECT_FALSE(check.endsWithConnection());
}

TEST(ResponseCheck, ABodyOfAnotherLengthIsNotWhole) {
  for (const std::size_t size : {0U, 4U, 6U}) {
    FedCheck check("HTTP/1.1 200 OK\nTransfer-Encoding: chunked\nContent-Length: 5");
    endAfter(check, size);
    ASSERT_TRUE(check.problem()) << size;
    EXPECT_EQ(check.problem()->code, Code::connectionLost);
  }
}

TEST(ResponseCheck, AnEmptyBodyIsWhole) {
  FedCheck check("HTTP/1.1 200 OK\nContent-Length: 0");
  check.end();
  EXPECT_FALSE(check.problem());
}

TEST(ResponseCheck, OverHTTP10TheEndOfTheConnectionEndsTheBody) {
  FedCheck check("HTTP/1.0 200 OK\nServer: old");
  EXPECT_TRUE(check.endsWithConnection());
  endAfter(check, 7);
  EXPECT_FALSE(check.problem());
}

TEST(ResponseCheck, OverHTTP11ABodyWithoutLengthIsRefusedWithTheNameOfTheSetting) {
  const FedCheck check("HTTP/1.1 200 OK\nServer: small");
  ASSERT_NO_FATAL_FAILURE(expectProblem(check, malformed));
  EXPECT_NE(check.problem()->what.find("takesBodiesWithoutLength"), std::string::npos);
}

TEST(ResponseCheck, OverHTTP11ABodyWithoutLengthIsTakenWhereTheHostWantsIt) {
  ResponseCheck check(largestBody, std::nullopt, ResponseCheck::Protocols::http1,
                      ResponseCheck::OpenEnds::all);
  feed(check, "HTTP/1.1 200 OK\nServer: small");
  EXPECT_TRUE(check.endsWithConnection());
  EXPECT_TRUE(check.addBodyBytes(7));
  check.end();
  EXPECT_FALSE(check.problem());
}

TEST(ResponseCheck, ABodyWithoutLengthIsRefusedWhereACutCannotBeNoticed) {
  for (const char* const version : {"HTTP/1.0", "HTTP/1.1"}) {
    ResponseCheck check(largestBody, std::nullopt, ResponseCheck::Protocols::http1,
                        ResponseCheck::OpenEnds::none);
    feed(check, std::string(version) + " 200 OK\nServer: old");
    ASSERT_TRUE(check.problem()) << version;
    EXPECT_EQ(check.problem()->code, malformed);
    EXPECT_NE(check.problem()->what.find("over https"), std::string::npos);
  }
}

TEST(ResponseCheck, WithoutOpenEndsABodyOfItsLengthIsTaken) {
  for (const char* const head :
       {"HTTP/1.0 200 OK\nContent-Length: 5", "HTTP/1.1 200 OK\nTransfer-Encoding: chunked"}) {
    ResponseCheck check(largestBody, std::nullopt, ResponseCheck::Protocols::http1,
                        ResponseCheck::OpenEnds::none);
    feed(check, head);
    endAfter(check, 5);
    EXPECT_FALSE(check.problem()) << head;
  }
}

TEST(ResponseCheck, ABodyWithoutEndStopsAtTheBound) {
  FedCheck check("HTTP/1.1 200 OK\nTransfer-Encoding: chunked");
  EXPECT_TRUE(check.addBodyBytes(1000));
  EXPECT_FALSE(check.addBodyBytes(1));
  expectProblem(check, Code::bodyTooLarge);
}

TEST(ResponseCheck, ABodyNobodyWantsIsReadForAWhileOnly) {
  FedCheck check("HTTP/1.1 404 No\nTransfer-Encoding: chunked");
  EXPECT_TRUE(check.addBodyBytes(ResponseCheck::largestUnwantedBody));
  EXPECT_FALSE(check.addBodyBytes(1));
  EXPECT_FALSE(check.problem());
}

TEST(ResponseCheck, HeadersThatDoNotEndAreNoResponse) {
  for (const std::string_view line : {"", "HTTP/1.1 200 OK\r\n"}) {
    ResponseCheck check(largestBody);
    if (!line.empty()) check.addHeaderLine(line);
    check.end();
    expectProblem(check, Code::connectionLost);
  }
}

TEST(ResponseCheck, AnInterimResponseAloneIsNoResponse) {
  FedCheck check("HTTP/1.1 100 Go");
  check.end();
  expectProblem(check, Code::connectionLost);
}

TEST(ResponseCheck, InterimResponsesAreBoundedInAll) {
  ResponseCheck check(largestBody);
  int taken = 0;
  while (taken < 100'000 && check.addHeaderLine("HTTP/1.1 100 Go\r\n") &&
         check.addHeaderLine("\r\n")) {
    ++taken;
  }
  EXPECT_GT(taken, 1'000);
  expectProblem(check, malformed);
}

TEST(ResponseCheck, TrailersChangeNothing) {
  FedCheck check("HTTP/1.1 200 OK\nTransfer-Encoding: chunked");
  check.addBodyBytes(5);
  EXPECT_TRUE(check.addHeaderLine("Content-Length: 9\r\n"));
  check.end();
  EXPECT_FALSE(check.problem());
}

}  // namespace
