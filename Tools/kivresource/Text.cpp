#include "Tools/kivresource/Text.h"

#include <array>
#include <cstdio>

namespace tool {

namespace {

/// Bytes of the control character that the text begins with, or 0. Terminals obey those of the
/// second set (U+0080 to U+009F) too.
std::size_t controlCharacterLength(std::string_view text) {
  const auto code = [text](std::size_t at) { return static_cast<unsigned char>(text[at]); };
  if (code(0) < 0x20 || code(0) == 0x7f) return 1;
  const bool isSecondSet = text.size() > 1 && code(0) == 0xc2 && code(1) >= 0x80 && code(1) < 0xa0;
  return isSecondSet ? 2 : 0;
}

template <class... Arguments>
std::string formatted(const char* format, Arguments... arguments) {
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), format, arguments...);
  return text.data();
}

}  // namespace

std::string printable(std::string_view text) {
  std::string clean;
  while (!text.empty()) {
    const std::size_t control = controlCharacterLength(text);
    clean += control > 0 ? '?' : text.front();
    text.remove_prefix(control > 0 ? control : 1);
  }
  return clean;
}

std::string counted(std::size_t count, std::string_view noun) {
  return std::to_string(count).append(1, ' ').append(noun).append(count == 1 ? "" : "s");
}

std::string byteText(std::uint64_t bytes) {
  static constexpr std::array units{"B", "kB", "MB", "GB", "TB", "PB", "EB"};
  if (bytes < 1000) return std::to_string(bytes) + " B";
  auto number = static_cast<double>(bytes);
  std::size_t unit = 0;
  for (; number >= 999.95 && unit + 1 < units.size(); ++unit)
    number /= 1000;
  return formatted("%.1f %s", number, units[unit]);
}

std::string durationText(std::uint64_t seconds) {
  const unsigned long long hours = seconds / 3600;
  const unsigned long long minutes = seconds / 60 % 60;
  const unsigned long long rest = seconds % 60;
  return hours > 0 ? formatted("%llu:%02llu:%02llu", hours, minutes, rest)
                   : formatted("%llu:%02llu", minutes, rest);
}

}  // namespace tool
