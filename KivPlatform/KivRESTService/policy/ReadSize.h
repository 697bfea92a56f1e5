#pragma once

#include <cstdint>

#include "KivPlatform/KivRESTService/KivRESTServiceSettings.h"

namespace kiv {

/// How many bytes a transfer reads at one time, at most: many for large files, which then take less
/// time and a quarter less of the processor than with libcurl's own 16 KiB. For small ones no more
/// than they need: libcurl takes that much memory anew for each transfer, and memory of that size
/// goes back to the system, and comes from there, each time.
///
/// How large the next file is nobody knows before it comes. The last ones tell.
class ReadSize {
 public:
  explicit ReadSize(const KivRESTServiceSettings& settings) noexcept;

  /// A body of that many bytes has come.
  void noteBody(std::int64_t bytes) noexcept;
  /// For the transfer that starts now.
  [[nodiscard]] std::int64_t bytes() const noexcept;

 private:
  static constexpr std::int64_t most = std::int64_t{512} * 1024;

  const std::int64_t bandwidth_;
  std::int64_t usualBody_ = most;  // the mean of the last ones
};

}  // namespace kiv
