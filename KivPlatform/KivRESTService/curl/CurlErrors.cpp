// libcurl has about a hundred result codes, and its messages depend on the TLS library and its
// version. Our errors and messages must not.

#include "KivPlatform/KivRESTService/curl/CurlErrors.h"

#include <algorithm>
#include <iterator>

#include <curl/curl.h>

namespace kiv {

namespace {

static_assert(resultOfTimeOut == CURLE_OPERATION_TIMEDOUT);
static_assert(resultOfCutBody == CURLE_PARTIAL_FILE);

bool isTLSFailure(int result) noexcept {
  switch (result) {
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_ENGINE_NOTFOUND:
    case CURLE_SSL_ENGINE_SETFAILED:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_USE_SSL_FAILED:
    case CURLE_SSL_ENGINE_INITFAILED:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_SHUTDOWN_FAILED:
    case CURLE_SSL_CRL_BADFILE:
    case CURLE_SSL_ISSUER_ERROR:
    case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
    case CURLE_SSL_INVALIDCERTSTATUS:
    case CURLE_SSL_CLIENTCERT:
      return true;
    default:
      return false;
  }
}

// --- Certificates ---

enum class Problem {
  otherHost,
  expired,
  notYetValid,
  selfSigned,
  unknownAuthority,
  revoked,
  other
};

struct Phrase {
  std::string_view text;
  Problem problem;
};

/// Phrases in the messages of OpenSSL and GnuTLS; the first match counts. Messages that quote a
/// name from the certificate come first, since the name may contain any of the other phrases.
constexpr Phrase phrases[] = {
    {"does not match target host name", Problem::otherHost},
    {"no alternative certificate subject name matches", Problem::otherHost},
    {"has expired", Problem::expired},
    {"expiration date has passed", Problem::expired},
    {"not yet valid", Problem::notYetValid},
    {"activation date has failed", Problem::notYetValid},
    {"in certificate chain", Problem::unknownAuthority},
    {"self signed certificate", Problem::selfSigned},
    {"self-signed certificate", Problem::selfSigned},
    {"issuer certificate", Problem::unknownAuthority},
    {"unable to verify the first certificate", Problem::unknownAuthority},
    {"certificate revoked", Problem::revoked},
};

/// OpenSSL's X509_V_ERR numbers, which are stable, for failures without a message.
Problem problemOfNumber(long verifyResult) noexcept {
  switch (verifyResult) {
    case 9:
      return Problem::notYetValid;
    case 10:
      return Problem::expired;
    case 18:
      return Problem::selfSigned;
    case 2:
    case 19:
    case 20:
    case 21:
      return Problem::unknownAuthority;
    case 23:
      return Problem::revoked;
    case 62:
      return Problem::otherHost;
    default:
      return Problem::other;
  }
}

Problem problemOf(std::string_view detail, long verifyResult) {
  const auto* const found = std::find_if(
      std::begin(phrases), std::end(phrases),
      [&](const Phrase& phrase) { return detail.find(phrase.text) != std::string_view::npos; });
  if (found != std::end(phrases)) return found->problem;
  return detail.empty() ? problemOfNumber(verifyResult) : Problem::other;
}

}  // namespace

KivRESTServiceErrorCode errorCodeForCurlResult(int result) noexcept {
  using Code = KivRESTServiceErrorCode;
  switch (result) {
    case CURLE_UNSUPPORTED_PROTOCOL:
    case CURLE_URL_MALFORMAT:
      return Code::unsupportedURL;

    case CURLE_COULDNT_RESOLVE_PROXY:
    case CURLE_COULDNT_RESOLVE_HOST:
      return Code::cannotResolveHost;

    case CURLE_COULDNT_CONNECT:
    case CURLE_INTERFACE_FAILED:
    case CURLE_NO_CONNECTION_AVAILABLE:
    case CURLE_PROXY:
      return Code::cannotConnect;

    case CURLE_OPERATION_TIMEDOUT:
      return Code::timedOut;

    case CURLE_PARTIAL_FILE:
    case CURLE_GOT_NOTHING:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_HTTP2_STREAM:
      return Code::connectionLost;

    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_HTTP2:
    case CURLE_BAD_CONTENT_ENCODING:
    case CURLE_CHUNK_FAILED:
    case CURLE_HTTP3:
    case resultOfTooLarge:
      return Code::malformedResponse;

    case CURLE_TOO_MANY_REDIRECTS:
      return Code::tooManyRedirects;

    case CURLE_FILESIZE_EXCEEDED:
      return Code::bodyTooLarge;

    case CURLE_FAILED_INIT:
    case CURLE_WRITE_ERROR:
    case CURLE_OUT_OF_MEMORY:
      return Code::outOfResources;

    default:
      return isTLSFailure(result) ? Code::secureConnectionFailed : Code::unknown;
  }
}

bool isEndOfHTTP2Connection(int result) noexcept {
  switch (result) {
    case CURLE_HTTP2:
    case CURLE_PARTIAL_FILE:
    case CURLE_GOT_NOTHING:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
      return true;
    default:
      return false;
  }
}

std::string certificateProblem(std::string_view server, std::string_view detail,
                               long verifyResult) {
  const std::string certificate = std::string("the certificate of ").append(server);
  switch (problemOf(detail, verifyResult)) {
    case Problem::otherHost:
      return std::string("the server's certificate is not for ").append(server);
    case Problem::expired:
      return certificate + " has expired";
    case Problem::notYetValid:
      return certificate + " is not valid yet";
    case Problem::selfSigned:
      return certificate + " is signed by itself, and not trusted here";
    case Problem::unknownAuthority:
      return certificate + " comes from an authority that is not trusted here";
    case Problem::revoked:
      return certificate + " has been revoked";
    case Problem::other:
      break;
  }
  const std::string failure = certificate + " could not be verified";
  return detail.empty() ? failure : failure + " (" + std::string(detail) + ")";
}

}  // namespace kiv
