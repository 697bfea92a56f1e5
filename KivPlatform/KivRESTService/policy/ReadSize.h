#pragma once

#include <cstdint>

#include "KivPlatform/KivRESTService/policy/TransferSettings.h"

namespace kiv {

/// Chooses the size of libcurl's receive buffer. With a large one, large files take a quarter less
/// processor time than with the default of 16 KiB. Small files get no more than they need: libcurl
/// allocates the buffer for each transfer, and large allocations go back to the system each time.
///
/// The size of the next file is unknown and predicted from the last ones.
class ReadSize {
 public:
  explicit ReadSize(const TransferSettings& settings) noexcept;

  /// In bytes per second; 0 for no limit.
  void setBandwidth(std::int64_t bandwidth) noexcept { bandwidth_ = bandwidth; }
  /// Called when a body of that many bytes was received.
  void noteBody(std::int64_t bytes) noexcept;
  /// The buffer size for the next transfer, in bytes.
  [[nodiscard]] std::int64_t bytes() const noexcept;

 private:
  static constexpr std::int64_t most = std::int64_t{512} * 1024;

  std::int64_t bandwidth_;
  std::int64_t usualBody_ = most;  // moving average
};

}  // namespace kiv
