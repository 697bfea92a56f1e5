// libcurl's parser finds the host, since libcurl will connect to it. If another parser read a URL
// differently, a check could pass for one host and the request go to another.

#include "KivPlatform/Foundation/values/URL.h"

#include <algorithm>
#include <array>
#include <memory>

#include <curl/curl.h>

#include "KivPlatform/Foundation/text/ASCII.h"

namespace kiv {

namespace {

/// Unreserved and reserved characters (RFC 3986, 2); "%" is checked separately.
constexpr auto urlCharacters = [] {
  std::array<bool, 256> may{};
  for (const char character : std::string_view("-._~:/?#[]@!$&'()*+,;="))
    may[static_cast<unsigned char>(character)] = true;
  for (unsigned character = 0; character < may.size(); ++character)
    may[character] |= ascii::isLetter(static_cast<char>(character)) ||
                      ascii::isDigit(static_cast<char>(character));
  return may;
}();

bool mayStandInURL(char character) noexcept {
  return urlCharacters[static_cast<unsigned char>(character)];
}

bool hasOnlyURLCharacters(std::string_view string) noexcept {
  for (std::size_t at = 0; at < string.size(); ++at) {
    if (string[at] == '%') {
      if (at + 2 >= string.size() || !ascii::isHexDigit(string[at + 1]) ||
          !ascii::isHexDigit(string[at + 2])) {
        return false;
      }
      at += 2;
    } else if (!mayStandInURL(string[at])) {
      return false;
    }
  }
  return true;
}

using Parser = std::unique_ptr<CURLU, decltype(&curl_url_cleanup)>;

Parser makeParser() {
  return {curl_url(), &curl_url_cleanup};
}

std::optional<std::string> partOf(const Parser& parser, CURLUPart part) {
  char* text = nullptr;
  if (curl_url_get(parser.get(), part, &text, 0) != CURLUE_OK || !text) return std::nullopt;
  const std::unique_ptr<char, decltype(&curl_free)> owner(text, &curl_free);
  return std::string(text);
}

/// The host of an absolute URL; nothing if the URL is invalid.
std::optional<std::string> parseHost(const std::string& string) {
  const auto parser = makeParser();
  if (!parser) return std::nullopt;
  if (curl_url_set(parser.get(), CURLUPART_URL, string.c_str(), CURLU_NON_SUPPORT_SCHEME)) {
    return std::nullopt;
  }
  return partOf(parser, CURLUPART_HOST);
}

/// User name, password, host and port of a string that begins with them.
std::string_view authorityAt(std::string_view string) noexcept {
  return string.substr(0, string.find_first_of("/?#"));
}

std::string_view withoutUser(std::string_view authority) noexcept {
  return authority.substr(authority.rfind('@') + 1);  // npos + 1 is 0
}

/// The start of the authority, or of what was meant as one: passwords must be found even after a
/// wrong number of slashes.
std::size_t startOfHost(std::string_view url) {
  const auto colon = url.find(':');
  const bool isAfterScheme = colon != url.npos && url.substr(colon + 1).starts_with('/');
  const auto before = isAfterScheme ? colon + 1 : 0;
  return std::min(url.find_first_not_of('/', before), url.size());
}

}  // namespace

std::optional<URL> URL::fromString(std::string_view string) {
  if (string.empty() || !hasOnlyURLCharacters(string)) return std::nullopt;
  URL url;
  url.string_ = string;
  url.scheme_ = schemeOf(string);
  if (url.scheme_.empty()) return url;
  // The parser would also accept a host after a single slash, and it rejects valid file URLs with a
  // host.
  if (!hasHostAfterScheme(string, url.scheme_) || url.scheme_ == "file") return url;
  auto host = parseHost(url.string_);
  if (!host) return std::nullopt;
  url.host_ = std::move(*host);
  return url;
}

std::string URL::schemeOf(std::string_view string) {
  const std::string_view scheme = string.substr(0, string.find(':'));
  if (scheme.size() == string.size() || scheme.empty() || !ascii::isLetter(scheme.front())) {
    return {};
  }
  const bool isScheme = std::all_of(scheme.begin(), scheme.end(), [](char character) {
    return ascii::isLetter(character) || ascii::isDigit(character) ||
           std::string_view("+-.").find(character) != std::string_view::npos;
  });
  return isScheme ? ascii::lowercased(scheme) : std::string();
}

bool URL::hasHostAfterScheme(std::string_view string, std::string_view scheme) noexcept {
  const std::string_view rest = string.substr(scheme.size());
  return rest.starts_with("://") && rest.size() > 3 && rest[3] != '/';
}

std::string URL::origin() const {
  if (!hasHostAfterScheme(string_, scheme_)) return {};
  const auto authority = authorityAt(std::string_view(string_).substr(scheme_.size() + 3));
  return (scheme_ + "://").append(withoutUser(authority));
}

std::optional<URL> URL::resolving(std::string_view reference) const {
  const auto parser = makeParser();
  if (!parser) return std::nullopt;
  const auto set = [&](const std::string& url, unsigned flags) {
    return curl_url_set(parser.get(), CURLUPART_URL, url.c_str(), flags) == CURLUE_OK;
  };
  if (!set(string_, 0) ||
      !set(std::string(reference), CURLU_NON_SUPPORT_SCHEME | CURLU_URLENCODE)) {
    return std::nullopt;
  }
  const auto resolved = partOf(parser, CURLUPART_URL);
  return resolved ? fromString(*resolved) : std::nullopt;
}

std::string displayedURL(std::string_view url) {
  url = url.substr(0, url.find_first_of("?#"));
  const auto hostStart = startOfHost(url);
  const auto authority = authorityAt(url.substr(hostStart));
  const auto shown = withoutUser(authority);
  if (shown.size() == authority.size()) return std::string(url);
  return std::string(url.substr(0, hostStart))
      .append(url.substr(hostStart + authority.size() - shown.size()));
}

}  // namespace kiv
