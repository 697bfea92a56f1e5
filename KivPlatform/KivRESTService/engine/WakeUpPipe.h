#pragma once

#include <cstdint>
#include <optional>

#include "KivPlatform/Foundation/Export.h"

namespace kiv {

/// Wakes up a thread that waits for descriptors: a pipe, for whose one end the thread waits too.
///
/// There may be no descriptors left for it, and a host may close descriptors that it does not know,
/// as a program does that becomes a daemon, and open others under their numbers. So it is looked at
/// before each use, and nothing is written to, read from or closed that is not the pipe.
class KIV_EXPORT WakeUpPipe {
 public:
  WakeUpPipe() noexcept;
  ~WakeUpPipe();
  WakeUpPipe(const WakeUpPipe&) = delete;
  WakeUpPipe& operator=(const WakeUpPipe&) = delete;

  /// What can be read from after wakeUp(). Nothing where the pipe could not be made, or has been
  /// closed by others: wakeUp() has no effect then.
  [[nodiscard]] std::optional<int> descriptor() const noexcept;
  /// May be called from any thread.
  void wakeUp() const noexcept;
  /// Forgets the wake-ups so far.
  void clear() const noexcept;

 private:
  struct End {
    int number = -1;
    std::uint64_t device = 0;  // which, with the next, says that the number is the pipe's still
    std::uint64_t file = 0;

    void take(int descriptor) noexcept;
    [[nodiscard]] bool isOpen() const noexcept;
    void close() noexcept;
  };

  End readEnd_;
  End writeEnd_;
};

}  // namespace kiv
