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

/// A hash with a key that is random for each process, for tables with keys from a server, which
/// could otherwise choose keys that collide. `domain` separates uses. Thread-safe.
std::uint64_t keyedHash(std::string_view text, std::uint64_t domain = 0) noexcept;
/// The same with a given key.
std::uint64_t keyedHash(std::string_view text, const HashKey& key,
                        std::uint64_t domain = 0) noexcept;

}  // namespace kiv
