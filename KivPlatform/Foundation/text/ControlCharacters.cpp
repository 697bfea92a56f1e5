// Works on the UTF-8 bytes themselves: all of these characters have one to three bytes with a few
// lead bytes, and text that is not valid UTF-8 must pass through unchanged.

#include "KivPlatform/Foundation/text/ControlCharacters.h"

namespace kiv {

namespace {

/// For the characters of three bytes whose first one is 0xe2.
bool isControlInGeneralPunctuation(unsigned second, unsigned third) noexcept {
  if (second == 0x80) return third == 0x8e || third == 0x8f || (third >= 0xa8 && third <= 0xae);
  return second == 0x81 && third >= 0xa6 && third <= 0xa9;
}

}  // namespace

std::size_t controlCharacterLength(std::string_view text) noexcept {
  const auto code = [text](std::size_t at) -> unsigned {
    return at < text.size() ? static_cast<unsigned char>(text[at]) : 0;
  };
  if (text.empty()) return 0;
  if (code(0) < 0x20 || code(0) == 0x7f) return 1;
  if (code(0) == 0xc2) return code(1) >= 0x80 && code(1) < 0xa0 ? 2 : 0;
  if (code(0) == 0xd8) return code(1) == 0x9c ? 2 : 0;
  return code(0) == 0xe2 && isControlInGeneralPunctuation(code(1), code(2)) ? 3 : 0;
}

std::string escapingControlCharacters(std::string_view text) {
  std::string escaped;
  escaped.reserve(text.size());
  std::size_t copied = 0;
  std::size_t at = 0;
  while (at < text.size()) {
    const std::size_t length = controlCharacterLength(text.substr(at));
    if (length > 0) {
      escaped.append(text.substr(copied, at - copied));
      appendEscaped(escaped, text.substr(at, length));
      copied = at + length;
    }
    at += length > 0 ? length : 1;
  }
  return escaped.append(text.substr(copied));
}

void appendEscaped(std::string& out, std::string_view bytes) {
  constexpr std::string_view digits = "0123456789abcdef";
  for (const char character : bytes) {
    const auto code = static_cast<unsigned char>(character);
    out.append("\\x").append(1, digits[code >> 4]).append(1, digits[code & 15]);
  }
}

}  // namespace kiv
