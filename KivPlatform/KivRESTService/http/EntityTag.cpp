#include "KivPlatform/KivRESTService/http/EntityTag.h"

#include <algorithm>

namespace kiv {

namespace {

/// "etagc": visible characters but the quote, and the bytes beyond ASCII.
constexpr bool mayStandInTag(char character) noexcept {
  const auto byte = static_cast<unsigned char>(character);
  return byte == 0x21 || (byte >= 0x23 && byte <= 0x7E) || byte >= 0x80;
}

constexpr bool mayStandInDate(char character) noexcept {
  return (character >= 'A' && character <= 'Z') || (character >= 'a' && character <= 'z') ||
         (character >= '0' && character <= '9') || character == ' ' || character == ',' ||
         character == ':' || character == '-';
}

}  // namespace

bool isEntityTag(std::string_view text) noexcept {
  if (text.starts_with("W/")) text.remove_prefix(2);
  if (text.size() < 2 || text.front() != '"' || text.back() != '"') return false;
  const std::string_view opaque = text.substr(1, text.size() - 2);
  return std::all_of(opaque.begin(), opaque.end(), mayStandInTag);
}

bool isStrongEntityTag(std::string_view text) noexcept {
  return text.starts_with('"') && isEntityTag(text);
}

bool hasCharactersOfDate(std::string_view text) noexcept {
  return !text.empty() && std::all_of(text.begin(), text.end(), mayStandInDate);
}

}  // namespace kiv
