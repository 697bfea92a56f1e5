#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kiv {

/// The key of a hash.
struct HashKey {
  std::uint64_t low = 0;
  std::uint64_t high = 0;

  static HashKey random() noexcept;
};

/// SipHash-1-3 of the text, preceded by a zero word, under the key. Nobody can construct colliding
/// texts without knowing the key. File names on disk depend on the result, so it must never change.
/// Thread-safe.
std::uint64_t keyedHash(std::string_view text, const HashKey& key) noexcept;

/// A salted hash of a URL, with which URLs are compared without being stored: a URL may contain a
/// password or a token.
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
