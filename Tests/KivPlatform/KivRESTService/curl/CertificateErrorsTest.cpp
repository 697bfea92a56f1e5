#include <set>
#include <string>

#include <gtest/gtest.h>

#include "KivPlatform/KivRESTService/curl/CurlErrors.h"

namespace {

using kiv::certificateProblem;

struct CertificateCase {
  const char* name;
  const char* detail;
  long number;
  const char* clause;
};

constexpr const char* expired = "the certificate of \"a.test\" has expired";
constexpr const char* early = "the certificate of \"a.test\" is not valid yet";
constexpr const char* selfSigned =
    "the certificate of \"a.test\" is signed by itself, and not trusted here";
constexpr const char* unknown =
    "the certificate of \"a.test\" comes from an authority that is not trusted here";
constexpr const char* revoked = "the certificate of \"a.test\" has been revoked";
constexpr const char* otherHost = "the server's certificate is not for \"a.test\"";

class CertificateErrorsTable : public testing::TestWithParam<CertificateCase> {};

TEST_P(CertificateErrorsTable, Says) {
  EXPECT_EQ(certificateProblem("\"a.test\"", GetParam().detail, GetParam().number),
            GetParam().clause);
}

// Messages of libcurl with OpenSSL 1.1 and 3, and with GnuTLS.
INSTANTIATE_TEST_SUITE_P(
    All, CertificateErrorsTable,
    testing::Values(
        CertificateCase{"Expired", "SSL certificate problem: certificate has expired", 10, expired},
        CertificateCase{"ExpiredToGnuTLS", "server certificate expiration date has passed.", 0,
                        expired},
        CertificateCase{"ExpiredByNumber", "", 10, expired},
        CertificateCase{"Early", "SSL certificate problem: certificate is not yet valid", 9, early},
        CertificateCase{"EarlyToGnuTLS", "server certificate activation date has failed.", 0,
                        early},
        CertificateCase{"EarlyByNumber", "", 9, early},
        CertificateCase{"SelfSigned", "SSL certificate problem: self-signed certificate", 18,
                        selfSigned},
        CertificateCase{"SelfSignedToOpenSSL1", "SSL certificate problem: self signed certificate",
                        18, selfSigned},
        CertificateCase{"SelfSignedByNumber", "", 18, selfSigned},
        CertificateCase{"UnknownRoot",
                        "SSL certificate problem: self-signed certificate in certificate chain", 19,
                        unknown},
        CertificateCase{"UnknownRootToOpenSSL1",
                        "SSL certificate problem: self signed certificate in certificate chain", 19,
                        unknown},
        CertificateCase{"UnknownIssuer",
                        "SSL certificate problem: unable to get local issuer certificate", 20,
                        unknown},
        CertificateCase{"NoChain",
                        "SSL certificate problem: unable to verify the first certificate", 21,
                        unknown},
        CertificateCase{"UnknownIssuerByNumber", "", 20, unknown},
        CertificateCase{"Revoked", "SSL certificate problem: certificate revoked", 23, revoked},
        CertificateCase{"RevokedByNumber", "", 23, revoked},
        CertificateCase{
            "OtherHost",
            "SSL: no alternative certificate subject name matches target host name 'a.test'", 0,
            otherHost},
        CertificateCase{
            "OtherHostByCommonName",
            "SSL: certificate subject name 'b.test' does not match target host name 'a.test'", 0,
            otherHost},
        CertificateCase{"OtherHostWithAMisleadingName",
                        "SSL: certificate subject name 'self-signed certificate that has expired' "
                        "does not match target host name 'a.test'",
                        0, otherHost},
        CertificateCase{"OtherHostByNumber", "", 62, otherHost},
        CertificateCase{"AnythingElse", "SSL certificate problem: unsupported purpose", 26,
                        "the certificate of \"a.test\" could not be verified (SSL certificate "
                        "problem: unsupported purpose)"},
        CertificateCase{"AnythingElseByNumber", "", 26,
                        "the certificate of \"a.test\" could not be verified"},
        CertificateCase{"NothingAtAll", "", 0,
                        "the certificate of \"a.test\" could not be verified"},
        CertificateCase{"TheNumberOfAnotherLibrary", "Certificate chain is too long", 10,
                        "the certificate of \"a.test\" could not be verified (Certificate chain is "
                        "too long)"}),
    [](const auto& testCase) { return std::string(testCase.param.name); });

}  // namespace
