#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "KivPlatform/KivRESTService/KivRESTServiceSettings.h"

namespace kiv {

/// The host's settings, and the constants of the transport. No host has needed other constants:
/// only tests change them.
struct TransferSettings : KivRESTServiceSettings {
  TransferSettings() = default;
  explicit TransferSettings(KivRESTServiceSettings settings)
      : KivRESTServiceSettings(std::move(settings)) {}

  // --- How much at one time ---

  /// The transfers that run with one server, a host and port. As many as browsers open over
  /// HTTP/1.1. At least one runs.
  std::size_t parallelTransfersPerHost = 6;
  /// The same where round trips take long: over HTTP/1.1, and over HTTP/2, for which servers accept
  /// a hundred streams or more. On a line of 50 ms and 50 Mbit/s, 24 connections fetch small files
  /// in a quarter of the time that six need. `parallelTransfers` grows as much.
  std::size_t mostTransfersPerHost = 24;
  std::size_t mostStreamsPerHost = 96;
  /// Round trips are long from this time on, if the usual transfer takes no more than so many of
  /// them.
  std::chrono::milliseconds leastRoundTrip{10};
  double roundTripsOfLatency = 4;
  /// Bytes of bodies that may wait in memory for the client's queue to complete their tasks. While
  /// there are more, no transfer starts: a slow consumer throttles its downloads.
  std::int64_t largestPendingBytes = 4 * 1024 * 1024;
  /// Bytes of the largest body kept in memory. Larger ones go to a file in the spool directory, if
  /// one is named.
  std::int64_t largestBodyInMemory = 1024 * 1024;
  /// How long the transfer threads and their connections stay when there is nothing to do. Servers
  /// close idle connections after 5 to 75 seconds.
  std::chrono::seconds idleTime{30};

  // --- Slow servers ---

  /// An attempt slower than `stallSpeed`, in bytes per second, for this long fails. 0 for no limit.
  std::chrono::seconds stallTimeout{30};
  std::int64_t stallSpeed = 64;
  /// A connection of HTTP/2 on which several requests wait is given up if it brings nothing for
  /// this long, and they are repeated over HTTP/1.1. Each of many files would otherwise wait for
  /// its own time-out because of one connection. A longer time: how long they wait; a shorter one:
  /// servers that take long for an answer get no HTTP/2.
  std::chrono::milliseconds sharedStallTimeout{5'000};
  /// `stallSpeed` doubles each time that a download's attempts have run for this long in total, up
  /// to `largestStallSpeed`; 0 for never. 512 bytes per second is what is left to each of six
  /// transfers on a line of 3 KB/s. With a bandwidth limit it is at most half of what that leaves
  /// to each.
  std::chrono::seconds stallSpeedDoubling{5 * 60};
  std::int64_t largestStallSpeed = 512;
  /// While other downloads wait for its slot, a transfer slower than `slowSpeed`, in bytes per
  /// second, yields after `slowTurn`: it ends, what has come is kept, and it continues after those
  /// that wait have had a turn. This is no failed attempt. Its next turn is twice as long. The half
  /// of the slots that was taken first never yields, so that files also complete on slow lines. A
  /// `slowSpeed` of 0: nothing yields.
  std::int64_t slowSpeed = 8 * 1024;
  std::chrono::seconds slowTurn{30};

  // --- Retries ---

  /// Attempts at one file in total, whatever they came to. At least one is made.
  int triesInAll = 10;
  /// A server is asked again after a random time of up to `firstRetryDelay`, which doubles with
  /// each further failure up to `longestRetryDelay`. Other servers are asked meanwhile.
  std::chrono::milliseconds firstRetryDelay{500};
  std::chrono::milliseconds longestRetryDelay{30'000};
  /// The longest Retry-After that is respected.
  std::chrono::milliseconds longestRetryAfter{60'000};
  /// How long an unreachable server is tried after the others. Until it is reached, one task at a
  /// time tries it.
  std::chrono::milliseconds unreachablePause{30'000};
  /// Redirects followed for one attempt. Browsers follow 20, RFC 2068 recommended 5.
  int redirects = 10;

  // --- Partial bodies ---

  /// A partial body to which nothing has been added for this long is removed.
  std::chrono::hours longestPartialAge{7 * 24};
};

/// The settings of clients that are made without any; KivRESTService::setDefaultSettings() sets the
/// host's part of them. May be called from any thread.
TransferSettings defaultTransferSettings();
void setDefaultTransferSettings(TransferSettings settings);

}  // namespace kiv
