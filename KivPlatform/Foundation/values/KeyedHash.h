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

/// The SipHash-1-3 of the text under the key, after a leading zero word. Without the key nobody can
/// choose texts that collide. It is part of names on disk, so it never changes. Thread-safe.
std::uint64_t keyedHash(std::string_view text, const HashKey& key) noexcept;

}  // namespace kiv
