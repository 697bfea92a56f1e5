// The round trip is measured by TCP handshakes, which do not wait for the server's work: a server
// that is slow itself gets no more transfers. The shortest one counts, since a busy computer or a
// full line makes others longer.

#include "KivPlatform/KivRESTService/policy/ParallelPlaces.h"

#include <algorithm>
#include <utility>

namespace kiv {

namespace {

std::size_t leastFor(const TransferSettings& settings) noexcept {
  return std::max<std::size_t>(
      1, std::min(settings.parallelTransfers, settings.parallelTransfersPerHost));
}

/// A host that asks for fewer transfers in total than one server would get, or limits the
/// bandwidth, gets no more than that.
std::size_t mostFor(const TransferSettings& settings, std::size_t most) noexcept {
  const bool mayGrow =
      settings.bandwidth <= 0 && settings.parallelTransfers >= settings.parallelTransfersPerHost;
  return mayGrow ? std::max(most, leastFor(settings)) : leastFor(settings);
}

}  // namespace

ParallelPlaces::ParallelPlaces(const TransferSettings& settings) noexcept
    : least_(leastFor(settings)),
      mostOverHTTP1_(mostFor(settings, settings.mostTransfersPerHost)),
      mostOverHTTP2_(mostFor(settings, settings.mostStreamsPerHost)),
      leastRoundTrip_(settings.leastRoundTrip),
      mostRoundTrips_(settings.roundTripsOfLatency),
      count_(least_) {}

std::size_t ParallelPlaces::most(Version version) const noexcept {
  return version == Version::http2 && sharesConnections_ ? mostOverHTTP2_ : mostOverHTTP1_;
}

void ParallelPlaces::noteHandshake(Duration time) noexcept {
  roundTrip_ = std::min(roundTrip_, time);
  ++connections_;
}

void ParallelPlaces::noteTransfer(Duration time, Version version) noexcept {
  time_ += time;
  if (++transfers_ < count_) return;
  noteConnections(version);
  const bool isLong = roundTrip_ != Duration::max() && roundTrip_ >= leastRoundTrip_;
  const double times = static_cast<double>(time_.count()) /
                       static_cast<double>(std::max<Duration::rep>(1, roundTrip_.count())) /
                       static_cast<double>(transfers_);
  time_ = Duration(0);
  transfers_ = 0;
  constexpr int mostTroubles = 3;
  if (isLong && times <= mostRoundTrips_ && troubles_ < mostTroubles) {
    // A further connection costs a handshake, a further stream nothing.
    const std::size_t factor = version == Version::http2 ? 4 : 2;
    count_ = std::max(count_, std::min(factor * count_, most(version)));
  } else if (times > 2 * mostRoundTrips_) {
    count_ = std::max(least_, count_ / 2);
  }
}

/// If a server accepts only a few streams on a connection, more transfers need more connections.
/// With over four streams on each, `mostOverHTTP2_` transfers need no more connections than
/// HTTP/1.1 would. Otherwise no more transfers run than over HTTP/1.1.
void ParallelPlaces::noteConnections(Version version) noexcept {
  constexpr std::size_t leastStreams = 4;
  const bool areFurtherOnes = !std::exchange(isFirstDecision_, false);
  const std::size_t made = std::exchange(connections_, 0);
  if (version == Version::http2 && areFurtherOnes && leastStreams * made >= transfers_) {
    sharesConnections_ = false;
  }
}

void ParallelPlaces::noteTrouble(Time begun, Time now) noexcept {
  count_ = least_;
  time_ = Duration(0);
  transfers_ = 0;
  connections_ = 0;
  if (begun <= lastTrouble_) return;
  ++troubles_;
  lastTrouble_ = now;
}

}  // namespace kiv
