// Which URLs may be loaded, and where a redirect may lead (RFC 9110, 15.4). That its address is
// public is checked by RedirectGuard, when libcurl connects.

#include "KivPlatform/KivRESTService/http/Redirect.h"

#include <optional>
#include <string>

#include "KivPlatform/KivRESTService/http/TransferErrors.h"

namespace kiv {

std::string_view validateURL(const URL& url) noexcept {
  if (url.scheme().empty()) return "the URL has no scheme";
  if (url.scheme() != "http" && url.scheme() != "https") {
    return "the URL's scheme is neither http nor https";
  }
  if (url.host().empty()) return "the URL has no host";
  return {};
}

bool isRedirect(int status) noexcept {
  return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

Result<URL> redirectTarget(const URL& from, std::string_view location) {
  using Code = KivRESTServiceErrorCode;
  const auto refusal = [&](Code code, std::string_view what) {
    return transferError(code, from.absoluteString(), what);
  };
  // Checked first: the resolver takes "mailto:a@b" for a relative path.
  const std::string scheme = URL::schemeOf(location);
  if (!scheme.empty() && scheme != "http" && scheme != "https") {
    return refusal(Code::refusedRedirect,
                   "the server redirects to a scheme other than http and https");
  }
  if (!scheme.empty() && !URL::hasHostAfterScheme(location, scheme)) {
    return refusal(Code::malformedResponse, "the server redirects to what is no URL");
  }
  const auto target = from.resolving(location);
  if (!target) return refusal(Code::malformedResponse, "the server redirects to what is no URL");
  if (!validateURL(*target).empty()) {
    return refusal(Code::refusedRedirect, "the server redirects to a URL that cannot be loaded");
  }
  if (from.scheme() == "https" && target->scheme() == "http") {
    return refusal(Code::refusedRedirect, "the server redirects from https to http");
  }
  return *target;
}

}  // namespace kiv
