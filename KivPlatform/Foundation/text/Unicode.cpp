// simdjson validates UTF-8 and utf8proc folds case: both follow the Unicode standard, which tables
// of our own would not.

#include "KivPlatform/Foundation/text/Unicode.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utf8proc.h>
#include <vector>

#include <simdjson.h>

#include "KivPlatform/Foundation/text/ASCII.h"

namespace kiv::unicode {

namespace {

/// In text that is not UTF-8, only ASCII letters are folded.
std::u32string foldedBytes(std::string_view name) {
  std::u32string points;
  for (const char byte : name)
    points += static_cast<unsigned char>(ascii::lowercased(byte));
  return points;
}

bool isASCII(std::string_view text) {
  return std::all_of(text.begin(), text.end(),
                     [](char byte) { return static_cast<unsigned char>(byte) < 0x80; });
}

}  // namespace

bool isUTF8(std::string_view text) {
  return simdjson::validate_utf8(text.data(), text.size());
}

std::u32string folded(std::string_view name) {
  constexpr auto form =
      static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_DECOMPOSE | UTF8PROC_CASEFOLD);
  const auto* const bytes = reinterpret_cast<const utf8proc_uint8_t*>(name.data());
  const auto size = static_cast<utf8proc_ssize_t>(name.size());
  std::vector<utf8proc_int32_t> points(name.size());
  auto count = utf8proc_decompose(bytes, size, points.data(), size, form);
  if (count > size) {
    points.resize(static_cast<std::size_t>(count));
    count = utf8proc_decompose(bytes, size, points.data(), count, form);
  }
  if (count < 0) return foldedBytes(name);
  return {points.begin(), points.begin() + count};
}

std::string foldedName(std::string_view name) {
  if (isASCII(name)) return ascii::lowercased(name);
  std::string text;
  for (const char32_t point : folded(name)) {
    std::array<utf8proc_uint8_t, 4> bytes{};
    const auto size = utf8proc_encode_char(static_cast<utf8proc_int32_t>(point), bytes.data());
    text.append(bytes.begin(), bytes.begin() + size);
  }
  return text;
}

}  // namespace kiv::unicode
