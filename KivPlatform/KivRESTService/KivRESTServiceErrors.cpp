#include "KivPlatform/KivRESTService/KivRESTServiceErrors.h"

namespace kiv {

std::string_view nameOf(KivRESTServiceErrorCode code) noexcept {
  using enum KivRESTServiceErrorCode;
  switch (code) {
    case unknown:
      return "unknown";
    case unsupportedURL:
      return "unsupportedURL";
    case cannotResolveHost:
      return "cannotResolveHost";
    case cannotConnect:
      return "cannotConnect";
    case timedOut:
      return "timedOut";
    case connectionLost:
      return "connectionLost";
    case malformedResponse:
      return "malformedResponse";
    case secureConnectionFailed:
      return "secureConnectionFailed";
    case tooManyRedirects:
      return "tooManyRedirects";
    case refusedRedirect:
      return "refusedRedirect";
    case bodyTooLarge:
      return "bodyTooLarge";
    case outOfResources:
      return "outOfResources";
    case unsupportedRequest:
      return "unsupportedRequest";
    case forkedProcess:
      return "forkedProcess";
    case redirectToPrivateAddress:
      return "redirectToPrivateAddress";
    case deadlineExceeded:
      return "deadlineExceeded";
    case refusedRequest:
      return "refusedRequest";
  }
  return {};
}

}  // namespace kiv
