#include "KivPlatform/KivRESTService/curl/CurlErrors.h"

#include <curl/curl.h>

namespace kiv {

namespace {

static_assert(resultOfTimeOut == CURLE_OPERATION_TIMEDOUT);

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

}  // namespace kiv
