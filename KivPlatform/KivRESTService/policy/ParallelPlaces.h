#pragma once

#include <chrono>
#include <cstddef>

#include "KivPlatform/KivRESTService/policy/TransferSettings.h"

namespace kiv {

/// How many transfers run with one server at one time.
///
/// Where the round trip to the server takes a large part of a transfer, the line is idle meanwhile,
/// and more transfers use it. Where the bytes take most of the time, as on slow lines, with large
/// files and when there are enough transfers, more of them gain nothing.
class ParallelPlaces {
 public:
  using Duration = std::chrono::microseconds;
  using Time = std::chrono::steady_clock::time_point;
  enum class Version { http1, http2 };

  explicit ParallelPlaces(const TransferSettings& settings) noexcept;

  [[nodiscard]] std::size_t count() const noexcept { return count_; }
  /// The count at first, and when round trips are short.
  [[nodiscard]] std::size_t least() const noexcept { return least_; }

  /// Called with the time that a TCP handshake took, before noteTransfer() of its first transfer.
  void noteHandshake(Duration time) noexcept;
  /// Called when a transfer has succeeded, with the time from its request to the end of its body.
  void noteTransfer(Duration time, Version version) noexcept;
  /// Called when a transfer, begun at that time, has failed in a way that may come from too many:
  /// the count falls to the least, and after a few times it stays there. Transfers that had begun
  /// before the last failure do not count: what fails together is one failure.
  void noteTrouble(Time begun, Time now) noexcept;

 private:
  [[nodiscard]] std::size_t most(Version version) const noexcept;
  void noteConnections(Version version) noexcept;

  const std::size_t least_;
  const std::size_t mostOverHTTP1_;
  const std::size_t mostOverHTTP2_;
  const Duration leastRoundTrip_;
  const double largestTimes_;  // in round trips, of transfers of which more may run
  std::size_t count_;
  int troubles_ = 0;
  Time lastTrouble_ = Time::min();
  Duration roundTrip_ = Duration::max();  // the shortest handshake
  Duration time_{0};                      // of the transfers since the last decision
  std::size_t transfers_ = 0;             // number of these
  std::size_t connections_ = 0;           // that were made for these
  bool isFirstDecision_ = true;
  bool sharesConnections_ = true;  // over HTTP/2
};

}  // namespace kiv
