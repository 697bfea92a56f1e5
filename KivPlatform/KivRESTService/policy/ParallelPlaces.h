#pragma once

#include <chrono>
#include <cstddef>

#include "KivPlatform/KivRESTService/policy/TransferSettings.h"

namespace kiv {

/// How many transfers run with one server at the same time.
///
/// Where a transfer mostly waits for round trips, the line is idle meanwhile, and more transfers
/// use it. Where it mostly waits for its bytes, as on slow lines and with large files, more
/// transfers gain nothing.
class ParallelPlaces {
 public:
  using Duration = std::chrono::microseconds;
  using Time = std::chrono::steady_clock::time_point;
  enum class Version { http1, http2 };

  explicit ParallelPlaces(const TransferSettings& settings) noexcept;

  [[nodiscard]] std::size_t count() const noexcept { return count_; }
  /// The initial count, which stays while round trips are short.
  [[nodiscard]] std::size_t least() const noexcept { return least_; }

  /// Called with the duration of a TCP handshake, before noteTransfer() for the first transfer on
  /// the connection.
  void noteHandshake(Duration time) noexcept;
  /// Called when a transfer has succeeded, with the time from its request to the end of its body.
  void noteTransfer(Duration time, Version version) noexcept;
  /// Called when a transfer that began at `begun` has failed in a way that may be due to too many:
  /// the count falls to the least, and after a few failures it stays there. Transfers that began
  /// before the last failure do not count, since simultaneous failures are one.
  void noteTrouble(Time begun, Time now) noexcept;

 private:
  [[nodiscard]] std::size_t most(Version version) const noexcept;
  void noteConnections(Version version) noexcept;

  const std::size_t least_;
  const std::size_t mostOverHTTP1_;
  const std::size_t mostOverHTTP2_;
  const Duration leastRoundTrip_;
  const double mostRoundTrips_;  // in round trips; the count does not grow above it
  std::size_t count_;
  int troubles_ = 0;
  Time lastTrouble_ = Time::min();
  Duration roundTrip_ = Duration::max();  // the shortest handshake
  Duration time_{0};                      // of the transfers since the last decision
  std::size_t transfers_ = 0;             // their number
  std::size_t connections_ = 0;           // made for these
  bool isFirstDecision_ = true;
  bool sharesConnections_ = true;  // streams of HTTP/2 do
};

}  // namespace kiv
