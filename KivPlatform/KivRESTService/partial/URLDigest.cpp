// The salt is random, so that a URL has different digests in different processes and precomputed
// tables of digests are useless.
//
// std::hash would not do: it takes no key and differs between standard libraries, while these
// hashes are stored on disk and computed from texts that servers choose. SipHash-1-3 is keyed,
// fixed, and fast for short texts.

#include "KivPlatform/KivRESTService/partial/URLDigest.h"

#include <array>
#include <bit>
#include <charconv>
#include <cstddef>
#include <cstring>
#include <random>
#include <system_error>

namespace kiv {

namespace {

/// SipHash with one round per word of the text and three final rounds (SipHash-1-3).
class SipHash {
 public:
  explicit SipHash(const HashKey& key) noexcept
      : a_(key.low ^ 0x736f6d6570736575),
        b_(key.high ^ 0x646f72616e646f6d),
        c_(key.low ^ 0x6c7967656e657261),
        d_(key.high ^ 0x7465646279746573) {}

  void add(std::uint64_t word) noexcept {
    d_ ^= word;
    mix();
    a_ ^= word;
  }

  std::uint64_t finish() noexcept {
    c_ ^= 0xff;
    mix();
    mix();
    mix();
    return a_ ^ b_ ^ c_ ^ d_;
  }

 private:
  void mix() noexcept {
    a_ += b_;
    b_ = std::rotl(b_, 13) ^ a_;
    a_ = std::rotl(a_, 32);
    c_ += d_;
    d_ = std::rotl(d_, 16) ^ c_;
    a_ += d_;
    d_ = std::rotl(d_, 21) ^ a_;
    c_ += b_;
    b_ = std::rotl(b_, 17) ^ c_;
    c_ = std::rotl(c_, 32);
  }

  std::uint64_t a_;
  std::uint64_t b_;
  std::uint64_t c_;
  std::uint64_t d_;
};

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

HashKey HashKey::random() noexcept {
  std::random_device random;
  const auto word = [&] { return std::uint64_t{random()} << 32 | random(); };
  return {word(), word()};
}

std::uint64_t keyedHash(std::string_view text, const HashKey& key) noexcept {
  SipHash hash(key);
  hash.add(0);
  const char* bytes = text.data();
  std::size_t left = text.size();
  for (; left >= sizeof(std::uint64_t); left -= sizeof(std::uint64_t)) {
    std::uint64_t word = 0;
    std::memcpy(&word, bytes, sizeof word);
    hash.add(word);
    bytes += sizeof word;
  }
  std::uint64_t last = std::uint64_t{text.size()} << 56;
  for (std::size_t index = 0; index < left; ++index) {
    last |= std::uint64_t{static_cast<unsigned char>(bytes[index])} << (8 * index);
  }
  hash.add(last);
  return hash.finish();
}

/// All digests that a process creates share one key.
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
