#pragma once

#include <cstdint>
#include <string_view>

namespace kiv {

/// The secret key of a keyed hash.
struct HashKey {
  std::uint64_t low = 0;
  std::uint64_t high = 0;

  static HashKey random() noexcept;
};

/// SipHash-1-3 of the text, preceded by a zero word, under the key. Without the key nobody can
/// construct texts that collide. File names on disk depend on it, so it must never change.
/// Thread-safe.
std::uint64_t keyedHash(std::string_view text, const HashKey& key) noexcept;

}  // namespace kiv
