#pragma once

#include <cstdint>
#include <string_view>

namespace kiv {

/// A hash of the text that nobody outside this process can foresee: its key is random and new with
/// every process. For tables of what a server names, so that it cannot choose names that collide.
/// Texts of different domains hash differently. May be called from any thread.
std::uint64_t keyedHash(std::string_view text, std::uint64_t domain = 0) noexcept;

}  // namespace kiv
