// The salt is random, so that the same URL has different digests in different processes, and a
// table of precomputed digests is of no use.

#include "KivPlatform/KivRESTService/partial/URLDigest.h"

#include <array>
#include <charconv>
#include <system_error>

namespace kiv {

namespace {

constexpr std::size_t digitsOfWord = 16;

void append(std::string& text, std::uint64_t word) {
  std::array<char, digitsOfWord> digits{};
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), word, 16).ptr;
  const auto count = static_cast<std::size_t>(end - digits.data());
  text.append(digits.size() - count, '0').append(digits.data(), count);
}

std::optional<std::uint64_t> wordOf(std::string_view digits) {
  std::uint64_t word = 0;
  const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), word, 16);
  const bool isWord = result.ec == std::errc() && result.ptr == digits.data() + digits.size();
  return isWord ? std::optional(word) : std::nullopt;
}

}  // namespace

/// All digests that a process creates have the same key.
URLDigest::URLDigest(const std::string& url) {
  static const HashKey key = HashKey::random();
  key_ = key;
  hash_ = keyedHash(url, key_);
}

std::string URLDigest::text() const {
  std::string text;
  for (const std::uint64_t word : {key_.low, key_.high, hash_.value_or(0)})
    append(text, word);
  return text;
}

std::optional<URLDigest> URLDigest::fromText(std::string_view text) {
  if (text.size() != 3 * digitsOfWord) return std::nullopt;
  const auto low = wordOf(text.substr(0, digitsOfWord));
  const auto high = wordOf(text.substr(digitsOfWord, digitsOfWord));
  const auto hash = wordOf(text.substr(2 * digitsOfWord));
  if (!low || !high || !hash) return std::nullopt;
  URLDigest digest;
  digest.key_ = {*low, *high};
  digest.hash_ = hash;
  return digest;
}

}  // namespace kiv
