#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <memory>
#include <optional>
#include <string_view>

#include "KivPlatform/Foundation/Mutex.h"

namespace kiv::session {

/// The lines that wait for the host, with a descriptor that is readable while there are any. May be
/// used from any thread.
class LineQueue {
 public:
  struct Free {
    void operator()(char* text) const noexcept { std::free(text); }
  };
  /// A string from malloc(), so that it can be handed to C as it is.
  using Text = std::unique_ptr<char, Free>;

  /// Nullptr if the system has no descriptor left.
  static std::unique_ptr<LineQueue> create();
  ~LineQueue();
  LineQueue(const LineQueue&) = delete;
  LineQueue& operator=(const LineQueue&) = delete;

  /// If memory runs out, the line is lost, and a line about that comes in its place.
  void push(std::string_view line) noexcept;
  /// Replaces the line of progress that is waiting, if there is one: a slow host needs only the
  /// newest.
  void pushProgress(std::string_view line) noexcept;
  /// A line was lost for want of memory.
  void pushLoss() noexcept;
  /// No line is returned any more, and no thread waits.
  void close() noexcept;

  enum class Outcome { line, timeout, closed, noMemory };
  /// Waits for a line; without a timeout as long as it takes.
  Outcome pop(std::optional<std::chrono::milliseconds> timeout, Text& line);

  [[nodiscard]] int descriptor() const noexcept { return pipe_[0]; }

 private:
  using Clock = std::chrono::steady_clock;
  struct Line {
    Text text;
    bool isProgress = false;
  };

  explicit LineQueue(std::array<int, 2> pipe) : pipe_(pipe) {}
  void add(Text text, bool isProgress) noexcept KIV_REQUIRES(mutex_);
  [[nodiscard]] bool isEmpty() const KIV_REQUIRES(mutex_) {
    return lines_.empty() && !linesWereLost_;
  }
  bool takeFirst(Text& line) KIV_REQUIRES(mutex_);
  void updateDescriptor() noexcept KIV_REQUIRES(mutex_);

  const std::array<int, 2> pipe_;  ///< Holds one byte while lines wait.
  Mutex mutex_;
  std::condition_variable arrived_;
  std::deque<Line> lines_ KIV_GUARDED_BY(mutex_);
  bool linesWereLost_ KIV_GUARDED_BY(mutex_) = false;  ///< After those that wait.
  bool isReadable_ KIV_GUARDED_BY(mutex_) = false;
  bool isClosed_ KIV_GUARDED_BY(mutex_) = false;
};

}  // namespace kiv::session
