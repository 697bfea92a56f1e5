#include "Tools/kivresource/Text.h"

#include <array>
#include <cstdio>

namespace tool {

namespace {

template <class... Arguments>
std::string formatted(const char* format, Arguments... arguments) {
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), format, arguments...);
  return text.data();
}

}  // namespace

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
