#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "KivPlatform/Foundation/Export.h"

namespace kiv {

/// A URL, absolute or relative, kept as written: nothing is escaped, normalised or guessed.
class KIV_EXPORT URL {
 public:
  /// Parses the string. Nothing if it is empty, contains a character that is not allowed in a URL
  /// (a space, a control character, anything but ASCII) or a "%" without two hexadecimal digits, or
  /// has an invalid host or port.
  static std::optional<URL> fromString(std::string_view string);

  [[nodiscard]] const std::string& absoluteString() const noexcept { return string_; }
  /// The scheme in lower case, or an empty string: "ads.example/a.png" has none.
  [[nodiscard]] const std::string& scheme() const noexcept { return scheme_; }
  /// The host after "//"; empty if there is none, and for every "file" URL.
  [[nodiscard]] const std::string& host() const noexcept { return host_; }
  /// Scheme, host and port as written, without user name and password; empty if there is no host.
  [[nodiscard]] std::string origin() const;

  /// Resolves a reference, absolute or relative, against this URL (RFC 3986, 5.2). Characters that
  /// are not allowed in a URL are percent-encoded, as browsers do. Nothing if the result is not a
  /// URL.
  [[nodiscard]] std::optional<URL> resolving(std::string_view reference) const;

  /// The scheme that a URL or a reference begins with, in lower case, or an empty string.
  static std::string schemeOf(std::string_view string);
  /// True if a host follows the scheme in a URL or a reference.
  static bool hasHostAfterScheme(std::string_view string, std::string_view scheme) noexcept;

  friend bool operator==(const URL& a, const URL& b) noexcept { return a.string_ == b.string_; }

 private:
  URL() = default;

  std::string string_;
  std::string scheme_;
  std::string host_;
};

/// One HTTP request: a method and a URL. It carries no headers, no body and no time-out.
struct URLRequest {
  URL url;
  std::string httpMethod = "GET";

  explicit URLRequest(URL requestURL) : url(std::move(requestURL)) {}
};

/// The URL as shown in messages: without user name, password, query and fragment.
KIV_EXPORT std::string displayedURL(std::string_view url);

}  // namespace kiv
