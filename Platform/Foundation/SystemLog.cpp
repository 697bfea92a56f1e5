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

std::string withoutControlCharacters(std::string_view line) {
  std::string clean;
  clean.reserve(line.size());
  for (const char character : line) {
    const auto code = static_cast<unsigned char>(character);
    if (code >= 0x20 && code != 0x7f) {
      clean += character;
    } else {
      constexpr std::string_view digits = "0123456789abcdef";
      clean.append("\\x").append(1, digits[code >> 4]).append(1, digits[code & 15]);
    }
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
