#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "KivPlatform/KivRESTService/KivRESTServiceSettings.h"

namespace kiv {

/// The host's settings, and constants of the transport that only tests change.
struct TransferSettings : KivRESTServiceSettings {
  TransferSettings() = default;
  explicit TransferSettings(KivRESTServiceSettings settings)
      : KivRESTServiceSettings(std::move(settings)) {}

  // --- How much at one time ---

  /// The number of transfers that run with one server (host and port) at the same time, at least
  /// one. Browsers open as many connections over HTTP/1.1.
  std::size_t parallelTransfersPerHost = 6;
  /// The largest number where round trips are long: over HTTP/1.1, and over HTTP/2, for which
  /// servers accept a hundred streams or more. On a line of 50 ms and 50 Mbit/s, 24 connections
  /// fetch small files in a quarter of the time that six need. The total may then exceed
  /// `parallelTransfers` by as much.
  std::size_t mostTransfersPerHost = 24;
  std::size_t mostStreamsPerHost = 96;
  /// Round trips count as long if they take at least `leastRoundTrip`, and the usual transfer takes
  /// no more than `roundTripsOfLatency` of them.
  std::chrono::milliseconds leastRoundTrip{10};
  double roundTripsOfLatency = 4;
  /// Received bytes that may wait in memory for the client's queue to complete their tasks. While
  /// there are more, no transfer starts: a slow consumer throttles its downloads.
  std::int64_t largestPendingBytes = 4 * 1024 * 1024;
  /// The largest body kept in memory, in bytes. Larger ones go to a file in the spool directory, if
  /// the host has set one.
  std::int64_t largestBodyInMemory = 1024 * 1024;
  /// How long idle transfer threads and their connections stay. Servers close idle connections
  /// after 5 to 75 seconds.
  std::chrono::seconds idleTime{30};

  // --- Slow servers ---

  /// An attempt slower than `stallSpeed`, in bytes per second, for this long fails. 0 for no limit.
  std::chrono::seconds stallTimeout{30};
  std::int64_t stallSpeed = 64;
  /// An HTTP/2 connection on which several requests wait is given up if nothing comes for this
  /// long, and they are repeated over HTTP/1.1. Otherwise one bad connection would cost each of
  /// many files a time-out. With a longer time they wait longer; with a shorter one, servers that
  /// are slow to answer get no HTTP/2.
  std::chrono::milliseconds sharedStallTimeout{5'000};
  /// `stallSpeed` doubles each time that a download's attempts have run for this long in total, up
  /// to `largestStallSpeed`; 0 for never. 512 bytes per second is what each of six transfers gets
  /// on a line of 3 KB/s. With a bandwidth limit, it grows to at most half of a transfer's share.
  std::chrono::seconds stallSpeedDoubling{5 * 60};
  std::int64_t largestStallSpeed = 512;
  /// While other downloads wait for its slot, a transfer slower than `slowSpeed`, in bytes per
  /// second, yields after `slowTurn`: it ends, the received bytes are kept, and it continues after
  /// the waiting downloads have had a turn. This is not a failed attempt. Its next turn is twice as
  /// long. The half of the slots that was taken first never yields, so that files complete even on
  /// slow lines. With a `slowSpeed` of 0 nothing yields.
  std::int64_t slowSpeed = 8 * 1024;
  std::chrono::seconds slowTurn{30};

  // --- Retries ---

  /// Attempts at one file in total, failed or not; at least one is made.
  int triesInAll = 10;
  /// A server is tried again after a random time of up to `firstRetryDelay`. That bound doubles
  /// with each further failure, up to `longestRetryDelay`. Other servers are tried meanwhile.
  std::chrono::milliseconds firstRetryDelay{500};
  std::chrono::milliseconds longestRetryDelay{30'000};
  /// The longest Retry-After that is respected.
  std::chrono::milliseconds longestRetryAfter{60'000};
  /// For how long an unreachable server is tried only after others. Until an attempt reaches it,
  /// only one at a time tries it.
  std::chrono::milliseconds unreachablePause{30'000};
  /// Redirects followed for one attempt. Browsers follow 20, RFC 2068 recommended 5.
  int mostRedirects = 10;

  // --- Partial bodies ---

  /// A partial body to which nothing was added for this long is removed.
  std::chrono::hours longestPartialAge{7 * 24};
};

/// The settings of clients that are created without any; KivRESTService::setDefaultSettings() sets
/// the host's part of them. May be called from any thread.
TransferSettings defaultTransferSettings();
void setDefaultTransferSettings(TransferSettings settings);

}  // namespace kiv
