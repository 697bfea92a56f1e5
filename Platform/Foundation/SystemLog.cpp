#include "Platform/Foundation/SystemLog.h"

#include <cstdio>
#include <mutex>
#include <string>
#include <utility>

#include "Platform/Foundation/PlatformLog.h"

namespace kiv {

namespace {

struct Sink {
  std::mutex mutex;
  SystemLog::Handler handler;
};

/// Never destroyed: threads may still write while the process exits.
Sink& sink() {
  static auto& shared = *new Sink;
  return shared;
}

/// Bytes of the control character that the text begins with, or 0: one of ASCII, or one of the
/// second set (U+0080 to U+009F), which terminals obey too.
std::size_t controlCharacterLength(std::string_view text) noexcept {
  const auto code = [text](std::size_t at) { return static_cast<unsigned char>(text[at]); };
  if (code(0) < 0x20 || code(0) == 0x7f) return 1;
  const bool isSecondSet = text.size() > 1 && code(0) == 0xc2 && code(1) >= 0x80 && code(1) < 0xa0;
  return isSecondSet ? 2 : 0;
}

std::size_t lengthWithoutControlCharacters(std::string_view text) noexcept {
  std::size_t length = 0;
  while (length < text.size() && controlCharacterLength(text.substr(length)) == 0)
    ++length;
  return length;
}

std::string withoutControlCharacters(std::string_view line) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string clean;
  clean.reserve(line.size());
  while (!line.empty()) {
    const std::size_t harmless = lengthWithoutControlCharacters(line);
    clean.append(line.substr(0, harmless));
    line.remove_prefix(harmless);
    const std::size_t control = line.empty() ? 0 : controlCharacterLength(line);
    for (const char character : line.substr(0, control)) {
      const auto code = static_cast<unsigned char>(character);
      clean.append("\\x").append(1, digits[code >> 4]).append(1, digits[code & 15]);
    }
    line.remove_prefix(control);
  }
  return clean;
}

}  // namespace

void SystemLog::write(std::string_view line) {
  const std::string clean = withoutControlCharacters(line);
  Sink& shared = sink();
  const std::lock_guard lock(shared.mutex);
  if (shared.handler) {
    shared.handler(clean);
  } else {
    writePlatformLog(clean);
    std::fprintf(stderr, "%s\n", clean.c_str());
  }
}

void SystemLog::setHandler(Handler handler) {
  const std::lock_guard lock(sink().mutex);
  sink().handler = std::move(handler);
}

}  // namespace kiv
