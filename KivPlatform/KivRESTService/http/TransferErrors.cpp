// Messages are whole sentences, with the URL stripped of secrets, since hosts show them to users
// and write them to logs.

#include "KivPlatform/KivRESTService/http/TransferErrors.h"

#include "KivPlatform/Foundation/values/URL.h"

namespace kiv {

namespace {

std::string_view clause(KivRESTServiceErrorCode code) {
  switch (code) {
    case KivRESTServiceErrorCode::unknown:
      return "the transfer failed";
    case KivRESTServiceErrorCode::unsupportedURL:
      return "the URL cannot be loaded";
    case KivRESTServiceErrorCode::cannotResolveHost:
      return "the host was not found";
    case KivRESTServiceErrorCode::cannotConnect:
      return "the server could not be reached";
    case KivRESTServiceErrorCode::timedOut:
      return "the server did not answer in time, or stopped sending";
    case KivRESTServiceErrorCode::connectionLost:
      return "the connection ended before the response was whole";
    case KivRESTServiceErrorCode::malformedResponse:
      return "the server's response is no proper HTTP";
    case KivRESTServiceErrorCode::secureConnectionFailed:
      return "no secure connection to the server could be made";
    case KivRESTServiceErrorCode::tooManyRedirects:
      return "the server redirects too many times";
    case KivRESTServiceErrorCode::refusedRedirect:
      return "the server redirects to a place that may not be followed";
    case KivRESTServiceErrorCode::bodyTooLarge:
      return "the file is larger than the client takes";
    case KivRESTServiceErrorCode::outOfResources:
      return "memory, descriptors or threads have run out";
    case KivRESTServiceErrorCode::unsupportedRequest:
      return "the request cannot be performed";
    case KivRESTServiceErrorCode::forkedProcess:
      return "the client belongs to the process from which this one was forked";
    case KivRESTServiceErrorCode::redirectToPrivateAddress:
      return "the server redirects into a private network";
    case KivRESTServiceErrorCode::deadlineExceeded:
      return "it did not come within the time that is allowed for a file";
    case KivRESTServiceErrorCode::refusedRequest:
      return "the host did not let the request be sent";
  }
  return clause(KivRESTServiceErrorCode::unknown);
}

}  // namespace

Error transferError(KivRESTServiceErrorCode code, std::string_view url, std::string_view what) {
  std::string message = "Could not load ";
  if (url.empty()) {
    message += "the file";
  } else {
    message.append("\"").append(displayedURL(url)).append("\"");
  }
  message += ": ";
  message.append(what.empty() ? clause(code) : what).append(".");
  return Error(KivRESTServiceErrorDomain, static_cast<std::int64_t>(code), message);
}

Error sameTransferError(const Error& error, std::string_view url) {
  const std::string message = error.localizedDescription();
  std::string_view what = message;
  constexpr std::string_view separator = ": ";  // no URL contains it
  const auto end = what.find(separator);
  if (end != what.npos) what.remove_prefix(end + separator.size());
  if (what.ends_with('.')) what.remove_suffix(1);
  return transferError(static_cast<KivRESTServiceErrorCode>(error.code), url, what);
}

}  // namespace kiv
