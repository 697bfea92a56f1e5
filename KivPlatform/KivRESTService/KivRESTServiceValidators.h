#pragma once

#include <string>

/// The validators of a response (RFC 9110, 8.8), with which a later request asks whether the file
/// has changed.
struct KivRESTServiceValidators {
  /// The URL that gave the response, after redirects. They are sent to no other URL, since another
  /// server may use the same validators for other bytes.
  std::string url;
  std::string entityTag;     ///< As received, weak or strong, with the quotes; or empty.
  std::string lastModified;  ///< As received, an HTTP-date; or empty.

  /// True if there is neither an ETag nor a date.
  [[nodiscard]] bool isEmpty() const noexcept { return entityTag.empty() && lastModified.empty(); }
  friend bool operator==(const KivRESTServiceValidators&,
                         const KivRESTServiceValidators&) = default;
};
