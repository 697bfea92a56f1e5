#pragma once

#include <cstdint>
#include <string_view>

namespace kiv {

/// What makes a keyed hash another function; without it nobody can foresee a hash.
struct HashKey {
  std::uint64_t low = 0;
  std::uint64_t high = 0;

  static HashKey random() noexcept;
};

/// A hash of the text that nobody outside this process can foresee: its key is random and new with
/// every process. For tables of what a server names, so that it cannot choose names that collide.
/// Texts of different domains hash differently. May be called from any thread.
std::uint64_t keyedHash(std::string_view text, std::uint64_t domain = 0) noexcept;
/// The same with a key that the caller keeps.
std::uint64_t keyedHash(std::string_view text, const HashKey& key,
                        std::uint64_t domain = 0) noexcept;

}  // namespace kiv
