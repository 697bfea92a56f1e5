#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tool {

/// "1 file", "2 files".
std::string counted(std::size_t count, std::string_view noun);

/// A readable size: "512 B", "1.5 kB", "20.0 MB".
std::string byteText(std::uint64_t bytes);

/// A readable duration: "0:07", "12:30", "1:02:03".
std::string durationText(std::uint64_t seconds);

}  // namespace tool
