#include "Tests/Support/HTTP2Frames.h"

#include <algorithm>

namespace kiv::test::http2 {

namespace {

std::string bigEndian(std::uint64_t number, int bytes) {
  std::string text;
  for (int byte = bytes - 1; byte >= 0; --byte)
    text += static_cast<char>(number >> (8 * byte) & 0xff);
  return text;
}

/// A string literal of less than 127 bytes.
std::string literal(std::string_view text) {
  return std::string(1, static_cast<char>(text.size())).append(text);
}

}  // namespace

std::string frame(Type type, std::uint8_t flags, std::uint32_t stream, std::string_view payload) {
  return bigEndian(payload.size(), 3) + static_cast<char>(type) + static_cast<char>(flags) +
         bigEndian(stream, 4).append(payload);
}

std::string headers(std::uint32_t stream, const Fields& fields, std::uint8_t flags) {
  std::string block;
  for (const auto& [name, value] : fields)
    block += std::string(1, '\0') + literal(name) + literal(value);
  return frame(Type::headers, static_cast<std::uint8_t>(endHeaders | flags), stream, block);
}

std::string data(std::uint32_t stream, std::string_view bytes, std::uint8_t flags) {
  constexpr std::size_t largest = 16'384;
  std::string frames;
  while (bytes.size() > largest) {
    frames += frame(Type::data, 0, stream, bytes.substr(0, largest));
    bytes.remove_prefix(largest);
  }
  return frames + frame(Type::data, flags, stream, bytes);
}

std::string reset(std::uint32_t stream, Error error) {
  return frame(Type::reset, 0, stream, bigEndian(static_cast<std::uint32_t>(error), 4));
}

std::string goAway(std::uint32_t lastStream, Error error) {
  return frame(Type::goAway, 0, 0,
               bigEndian(lastStream, 4) + bigEndian(static_cast<std::uint32_t>(error), 4));
}

std::string headersOfLength(std::uint32_t stream, std::size_t length) {
  return headers(stream, {{":status", "200"}, {"content-length", std::to_string(length)}});
}

std::string headersWithoutLength(std::uint32_t stream) {
  return headers(stream, {{":status", "200"}});
}

std::string wholeResponse(std::uint32_t stream, std::string_view body) {
  return headersOfLength(stream, body.size()) + data(stream, body, endStream);
}

}  // namespace kiv::test::http2
