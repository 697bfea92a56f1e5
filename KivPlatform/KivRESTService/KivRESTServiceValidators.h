#pragma once

#include <string>

/// The validators of a response (RFC 9110, 8.8), by which a later request asks whether the file has
/// changed since.
struct KivRESTServiceValidators {
  /// The URL that gave the response, after redirects. No other URL is asked about them: another
  /// server may use the same validators for other bytes.
  std::string url;
  std::string entityTag;     ///< As received, weak or strong, with the quotes; or empty.
  std::string lastModified;  ///< As received, an HTTP-date; or empty.

  /// True if there is nothing to ask with.
  [[nodiscard]] bool isEmpty() const noexcept { return entityTag.empty() && lastModified.empty(); }
  friend bool operator==(const KivRESTServiceValidators&,
                         const KivRESTServiceValidators&) = default;
};
