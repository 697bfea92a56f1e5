#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace kiv::fuzz {

/// Aborts if the condition is false, which a fuzzer reports.
inline void require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "This does not hold: %s\n", what);
  std::abort();
}

inline std::string_view textOf(const std::uint8_t* bytes, std::size_t size) {
  return {reinterpret_cast<const char*>(bytes), size};
}

}  // namespace kiv::fuzz
