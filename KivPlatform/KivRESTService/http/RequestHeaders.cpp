// A header goes to the server unchanged, so it must not be able to end its line (RFC 9110, 5.5).
// Nor may it change what the response means, since the client checks responses against its own
// request.

#include "KivPlatform/KivRESTService/http/RequestHeaders.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

#include "KivPlatform/Foundation/text/ASCII.h"

namespace kiv {

namespace {

constexpr std::size_t mostHeaders = 32;
constexpr std::size_t mostBytes = std::size_t{32} * 1024;

/// Headers of the connection, of a body, of a range and of conditions, and the credentials for a
/// proxy, which belong in its URL. In lower case, and sorted.
constexpr std::array<std::string_view, 19> ownNames{"accept-encoding",
                                                    "connection",
                                                    "content-length",
                                                    "expect",
                                                    "host",
                                                    "http2-settings",
                                                    "if-match",
                                                    "if-modified-since",
                                                    "if-none-match",
                                                    "if-range",
                                                    "if-unmodified-since",
                                                    "keep-alive",
                                                    "proxy-authorization",
                                                    "proxy-connection",
                                                    "range",
                                                    "te",
                                                    "trailer",
                                                    "transfer-encoding",
                                                    "upgrade"};
static_assert(std::is_sorted(ownNames.begin(), ownNames.end()));

/// tchar (RFC 9110, 5.6.2).
bool mayStandInName(char character) noexcept {
  return ascii::isLetter(character) || ascii::isDigit(character) ||
         std::string_view("!#$%&'*+-.^_`|~").find(character) != std::string_view::npos;
}

/// Visible characters, spaces, and non-ASCII bytes.
bool mayStandInValue(char character) noexcept {
  const auto byte = static_cast<unsigned char>(character);
  return byte >= 0x20 && byte != 0x7F;
}

std::string_view validateHeader(const KivRESTServiceHeader& header) {
  const std::string& name = header.name;
  const std::string& value = header.value;
  if (name.empty() || !std::all_of(name.begin(), name.end(), mayStandInName)) {
    return "has no valid name";
  }
  if (std::binary_search(ownNames.begin(), ownNames.end(), ascii::lowercased(name))) {
    return "is one that only the client may set";
  }
  if (!std::all_of(value.begin(), value.end(), mayStandInValue)) {
    return "has a control character in its value";
  }
  if (value.starts_with(' ') || value.ends_with(' ')) {
    return "has a space at the start or end of its value";
  }
  return {};
}

}  // namespace

std::string validateRequestHeaders(const std::vector<KivRESTServiceHeader>& headers) {
  if (headers.size() > mostHeaders) {
    return "the host adds more than " + std::to_string(mostHeaders) + " headers";
  }
  std::size_t bytes = 0;
  for (std::size_t index = 0; index < headers.size(); ++index) {
    const KivRESTServiceHeader& header = headers[index];
    bytes += header.name.size() + header.value.size();
    const auto problem = validateHeader(header);
    if (problem.empty()) continue;
    return "header " + std::to_string(index + 1) + " of the host " + std::string(problem);
  }
  if (bytes <= mostBytes) return {};
  return "the host adds headers of more than " + std::to_string(mostBytes) + " bytes";
}

}  // namespace kiv
