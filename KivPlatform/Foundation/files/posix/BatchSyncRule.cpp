#include "KivPlatform/Foundation/files/posix/BatchSyncRule.h"

#include <charconv>

namespace kiv::batchsync {

namespace {

/// The number at the start of the text, which is then cut off.
std::optional<std::uint64_t> takeNumber(std::string_view& text) {
  std::uint64_t number = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
  if (result.ec != std::errc()) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(result.ptr - text.data()));
  return number;
}

}  // namespace

bool reportsWriteErrors(std::string_view kernelRelease) {
  const auto major = takeNumber(kernelRelease);
  if (!major || !kernelRelease.starts_with('.')) return false;
  kernelRelease.remove_prefix(1);
  const auto minor = takeNumber(kernelRelease);
  return minor && (*major > 5 || (*major == 5 && *minor >= 8));
}

std::optional<std::uint64_t> unwrittenBytes(std::string_view memoryInformation) {
  constexpr std::string_view label = "\nDirty:";
  const std::size_t at = memoryInformation.find(label);
  if (at == memoryInformation.npos) return std::nullopt;
  memoryInformation.remove_prefix(at + label.size());
  const std::size_t digits = memoryInformation.find_first_not_of(' ');
  if (digits == memoryInformation.npos) return std::nullopt;
  memoryInformation.remove_prefix(digits);
  const auto number = takeNumber(memoryInformation);
  if (!number || *number > UINT64_MAX / 1024 || !memoryInformation.starts_with(" kB")) {
    return std::nullopt;
  }
  return *number * 1024;
}

}  // namespace kiv::batchsync
