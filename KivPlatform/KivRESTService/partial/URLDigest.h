#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "KivPlatform/Foundation/values/KeyedHash.h"

namespace kiv {

/// What tells one URL from another without holding any of it: a URL may have a password or a token
/// in it, which have no place on a disk.
///
/// A hash with a random key, which is stored with it. The key differs for each digest, so that
/// nobody can prepare a table of digests, or choose a URL beforehand whose digest equals that of
/// another.
class URLDigest {
 public:
  /// Of no URL.
  URLDigest() = default;
  URLDigest(const std::string& url);

  /// The text that keeps the digest: its key and its hash as hexadecimal digits.
  [[nodiscard]] std::string text() const;
  /// Nothing where the text is no digest.
  static std::optional<URLDigest> fromText(std::string_view text);

  /// True where it is the digest of the URL.
  friend bool operator==(const URLDigest& digest, const std::string& url) noexcept {
    return digest.hash_ && *digest.hash_ == keyedHash(url, digest.key_);
  }

 private:
  HashKey key_;
  std::optional<std::uint64_t> hash_;
};

}  // namespace kiv
