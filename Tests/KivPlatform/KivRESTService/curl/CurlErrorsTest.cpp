#include <gtest/gtest.h>

#include "KivPlatform/KivRESTService/curl/CurlErrors.h"

namespace {

using Code = KivRESTServiceErrorCode;
using kiv::errorCodeForCurlResult;

struct CurlCase {
  const char* name;
  int result;
  Code code;
};

class CurlErrorsTable : public testing::TestWithParam<CurlCase> {};

TEST_P(CurlErrorsTable, Maps) {
  EXPECT_EQ(errorCodeForCurlResult(GetParam().result), GetParam().code);
}

// The codes are part of libcurl's ABI and never change.
INSTANTIATE_TEST_SUITE_P(
    All, CurlErrorsTable,
    testing::Values(CurlCase{"UnsupportedProtocol", 1, Code::unsupportedURL},
                    CurlCase{"FailedInit", 2, Code::outOfResources},
                    CurlCase{"URLMalformat", 3, Code::unsupportedURL},
                    CurlCase{"CouldntResolveProxy", 5, Code::cannotResolveHost},
                    CurlCase{"CouldntResolveHost", 6, Code::cannotResolveHost},
                    CurlCase{"CouldntConnect", 7, Code::cannotConnect},
                    CurlCase{"WeirdServerReply", 8, Code::malformedResponse},
                    CurlCase{"HTTP2", 16, Code::malformedResponse},
                    CurlCase{"PartialFile", 18, Code::connectionLost},
                    CurlCase{"WriteError", 23, Code::outOfResources},
                    CurlCase{"OutOfMemory", 27, Code::outOfResources},
                    CurlCase{"OperationTimedOut", 28, Code::timedOut},
                    CurlCase{"SSLConnectError", 35, Code::secureConnectionFailed},
                    CurlCase{"InterfaceFailed", 45, Code::cannotConnect},
                    CurlCase{"TooManyRedirects", 47, Code::tooManyRedirects},
                    CurlCase{"GotNothing", 52, Code::connectionLost},
                    CurlCase{"SSLEngineNotFound", 53, Code::secureConnectionFailed},
                    CurlCase{"SSLEngineSetFailed", 54, Code::secureConnectionFailed},
                    CurlCase{"SendError", 55, Code::connectionLost},
                    CurlCase{"RecvError", 56, Code::connectionLost},
                    CurlCase{"SSLCertProblem", 58, Code::secureConnectionFailed},
                    CurlCase{"SSLCipher", 59, Code::secureConnectionFailed},
                    CurlCase{"PeerFailedVerification", 60, Code::secureConnectionFailed},
                    CurlCase{"BadContentEncoding", 61, Code::malformedResponse},
                    CurlCase{"FilesizeExceeded", 63, Code::bodyTooLarge},
                    CurlCase{"UseSSLFailed", 64, Code::secureConnectionFailed},
                    CurlCase{"SSLEngineInitFailed", 66, Code::secureConnectionFailed},
                    CurlCase{"SSLCACertBadFile", 77, Code::secureConnectionFailed},
                    CurlCase{"SSLShutdownFailed", 80, Code::secureConnectionFailed},
                    CurlCase{"SSLCRLBadFile", 82, Code::secureConnectionFailed},
                    CurlCase{"SSLIssuerError", 83, Code::secureConnectionFailed},
                    CurlCase{"ChunkFailed", 88, Code::malformedResponse},
                    CurlCase{"NoConnectionAvailable", 89, Code::cannotConnect},
                    CurlCase{"SSLPinnedPubKeyNotMatch", 90, Code::secureConnectionFailed},
                    CurlCase{"SSLInvalidCertStatus", 91, Code::secureConnectionFailed},
                    CurlCase{"HTTP2Stream", 92, Code::connectionLost},
                    CurlCase{"TooLarge", 100, Code::malformedResponse},
                    CurlCase{"HTTP3", 95, Code::malformedResponse},
                    CurlCase{"Proxy", 97, Code::cannotConnect},
                    CurlCase{"SSLClientCert", 98, Code::secureConnectionFailed},
                    CurlCase{"LoginDenied", 67, Code::unknown},
                    CurlCase{"FTPWeirdPassReply", 11, Code::unknown}),
    [](const auto& testCase) { return std::string(testCase.param.name); });

TEST(CurlErrors, WhatIsNotListedIsUnknown) {
  for (const int result : {-1, 0, 101, 1000, 1 << 30}) {
    EXPECT_EQ(errorCodeForCurlResult(result), Code::unknown) << result;
  }
}

TEST(CurlErrors, EveryNumberHasACodeOfTheTable) {
  for (int result = 0; result < 200; ++result) {
    const auto code = static_cast<int>(errorCodeForCurlResult(result));
    EXPECT_GE(code, static_cast<int>(Code::unknown)) << result;
    EXPECT_LE(code, static_cast<int>(Code::unsupportedRequest)) << result;
  }
}

TEST(EndOfHTTP2Connection, IsNotTheEndOfOneStream) {
  constexpr int http2 = 16;
  constexpr int http2Stream = 92;
  EXPECT_TRUE(kiv::isEndOfHTTP2Connection(http2));
  EXPECT_TRUE(kiv::isEndOfHTTP2Connection(kiv::resultOfCutBody));
  EXPECT_FALSE(kiv::isEndOfHTTP2Connection(http2Stream));
  EXPECT_FALSE(kiv::isEndOfHTTP2Connection(kiv::resultOfTimeOut));
  EXPECT_FALSE(kiv::isEndOfHTTP2Connection(0));
}

}  // namespace
