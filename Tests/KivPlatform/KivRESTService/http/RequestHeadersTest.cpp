#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "KivPlatform/KivRESTService/http/RequestHeaders.h"

namespace {

using Headers = std::vector<KivRESTServiceHeader>;

bool isAccepted(const std::string& name, const std::string& value = "v") {
  return kiv::validateRequestHeaders({{name, value}}).empty();
}

TEST(RequestHeadersTest, NoneAndUsualOnesAreAccepted) {
  EXPECT_EQ(kiv::validateRequestHeaders({}), "");
  for (const char* const name : {"Authorization", "Cookie", "X-Api-Key", "accept", "User-Agent",
                                 "Referer", "x", "!#$%&'*+-.^_`|~09azAZ"}) {
    EXPECT_TRUE(isAccepted(name)) << name;
  }
}

TEST(RequestHeadersTest, WhatIsNoTokenIsNoName) {
  for (const char* const name :
       {"", " ", "a b", "a:", ":path", "a\r", "a\nb", "a\t", "\"a\"", "a/b", "(a)", "a=b", "a;",
        "a,b", "a@b", "[a]", "{a}", "\x7f", "\xc3\xa4"}) {
    EXPECT_FALSE(isAccepted(name)) << name;
  }
  EXPECT_FALSE(isAccepted(std::string("a\0b", 3)));
}

TEST(RequestHeadersTest, AValueEndsNoLine) {
  for (int byte = 0; byte < 256; ++byte) {
    const std::string value = {'a', static_cast<char>(byte), 'b'};
    EXPECT_EQ(isAccepted("X", value), byte >= 0x20 && byte != 0x7F) << byte;
    EXPECT_EQ(isAccepted("X", {static_cast<char>(byte)}), byte > 0x20 && byte != 0x7F) << byte;
  }
  EXPECT_FALSE(isAccepted("Authorization", "token\n"));
  EXPECT_FALSE(isAccepted("Authorization", "token\r\nHost: other"));
}

TEST(RequestHeadersTest, AValueMayBeEmptyAndHasNoSpaceAtItsEnds) {
  EXPECT_TRUE(isAccepted("X", ""));
  EXPECT_TRUE(isAccepted("X", "Bearer a b"));
  EXPECT_FALSE(isAccepted("X", " a"));
  EXPECT_FALSE(isAccepted("X", "a "));
}

TEST(RequestHeadersTest, TheClientsOwnAreRefusedInAnyCase) {
  for (const char* const name : {"Host",
                                 "Content-Length",
                                 "Transfer-Encoding",
                                 "Connection",
                                 "Range",
                                 "If-Range",
                                 "Accept-Encoding",
                                 "TE",
                                 "Upgrade",
                                 "Trailer",
                                 "Expect",
                                 "Keep-Alive",
                                 "Proxy-Connection",
                                 "Proxy-Authorization",
                                 "HTTP2-Settings",
                                 "If-Match",
                                 "If-None-Match",
                                 "If-Modified-Since",
                                 "If-Unmodified-Since",
                                 "hOST",
                                 "RANGE",
                                 "if-none-match"}) {
    EXPECT_FALSE(isAccepted(name)) << name;
  }
  EXPECT_TRUE(isAccepted("X-Host"));
  EXPECT_TRUE(isAccepted("Hos"));
}

TEST(RequestHeadersTest, ThereAreAtMostThirtyTwo) {
  Headers headers(32, {"X", "v"});
  EXPECT_EQ(kiv::validateRequestHeaders(headers), "");
  headers.push_back({"X", "v"});
  EXPECT_EQ(kiv::validateRequestHeaders(headers), "the host adds more than 32 headers");
}

TEST(RequestHeadersTest, TheyHaveAtMost32KiB) {
  EXPECT_TRUE(isAccepted("X", std::string(32 * 1024 - 1, 'v')));
  EXPECT_FALSE(isAccepted("X", std::string(32 * 1024, 'v')));
  const std::string half(16 * 1024, 'v');
  EXPECT_EQ(kiv::validateRequestHeaders({{"A", half}, {"B", half}}),
            "the host adds headers of more than 32768 bytes");
}

TEST(RequestHeadersTest, TheProblemNamesThePlaceAndQuotesNothing) {
  EXPECT_EQ(kiv::validateRequestHeaders({{"A", "v"}, {"secret name", "v"}}),
            "header 2 of the host has no valid name");
  EXPECT_EQ(kiv::validateRequestHeaders({{"Range", "secret"}}),
            "header 1 of the host is one that only the client may set");
  EXPECT_EQ(kiv::validateRequestHeaders({{"A", "secret\n"}}),
            "header 1 of the host has a control character in its value");
  EXPECT_EQ(kiv::validateRequestHeaders({{"A", "secret "}}),
            "header 1 of the host has a space at the start or end of its value");
}

}  // namespace
