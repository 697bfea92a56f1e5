#pragma once

#include <string>
#include <string_view>

// Characters of protocols, which are ASCII whatever the locale is: schemes, header fields, digits.

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

/// The character in lower case; any other than a letter as it is.
constexpr char lowercased(char character) noexcept {
  return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a')
                                              : character;
}

/// The text with its letters in lower case.
inline std::string lowercased(std::string_view text) {
  std::string lower(text);
  for (char& character : lower)
    character = lowercased(character);
  return lower;
}

}  // namespace kiv::ascii
