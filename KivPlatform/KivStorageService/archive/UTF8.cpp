#include "KivPlatform/KivStorageService/archive/UTF8.h"

#include <cstdint>

namespace kiv::storage::utf8 {

namespace {

struct Lead {
  std::size_t length;
  char32_t bits;
  char32_t smallest;  ///< the first code point that needs this length
};

std::optional<Lead> lead(unsigned char byte) {
  if (byte < 0x80) return Lead{1, byte, 0};
  if ((byte & 0xE0) == 0xC0) return Lead{2, char32_t(byte & 0x1F), 0x80};
  if ((byte & 0xF0) == 0xE0) return Lead{3, char32_t(byte & 0x0F), 0x800};
  if ((byte & 0xF8) == 0xF0) return Lead{4, char32_t(byte & 0x07), 0x10000};
  return std::nullopt;
}

bool isSurrogate(char32_t point) {
  return point >= 0xD800 && point <= 0xDFFF;
}

}  // namespace

std::optional<std::u32string> decode(std::string_view text) {
  std::u32string points;
  points.reserve(text.size());
  while (!text.empty()) {
    const auto first = lead(static_cast<unsigned char>(text.front()));
    if (!first || first->length > text.size()) return std::nullopt;
    char32_t point = first->bits;
    for (const char byte : text.substr(1, first->length - 1)) {
      if ((static_cast<unsigned char>(byte) & 0xC0) != 0x80) return std::nullopt;
      point = (point << 6) | (static_cast<unsigned char>(byte) & 0x3F);
    }
    if (point < first->smallest || point > 0x10FFFF || isSurrogate(point)) return std::nullopt;
    points += point;
    text.remove_prefix(first->length);
  }
  return points;
}

bool isValid(std::string_view text) {
  return decode(text).has_value();
}

}  // namespace kiv::storage::utf8
