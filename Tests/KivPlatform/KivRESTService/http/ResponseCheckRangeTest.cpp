#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "KivPlatform/KivRESTService/http/ResponseCheck.h"

namespace {

using kiv::BodyVersion;
using kiv::RequestedRange;
using kiv::ResponseCheck;

const BodyVersion versionA{"\"a\"", ""};
const RequestedRange fromFive{5, 10, versionA};

/// Passes the header lines, given without line ends, and an empty line to the check.
bool feed(ResponseCheck& check, const std::vector<std::string>& lines) {
  for (const auto& line : lines) {
    if (!check.addHeaderLine(line + "\r\n")) return false;
  }
  return check.addHeaderLine("\r\n");
}

std::vector<std::string> partial(const std::string& range, const std::string& more = "X: y") {
  return {"HTTP/1.1 206 Partial Content", "Content-Range: " + range, more};
}

TEST(ResponseCheckRange, TheRestAsItWasAskedForIsTheFile) {
  ResponseCheck check(1000, fromFive);
  ASSERT_TRUE(feed(check, partial("bytes 5-9/10", "Content-Length: 5")));
  EXPECT_TRUE(check.isFile());
  EXPECT_TRUE(check.isContinuation());
  EXPECT_EQ(check.fileLength(), 10);
  EXPECT_TRUE(check.addBodyBytes(5));
  check.end();
  EXPECT_FALSE(check.problem());
}

TEST(ResponseCheckRange, LengthOfTheFileMayComeWithTheRest) {
  ResponseCheck check(1000, RequestedRange{5, std::nullopt, versionA});
  ASSERT_TRUE(feed(check, partial("bytes 5-11/12", "Content-Length: 7")));
  EXPECT_EQ(check.fileLength(), 12);
}

TEST(ResponseCheckRange, TheWholeFileMayComeInstead) {
  ResponseCheck check(1000, fromFive);
  ASSERT_TRUE(feed(check, {"HTTP/1.1 200 OK", "Content-Length: 12"}));
  EXPECT_TRUE(check.isFile());
  EXPECT_FALSE(check.isContinuation());
  EXPECT_FALSE(check.deniesRange());
  EXPECT_EQ(check.fileLength(), 12);
}

class WrongRanges : public testing::TestWithParam<std::vector<std::string>> {};

TEST_P(WrongRanges, AreRefused) {
  ResponseCheck check(1000, fromFive);
  EXPECT_FALSE(feed(check, GetParam()));
  EXPECT_TRUE(check.deniesRange());
  EXPECT_FALSE(check.isFile());
  EXPECT_TRUE(check.problem());
}

INSTANTIATE_TEST_SUITE_P(
    All, WrongRanges,
    testing::Values(
        partial("bytes 4-9/10"), partial("bytes 6-9/10"), partial("bytes 0-9/10"),
        partial("bytes 5-8/10"), partial("bytes 5-10/10"), partial("bytes 5-10/11"),
        partial("bytes 5-9/*"), partial("bytes */10"), partial("bytes 5-9/"), partial("bytes 5-9"),
        partial("bytes 9-5/10"), partial("bytes -5-9/10"), partial("bytes 5 - 9/10"),
        partial("lines 5-9/10"), partial(""), partial("bytes 5-9/10, bytes 5-9/10"),
        partial("bytes 5-18446744073709551625/18446744073709551626"),
        partial("bytes 5-9/10", "Content-Length: 6"), partial("bytes 5-9/10", "ETag: \"b\""),
        partial("bytes 5-9/10", "ETag: W/\"a\""),
        std::vector<std::string>{"HTTP/1.1 206 OK", "Content-Length: 5"},
        std::vector<std::string>{"HTTP/1.1 206 OK", "Content-Type: multipart/byteranges"},
        std::vector<std::string>{"HTTP/1.1 416 No", "Content-Range: bytes */10"}));

TEST(ResponseCheckRange, WithoutARangeAskedForAPartIsOnlyAStatus) {
  ResponseCheck check(1000);
  EXPECT_TRUE(feed(check, partial("bytes 5-9/10")));
  EXPECT_FALSE(check.isFile());
  EXPECT_FALSE(check.deniesRange());
  EXPECT_EQ(check.status(), 206);
}

TEST(ResponseCheckRange, AnotherDateIsAnotherVersion) {
  const BodyVersion dated{"", "Wed, 01 Jan 2025 00:00:00 GMT"};
  ResponseCheck same(1000, RequestedRange{5, 10, dated});
  auto lines = partial("bytes 5-9/10", "Last-Modified: " + dated.lastModified);
  lines.push_back("Content-Length: 5");
  EXPECT_TRUE(feed(same, lines));
  ResponseCheck other(1000, RequestedRange{5, 10, dated});
  EXPECT_FALSE(
      feed(other, partial("bytes 5-9/10", "Last-Modified: Thu, 02 Jan 2025 00:00:00 GMT")));
}

TEST(ResponseCheckRange, TheRestMustHaveItsLength) {
  const std::vector<std::string> chunked = partial("bytes 5-9/10", "Transfer-Encoding: chunked");
  ResponseCheck few(1000, fromFive);
  ASSERT_TRUE(feed(few, chunked));
  EXPECT_TRUE(few.addBodyBytes(4));
  few.end();
  EXPECT_TRUE(few.problem());

  ResponseCheck many(1000, fromFive);
  ASSERT_TRUE(feed(many, chunked));
  EXPECT_FALSE(many.addBodyBytes(6));
}

TEST(ResponseCheckRange, TheRestNeedsNoOtherLength) {
  ResponseCheck check(1000, fromFive);
  ASSERT_TRUE(feed(check, partial("bytes 5-9/10")));
  EXPECT_FALSE(check.endsWithConnection()) << "its range tells where it ends";
  EXPECT_TRUE(check.addBodyBytes(4));
  check.end();
  ASSERT_TRUE(check.problem());
  EXPECT_EQ(check.problem()->code, KivRESTServiceErrorCode::connectionLost);
}

TEST(ResponseCheckRange, TheBoundHoldsForTheWholeFile) {
  ResponseCheck check(9, RequestedRange{5, std::nullopt, versionA});
  EXPECT_FALSE(feed(check, partial("bytes 5-9/10")));
  EXPECT_EQ(check.problem()->code, KivRESTServiceErrorCode::bodyTooLarge);
}

BodyVersion versionOf(const std::vector<std::string>& headers) {
  ResponseCheck check(1000);
  std::vector<std::string> lines{"HTTP/1.1 200 OK", "Content-Length: 5"};
  lines.insert(lines.end(), headers.begin(), headers.end());
  EXPECT_TRUE(feed(check, lines));
  return check.version();
}

TEST(ResponseVersion, IsAStrongTag) {
  EXPECT_EQ(versionOf({"ETag: \"x!y\""}).validator(), "\"x!y\"");
  EXPECT_EQ(versionOf({"ETag: \"x y\""}).validator(), "");
  EXPECT_EQ(versionOf({"ETag: W/\"x\""}).validator(), "");
  EXPECT_EQ(versionOf({"ETag: x"}).validator(), "");
  EXPECT_EQ(versionOf({"ETag: \""}).validator(), "");
  EXPECT_EQ(versionOf({"ETag: \"a\"", "ETag: \"b\""}).validator(), "");
  EXPECT_EQ(versionOf({}).validator(), "");
}

TEST(ResponseVersion, IsADateThatIsOldEnough) {
  const std::string date = "Wed, 01 Jan 2025 00:00:00 GMT";
  EXPECT_EQ(versionOf({"Last-Modified: " + date}).validator(), date);
  EXPECT_EQ(
      versionOf({"Last-Modified: " + date, "Date: Wed, 01 Jan 2025 00:00:01 GMT"}).validator(),
      date);
  EXPECT_EQ(versionOf({"Last-Modified: " + date, "Date: " + date}).validator(), "");
  EXPECT_EQ(versionOf({"Last-Modified: long ago"}).validator(), "");
  EXPECT_EQ(versionOf({"Last-Modified: " + date, "ETag: \"x\""}).validator(), "\"x\"");
}

TEST(ResponseVersion, OfAnInterimResponseIsForgotten) {
  ResponseCheck check(1000);
  ASSERT_TRUE(feed(check, {"HTTP/1.1 103 Hints", "ETag: \"old\"", "Retry-After: 5"}));
  ASSERT_TRUE(feed(check, {"HTTP/1.1 200 OK", "Content-Length: 5"}));
  EXPECT_EQ(check.version().validator(), "");
  EXPECT_FALSE(check.retryAfter());
}

TEST(ResponseCheckHTTP2, IsTakenOnlyWhereItWasOffered) {
  ResponseCheck without(1000);
  EXPECT_FALSE(feed(without, {"HTTP/2 200 "}));
  ResponseCheck with(1000, std::nullopt, ResponseCheck::Protocols::http1AndHTTP2);
  ASSERT_TRUE(feed(with, {"HTTP/2 200 ", "content-length: 1"}));
  EXPECT_TRUE(with.isFile());
  EXPECT_TRUE(with.mayBeHTTP2());
  ResponseCheck http1(1000, std::nullopt, ResponseCheck::Protocols::http1AndHTTP2);
  EXPECT_TRUE(feed(http1, {"HTTP/1.1 200 OK", "Content-Length: 1"}));
  EXPECT_FALSE(http1.mayBeHTTP2());
}

/// Whether a stream was ended or reset with NO_ERROR cannot be told from libcurl's result.
TEST(ResponseCheckHTTP2, ABodyNeedsALength) {
  ResponseCheck whole(1000, std::nullopt, ResponseCheck::Protocols::http1AndHTTP2);
  EXPECT_FALSE(feed(whole, {"HTTP/2 200 "}));
  const RequestedRange asked{5, 10, {"\"1\"", {}}};
  ResponseCheck rest(1000, asked, ResponseCheck::Protocols::http1AndHTTP2);
  EXPECT_FALSE(feed(rest, {"HTTP/2 206 ", "content-range: bytes 5-9/10", "etag: \"1\""}));
  EXPECT_EQ(rest.problem()->code, KivRESTServiceErrorCode::malformedResponse);
  EXPECT_FALSE(rest.deniesRange());
  ResponseCheck restOfLength(1000, asked, ResponseCheck::Protocols::http1AndHTTP2);
  EXPECT_TRUE(feed(restOfLength, {"HTTP/2 206 ", "content-range: bytes 5-9/10", "etag: \"1\"",
                                  "content-length: 5"}));
}

TEST(ResponseCheckHTTP2, AnErrorPageNeedsNoLength) {
  ResponseCheck check(1000, std::nullopt, ResponseCheck::Protocols::http1AndHTTP2);
  EXPECT_TRUE(feed(check, {"HTTP/2 404 "}));
}

}  // namespace
