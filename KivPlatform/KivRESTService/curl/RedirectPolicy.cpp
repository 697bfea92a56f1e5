#include "KivPlatform/KivRESTService/curl/RedirectPolicy.h"

#include <memory>
#include <optional>
#include <string>

#include <curl/curl.h>

#include "KivPlatform/KivRESTService/http/TransferErrors.h"

namespace kiv {

namespace {

/// The scheme with which a reference begins, in lower case; empty if it is relative.
std::string schemeOf(std::string_view reference) {
  const auto end = reference.find_first_of(":/?#");
  if (end == std::string_view::npos || reference[end] != ':') return {};
  std::string scheme(reference.substr(0, end));
  for (char& character : scheme) {
    if (character >= 'A' && character <= 'Z') character = static_cast<char>(character + 32);
  }
  return scheme;
}

/// True if a host follows the scheme. The resolver would make one up from the path.
bool namesHost(std::string_view rest) noexcept {
  return rest.starts_with("://") && rest.size() > 3 && rest[3] != '/';
}

/// The absolute URL that the reference stands for, with what may not stand in a URL escaped, as
/// every browser does it for this header.
std::optional<URL> resolved(const URL& base, std::string_view reference) {
  const std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> parser(curl_url(), &curl_url_cleanup);
  if (!parser) return std::nullopt;
  const auto take = [&](const std::string& url, unsigned flags) {
    return curl_url_set(parser.get(), CURLUPART_URL, url.c_str(), flags) == CURLUE_OK;
  };
  if (!take(base.absoluteString(), 0) ||
      !take(std::string(reference), CURLU_NON_SUPPORT_SCHEME | CURLU_URLENCODE)) {
    return std::nullopt;
  }
  char* text = nullptr;
  if (curl_url_get(parser.get(), CURLUPART_URL, &text, 0) != CURLUE_OK) return std::nullopt;
  const std::unique_ptr<char, decltype(&curl_free)> owner(text, &curl_free);
  return URL::fromString(text);
}

}  // namespace

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

std::variant<URL, Error> redirectTarget(const URL& from, std::string_view location) {
  using Code = KivRESTServiceErrorCode;
  const auto refusal = [&](Code code, std::string_view what) {
    return transferError(code, from.absoluteString(), what);
  };
  // Looked at first: the resolver takes "mailto:a@b" for a relative path.
  const std::string scheme = schemeOf(location);
  if (!scheme.empty() && scheme != "http" && scheme != "https") {
    return refusal(Code::refusedRedirect,
                   "the server redirects to a scheme other than http and https");
  }
  if (!scheme.empty() && !namesHost(location.substr(scheme.size()))) {
    return refusal(Code::malformedResponse, "the server redirects to what is no URL");
  }
  const auto target = resolved(from, location);
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
