#include "ServiceLog.h"

#include <KivResource/KivResource.h>
#include <cstdio>
#include <string>

namespace {

bool hasPriority(std::string_view line) {
  return line.size() > 2 && line[0] == '<' && line[2] == '>';
}

std::string priority(LogLevel level) {
  std::string prefix("<");
  return prefix.append(std::to_string(static_cast<int>(level))).append(1, '>');
}

}  // namespace

void writeLog(LogLevel level, std::string_view text) {
  kiv::SystemLog::write(priority(level).append(text));
}

void sendLogToStandardError() {
  kiv::SystemLog::setHandler([](std::string_view line) {
    // The framework's lines have no level: they tell of failures, but also of what is normal.
    std::string whole(hasPriority(line) ? "" : priority(LogLevel::notice));
    whole.append(line).append(1, '\n');
    std::fwrite(whole.data(), 1, whole.size(), stderr);  // in one piece
  });
}
