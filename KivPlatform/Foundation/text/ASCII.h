#pragma once

#include <string>
#include <string_view>

// Characters of protocols (schemes, header fields, digits), which are ASCII whatever the locale is.

namespace kiv::ascii {

constexpr bool isDigit(char character) noexcept {
  return character >= '0' && character <= '9';
}

constexpr bool isLetter(char character) noexcept {
  return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z');
}

constexpr bool isHexDigit(char character) noexcept {
  return isDigit(character) || (character >= 'a' && character <= 'f') ||
         (character >= 'A' && character <= 'F');
}

/// The character in lower case; unchanged unless it is an ASCII letter.
constexpr char lowercased(char character) noexcept {
  return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a')
                                              : character;
}

/// The text with its ASCII letters in lower case.
inline std::string lowercased(std::string_view text) {
  std::string lower(text);
  for (char& character : lower)
    character = lowercased(character);
  return lower;
}

}  // namespace kiv::ascii
