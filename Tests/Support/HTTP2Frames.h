#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// Frames of HTTP/2 (RFC 9113) as a server sends them, proper or not. Header fields are written as
// literals without indexing and without Huffman coding (RFC 7541, 6.2.2).

namespace kiv::test::http2 {

enum class Type : std::uint8_t {
  data = 0,
  headers = 1,
  reset = 3,
  settings = 4,
  ping = 6,
  goAway = 7
};

/// Error codes (RFC 9113, 7).
enum class Error : std::uint32_t {
  none = 0,
  protocol = 1,
  internal = 2,
  refusedStream = 7,
  cancel = 8
};

inline constexpr std::uint8_t endStream = 0x1;
inline constexpr std::uint8_t ack = 0x1;
inline constexpr std::uint8_t endHeaders = 0x4;

using Fields = std::vector<std::pair<std::string, std::string>>;

std::string frame(Type type, std::uint8_t flags, std::uint32_t stream, std::string_view payload);
/// Flags beyond endHeaders: endStream or 0. The fields' names are in lower case.
std::string headers(std::uint32_t stream, const Fields& fields, std::uint8_t flags = 0);
/// Several frames if one cannot hold the bytes.
std::string data(std::uint32_t stream, std::string_view bytes, std::uint8_t flags = 0);
std::string reset(std::uint32_t stream, Error error);
std::string goAway(std::uint32_t lastStream, Error error);

/// The headers of a response with status 200, with a length.
std::string headersOfLength(std::uint32_t stream, std::size_t length);
/// The same without a length.
std::string headersWithoutLength(std::uint32_t stream);
/// A whole response with status 200.
std::string wholeResponse(std::uint32_t stream, std::string_view body);

}  // namespace kiv::test::http2
