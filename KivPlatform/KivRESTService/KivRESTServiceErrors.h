#pragma once

#include <string_view>

#include "KivPlatform/Foundation/Export.h"

/// Domain of the transfer errors; their codes are those of KivRESTServiceErrorCode.
inline constexpr std::string_view KivRESTServiceErrorDomain = "kiv.KivRESTService";

/// Why a transfer failed. The numbers are stable; new ones are added at the end.
enum class KivRESTServiceErrorCode : int {
  unknown = 1,
  unsupportedURL = 2,  ///< No scheme, no host, or a scheme other than http and https.
  cannotResolveHost = 3,
  cannotConnect = 4,
  timedOut = 5,                ///< The connection took too long, or no bytes came for too long.
  connectionLost = 6,          ///< The connection broke, or ended before the body was complete.
  malformedResponse = 7,       ///< The response is not valid HTTP, or contradicts itself.
  secureConnectionFailed = 8,  ///< TLS failed, or the certificate is not trusted.
  tooManyRedirects = 9,
  refusedRedirect = 10,  ///< A redirect to another scheme, or from https to http.
  bodyTooLarge = 11,
  outOfResources = 12,      ///< No memory, descriptors or disk left for the transfer.
  unsupportedRequest = 13,  ///< No request, or one with a method other than GET.
  forkedProcess = 14,  ///< The client was created before a fork, and belongs to the parent process.
  /// A redirect from a public server into a private network; see
  /// KivRESTServiceSettings::followsRedirectsToPrivateAddresses.
  redirectToPrivateAddress = 15,
  deadlineExceeded = 16,  ///< The file took longer than KivRESTServiceSettings::deadline.
  /// The host's request handler refused or dropped the request, or added a header that is not
  /// allowed; see KivRESTService::setRequestHandler().
  refusedRequest = 17,
};

namespace kiv {

/// The enumerator's name, such as "cannotConnect", for logs; empty for an unknown number.
KIV_EXPORT std::string_view nameOf(KivRESTServiceErrorCode code) noexcept;

}  // namespace kiv
