#pragma once

#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "KivPlatform/Foundation/system/SystemLog.h"

namespace kiv::test {

/// Catches the lines of the system log until the end of the scope. One at a time.
class LogCapture {
 public:
  LogCapture() {
    SystemLog::setHandler([this](std::string_view line) {
      const std::lock_guard lock(mutex_);
      lines_.emplace_back(line);
    });
  }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;
  ~LogCapture() { SystemLog::setHandler({}); }

  /// The lines so far, in the order in which they were written.
  [[nodiscard]] std::vector<std::string> lines() const {
    const std::lock_guard lock(mutex_);
    return lines_;
  }

  /// Forgets the lines so far.
  void clear() {
    const std::lock_guard lock(mutex_);
    lines_.clear();
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> lines_;
};

}  // namespace kiv::test
