#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "KivPlatform/Foundation/Export.h"

namespace kiv {
class Dictionary;
template <class T>
class Result;
}  // namespace kiv

/// How a client transfers. The defaults suit a desktop application. A host that wants others passes
/// them to the client's constructor, or sets them for all clients that are created without settings
/// (KivRESTService::setDefaultSettings) before the first of these is created. Limits and times that
/// are not here are constants: kiv::TransferSettings.
struct KIV_EXPORT KivRESTServiceSettings {
  // --- How much at one time ---

  /// The number of transfers that run at the same time, at least one, with at most six per server
  /// (host and port). The other tasks wait. On a line with long round trips up to 24 run per
  /// server, or 96 over HTTP/2, and the total grows as much. It does not grow if this is less than
  /// six, or with a `bandwidth`.
  std::size_t parallelTransfers = 6;
  /// The largest number of threads that move bytes, each for its share of the transfers; at least
  /// one. A further thread starts when transfers run at the same time; over https, only when there
  /// are more files than `parallelTransfers`. More than one helps where the network is faster than
  /// one processor can receive, check and store. With a `bandwidth` there is one.
  std::size_t threads = 2;
  /// The limit, in bytes per second, on what all transfers together receive, headers and bodies; 0
  /// for no limit. It holds on average: while more has come than the limit allows, no transfer
  /// starts. A transfer that has just started may receive one second's worth before it is slowed
  /// down.
  std::int64_t bandwidth = 0;

  // --- How long, and how often ---

  /// The limit on DNS look-up, connecting and TLS handshake together.
  std::chrono::milliseconds connectTimeout{15'000};
  /// The limit on a file, from the start of its first attempt, including all retries and the waits
  /// between them. Its tasks then end with the error deadlineExceeded, and the received bytes are
  /// kept as after any other failure. 0 for no limit.
  std::chrono::seconds deadline{6 * 60 * 60};
  /// Attempts at one file with one server, if they fail in a retryable way; at least one is made.
  /// An attempt that leaves more of the file on the disk than before does not count.
  int triesPerServer = 3;

  // --- What is accepted ---

  /// The limit on the bytes of a body.
  std::int64_t largestBody = std::int64_t{2} * 1024 * 1024 * 1024;
  /// Accepts bodies over HTTP/1.1 that end with the connection, without length and chunks, as some
  /// small servers send them. Otherwise they are refused, since such a body may have been cut short
  /// unnoticed. The metrics of a task that accepted one say so (endedWithConnection). Over https
  /// they are never accepted, not even with HTTP/1.0.
  bool takesBodiesWithoutLength = false;
  /// Follows redirects from a server with a public address to one with a private address: loopback,
  /// private, link-local, or another that the public Internet does not route. If false, no server
  /// can make the client send requests to this computer or its neighbours. Redirects of a server
  /// that itself has a private address are always followed. The address that is connected to
  /// counts. Through a proxy, the host name in the URL counts; the environment's exceptions from
  /// the proxy ("no_proxy") then do not apply to redirects.
  bool followsRedirectsToPrivateAddresses = false;

  // --- What is kept on the disk ---

  /// Absolute path of a directory for bodies that are too large for memory, and for partial bodies,
  /// which later attempts continue. It is created if missing, and belongs to the clients; clients
  /// in several processes may share it. If empty, all bodies stay in memory.
  std::string spoolDirectory;
  /// The limit on the bytes of all partial bodies; the oldest are removed first. Those to which
  /// nothing was added for a week are removed too.
  std::int64_t largestPartials = 1024 * 1024 * 1024;

  // --- How to connect ---

  /// URL of the proxy; empty for none; std::nullopt for the environment's ("https_proxy" ...).
  std::optional<std::string> proxy;
  /// Path of a PEM file with the certificate authorities to trust instead of the system's; empty
  /// for the system's.
  std::string certificateAuthoritiesPath;
  /// The User-Agent header.
  std::string userAgent = "KivRESTService/1.0";
  /// Offers HTTP/2 to https servers, except with a `bandwidth`. A body that does not arrive
  /// completely over HTTP/2, or has no length there, is requested again over HTTP/1.1.
  bool http2 = true;

  // --- As JSON ---

  /// The settings by the names of the members, with the unit of times: "connectTimeout_ms",
  /// "deadline_s". The proxy is null for that of the environment.
  [[nodiscard]] kiv::Dictionary dictionary() const;
  /// `base`, changed by the members that the dictionary has. The error names the first member that
  /// is unknown, of the wrong type, or out of range.
  [[nodiscard]] static kiv::Result<KivRESTServiceSettings> fromDictionary(
      const kiv::Dictionary& dictionary, const KivRESTServiceSettings& base);
};
