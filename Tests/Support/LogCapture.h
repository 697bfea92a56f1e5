#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "KivPlatform/Foundation/system/SystemLog.h"

namespace kiv::test {

/// Captures the lines of the system log until the end of the scope. At most one object may exist.
class LogCapture {
 public:
  LogCapture() {
    SystemLog::setHandler([kept = kept_](std::string_view line) {
      const std::lock_guard lock(kept->mutex);
      kept->lines.emplace_back(line);
    });
  }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;
  ~LogCapture() { SystemLog::setHandler({}); }

  /// The captured lines in the order in which they were written.
  [[nodiscard]] std::vector<std::string> lines() const {
    const std::lock_guard lock(kept_->mutex);
    return kept_->lines;
  }

  /// Discards the captured lines.
  void clear() {
    const std::lock_guard lock(kept_->mutex);
    kept_->lines.clear();
  }

 private:
  /// Shared with the handler, which may still run on another thread when the scope ends.
  struct Kept {
    std::mutex mutex;
    std::vector<std::string> lines;
  };

  const std::shared_ptr<Kept> kept_ = std::make_shared<Kept>();
};

}  // namespace kiv::test
