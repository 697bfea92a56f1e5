#include "KivPlatform/Foundation/values/URL.h"

#include <algorithm>
#include <array>
#include <memory>

#include <curl/curl.h>

namespace kiv {

namespace {

constexpr bool isLetter(char character) noexcept {
  return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z');
}

constexpr bool isDigit(char character) noexcept {
  return character >= '0' && character <= '9';
}

bool isHexDigit(char character) noexcept {
  return isDigit(character) || (character >= 'a' && character <= 'f') ||
         (character >= 'A' && character <= 'F');
}

/// Unreserved and reserved characters of a URL; "%" is looked at apart.
constexpr auto urlCharacters = [] {
  std::array<bool, 256> may{};
  for (const char character : std::string_view("-._~:/?#[]@!$&'()*+,;="))
    may[static_cast<unsigned char>(character)] = true;
  for (unsigned character = 0; character < may.size(); ++character)
    may[character] |=
        isLetter(static_cast<char>(character)) || isDigit(static_cast<char>(character));
  return may;
}();

bool mayStandInURL(char character) noexcept {
  return urlCharacters[static_cast<unsigned char>(character)];
}

bool hasOnlyURLCharacters(std::string_view string) noexcept {
  for (std::size_t at = 0; at < string.size(); ++at) {
    if (string[at] == '%') {
      if (at + 2 >= string.size() || !isHexDigit(string[at + 1]) || !isHexDigit(string[at + 2])) {
        return false;
      }
      at += 2;
    } else if (!mayStandInURL(string[at])) {
      return false;
    }
  }
  return true;
}

/// The scheme before the first ":", in lower case; empty if what stands there is none.
std::string schemeOf(std::string_view string) {
  const std::size_t colon = string.find(':');
  if (colon == string.npos || colon == 0 || !isLetter(string.front())) return {};
  std::string scheme(string.substr(0, colon));
  for (char& character : scheme) {
    const bool allowed = isLetter(character) || isDigit(character) || character == '+' ||
                         character == '-' || character == '.';
    if (!allowed) return {};
    if (character >= 'A' && character <= 'Z') character = static_cast<char>(character + 32);
  }
  return scheme;
}

/// The host of an absolute URL, or nothing if the URL does not parse.
std::optional<std::string> parseHost(const std::string& string) {
  const std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> parser(curl_url(), &curl_url_cleanup);
  if (!parser) return std::nullopt;
  if (curl_url_set(parser.get(), CURLUPART_URL, string.c_str(), CURLU_NON_SUPPORT_SCHEME)) {
    return std::nullopt;
  }
  char* part = nullptr;
  if (curl_url_get(parser.get(), CURLUPART_HOST, &part, 0) || !part) return std::nullopt;
  const std::unique_ptr<char, decltype(&curl_free)> owner(part, &curl_free);
  return std::string(part);
}

/// Where the host begins, or what somebody has meant as one: a wrong number of slashes may stand
/// before a password, too.
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
  // Only "//" opens a host. The parser below would take one after a single slash too.
  const std::string_view rest = string.substr(url.scheme_.size() + 1);
  const bool hasHost = rest.starts_with("//") && rest.size() > 2 && rest[2] != '/';
  // Of a file's URL the parser takes none with a server, though it is one that parses.
  if (!hasHost || url.scheme_ == "file") return url;
  auto host = parseHost(url.string_);
  if (!host) return std::nullopt;
  url.host_ = std::move(*host);
  return url;
}

std::string displayedURL(std::string_view url) {
  url = url.substr(0, url.find_first_of("?#"));
  const auto hostStart = startOfHost(url);
  const auto authority = url.substr(hostStart, url.find('/', hostStart) - hostStart);
  const auto at = authority.rfind('@');
  if (at == std::string_view::npos) return std::string(url);
  return std::string(url.substr(0, hostStart)).append(url.substr(hostStart + at + 1));
}

}  // namespace kiv
