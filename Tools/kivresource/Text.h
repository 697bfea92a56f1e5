#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tool {

/// "1 file", "2 files".
std::string counted(std::size_t count, std::string_view noun);

/// A readable size: "512 B", "1.5 kB", "20.0 MB".
std::string byteText(std::uint64_t bytes);

/// The number of bytes of a size: digits, and then nothing or one of k, M, G and T, with or without
/// a B behind it, in upper or lower case, for thousands and so on as in byteText(). Nothing for any
/// other text, and for a size beyond 64 bits.
std::optional<std::uint64_t> bytesOfText(std::string_view text);

/// A readable duration: "0:07", "12:30", "1:02:03".
std::string durationText(std::uint64_t seconds);

}  // namespace tool
