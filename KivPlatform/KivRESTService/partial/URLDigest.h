#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "KivPlatform/Foundation/values/KeyedHash.h"

namespace kiv {

/// A salted hash of a URL, to compare URLs without storing them: a URL may contain a password or a
/// token.
///
/// The salt is random and is stored with the hash.
class URLDigest {
 public:
  /// Equal to no URL.
  URLDigest() = default;
  URLDigest(const std::string& url);

  /// The salt and the hash as 48 hexadecimal digits.
  [[nodiscard]] std::string text() const;
  /// Nothing if the text is not a digest.
  static std::optional<URLDigest> fromText(std::string_view text);

  /// True if it is the digest of the URL.
  friend bool operator==(const URLDigest& digest, const std::string& url) noexcept {
    return digest.hash_ && *digest.hash_ == keyedHash(url, digest.key_);
  }

 private:
  HashKey key_;
  std::optional<std::uint64_t> hash_;
};

}  // namespace kiv
