#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

/// How a client transfers. The defaults suit a desktop application; a host that wants others hands
/// them to the client's constructor.
struct KivRESTServiceSettings {
  /// Transfers that run at one time; the other tasks wait. At least one runs.
  std::size_t parallelTransfers = 6;

  /// How long looking up the host, connecting and the TLS handshake may take together.
  std::chrono::milliseconds connectTimeout{15'000};

  /// A transfer slower than `stallSpeed`, in bytes a second, for this long is given up. There is no
  /// limit on the total time: a slow download that goes on is left alone.
  std::chrono::seconds stallTimeout{30};
  std::int64_t stallSpeed = 64;

  /// Redirects followed for one server before it is given up.
  int redirects = 10;

  /// Bytes of the largest body taken. A body without end stops here.
  std::int64_t largestBody = std::int64_t{2} * 1024 * 1024 * 1024;

  /// Path of a file with the certificates (PEM) of the authorities to trust, instead of the
  /// system's; empty for the system's.
  std::string certificateAuthoritiesPath;

  /// What the client calls itself.
  std::string userAgent = "KivRESTService/1.0";

  /// How long the transfer thread and its open connections stay when there is nothing to do. They
  /// go at once when the tasks are cancelled.
  std::chrono::seconds idleTime{30};
};
