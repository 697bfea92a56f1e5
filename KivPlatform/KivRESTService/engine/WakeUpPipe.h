#pragma once

#include <cstdint>
#include <optional>

namespace kiv {

/// A host may close descriptors that it does not know, as a program does when it becomes a daemon,
/// and open other files under their numbers. So the pipe is verified before each use, and no other
/// file is ever written, read or closed.
class WakeUpPipe {
 public:
  WakeUpPipe() noexcept;
  ~WakeUpPipe();
  WakeUpPipe(const WakeUpPipe&) = delete;
  WakeUpPipe& operator=(const WakeUpPipe&) = delete;

  /// The descriptor that becomes readable after wakeUp(). Nothing if the pipe could not be made or
  /// was closed by others; wakeUp() then has no effect.
  [[nodiscard]] std::optional<int> descriptor() const noexcept;
  /// Thread-safe.
  void wakeUp() const noexcept;
  /// Clears pending wake-ups.
  void clear() const noexcept;

 private:
  struct End {
    int number = -1;
    std::uint64_t device = 0;  // with `file`, the inode, identifies the pipe
    std::uint64_t file = 0;

    void take(int descriptor) noexcept;
    [[nodiscard]] bool isOpen() const noexcept;
    void close() noexcept;
  };

  End readEnd_;
  End writeEnd_;
};

}  // namespace kiv
