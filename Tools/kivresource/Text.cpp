#include "Tools/kivresource/Text.h"

#include <array>
#include <charconv>
#include <cstdio>
#include <limits>
#include <system_error>

namespace tool {

namespace {

template <class... Arguments>
std::string formatted(const char* format, Arguments... arguments) {
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), format, arguments...);
  return text.data();
}

/// The number in decimal digits times the factor.
std::optional<std::uint64_t> product(std::string_view digits, std::uint64_t factor) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (error != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
  if (number > std::numeric_limits<std::uint64_t>::max() / factor) return std::nullopt;
  return number * factor;
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

std::optional<std::uint64_t> bytesOfText(std::string_view text) {
  if (text.ends_with('B') || text.ends_with('b')) text.remove_suffix(1);
  static constexpr std::string_view units = "kKmMgGtT";
  const std::size_t unit = text.empty() ? units.npos : units.find(text.back());
  if (unit == units.npos) return product(text, 1);
  std::uint64_t factor = 1000;
  for (std::size_t smaller = 0; smaller < unit / 2; ++smaller)
    factor *= 1000;
  return product(text.substr(0, text.size() - 1), factor);
}

std::string durationText(std::uint64_t seconds) {
  const unsigned long long hours = seconds / 3600;
  const unsigned long long minutes = seconds / 60 % 60;
  const unsigned long long rest = seconds % 60;
  return hours > 0 ? formatted("%llu:%02llu:%02llu", hours, minutes, rest)
                   : formatted("%llu:%02llu", minutes, rest);
}

}  // namespace tool
