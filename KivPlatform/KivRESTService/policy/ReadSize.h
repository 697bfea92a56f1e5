#pragma once

#include <cstdint>

#include "KivPlatform/KivRESTService/policy/TransferSettings.h"

namespace kiv {

/// Chooses libcurl's receive buffer size. Large files take a quarter less processor time with a
/// large buffer than with the default of 16 KiB. Small files get no more than they need: libcurl
/// allocates the buffer for each transfer, and large ones go back to the system each time.
///
/// The size of the next file is unknown, so it is predicted from the last ones.
class ReadSize {
 public:
  explicit ReadSize(const TransferSettings& settings) noexcept;

  /// In bytes per second; 0 for no limit.
  void setBandwidth(std::int64_t bandwidth) noexcept { bandwidth_ = bandwidth; }
  /// Called when a body of that size was received.
  void noteBody(std::int64_t bytes) noexcept;
  /// The buffer size for the next transfer.
  [[nodiscard]] std::int64_t bytes() const noexcept;

 private:
  static constexpr std::int64_t most = std::int64_t{512} * 1024;

  std::int64_t bandwidth_;
  std::int64_t usualBody_ = most;  // moving average
};

}  // namespace kiv
