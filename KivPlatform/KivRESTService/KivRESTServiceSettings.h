#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

/// How a client transfers. The defaults suit a desktop application; a host that wants others hands
/// them to the client's constructor, or sets them for the clients that are made without settings
/// (KivRESTService::setDefaultSettings) before the first of them is made.
struct KivRESTServiceSettings {
  // --- How much at one time ---

  /// Transfers that run at one time; the other tasks wait. At least one runs.
  std::size_t parallelTransfers = 6;
  /// Of these, the transfers with one server, a host and port. At least one runs.
  std::size_t parallelTransfersPerHost = 6;
  /// While other downloads wait for its place, a transfer slower than `slowSpeed`, in bytes a
  /// second, gives way after `slowTurn`: it ends, what has come is kept, and it continues when
  /// those that wait have had their turn. That is no failed try. Its next turn is twice as long.
  /// The half of the places that was taken first is left alone, so that files are completed on slow
  /// lines, too. A `slowSpeed` of 0: nothing gives way.
  std::int64_t slowSpeed = 8 * 1024;
  std::chrono::seconds slowTurn{30};
  /// Bytes a second that all transfers together may receive, headers and bodies, 0 for no limit.
  /// Kept on average, however many transfers the bytes come with: no transfer starts while more has
  /// come than the limit allows. A transfer that has just started may bring the bytes of one second
  /// before it is slowed down, so that the first ones that start together come faster.
  std::int64_t bandwidth = 0;

  /// Threads that move bytes, each for its share of the transfers; at least one does. The second
  /// one starts with the second transfer at one time. More than one helps where the network is
  /// faster than a processor takes, checks and stores what comes. With a `bandwidth` there is one.
  std::size_t threads = 2;

  // --- When to give up a try ---

  /// How long looking up the host, connecting and the TLS handshake may take together. Where a
  /// second try takes longer, too, the server is given up for the files that wait for it.
  std::chrono::milliseconds connectTimeout{15'000};
  /// A try that is slower than `stallSpeed`, in bytes a second, for this long is ended. 0 for no
  /// limit.
  std::chrono::seconds stallTimeout{30};
  std::int64_t stallSpeed = 64;
  /// The older a download, the faster it has to be: `stallSpeed` doubles each time that its tries
  /// have run for this long in all, up to `largestStallSpeed`. 0 for never. The largest is what is
  /// left to each of six transfers on a line of 3 KB/s; with a `bandwidth`, it is at most half of
  /// what that leaves to each.
  std::chrono::seconds stallSpeedDoubling{5 * 60};
  std::int64_t largestStallSpeed = 512;
  /// How long a file may take, with all tries and what is waited between them, from the start of
  /// the first one. Then its tasks end with the error deadlineExceeded, and what has come of it is
  /// kept as after any other failure. 0 for no limit.
  std::chrono::seconds deadline{6 * 60 * 60};
  /// Redirects followed for one server before it is given up.
  int redirects = 10;
  /// Follows redirects from a server with a public address to one with a private address: loopback,
  /// private, link-local, or another that the public Internet does not route. Off: no server can
  /// have the client send requests to this machine, or to its neighbours. Redirects of a server
  /// that has a private address itself are followed in any case. The addresses that are connected
  /// to count; where a proxy connects, the hosts of the URLs do, and a redirect is then not
  /// excepted from the environment's proxy ("no_proxy").
  bool followsRedirectsToPrivateAddresses = false;

  // --- When to try again ---

  /// Tries that one server has for a file where they fail for a reason that may pass. A try after
  /// which more of the file is kept on the disk than before does not count. At least one is made.
  int triesPerServer = 3;
  /// Tries for a file in all, whatever they came to. At least one is made.
  int triesInAll = 10;
  /// Before a server is asked again the client waits for a random time of up to `firstRetryDelay`,
  /// and of up to twice as much after each further failure, but no more than `longestRetryDelay`.
  /// Other servers are asked meanwhile.
  std::chrono::milliseconds firstRetryDelay{500};
  std::chrono::milliseconds longestRetryDelay{30'000};
  /// A server that says when to come again ("Retry-After") is waited for that long, but no longer
  /// than this.
  std::chrono::milliseconds longestRetryAfter{60'000};
  /// How long a server that could not be reached comes after the others. Until it is reached, one
  /// task at a time tries it.
  std::chrono::milliseconds unreachablePause{30'000};

  // --- What is taken ---

  /// Bytes of the largest body taken. A body without end stops here.
  std::int64_t largestBody = std::int64_t{2} * 1024 * 1024 * 1024;
  /// Takes bodies over HTTP/1.1 that have neither length nor chunks, of which only the end of the
  /// connection marks the end, as some small servers send them. Off: such a body may be cut short
  /// without anyone noticing. The metrics of a task that took one say so (endedWithConnection).
  /// Over https such a body is never taken, HTTP/1.0 included.
  bool takesBodiesWithoutLength = false;
  /// Bytes of the largest body kept in memory. Larger ones go to a file in the spool directory,
  /// where one has been named.
  std::int64_t largestBodyInMemory = 1024 * 1024;
  /// Bytes of bodies that may wait in memory for the client's queue to complete their tasks. No
  /// transfer starts while there are more: who takes bodies slowly gets them slowly.
  std::int64_t largestPendingBytes = 4 * 1024 * 1024;

  // --- What is kept on the disk ---

  /// Absolute path of a directory of the clients' own for bodies on their way, made where it is
  /// missing; empty if every body is to stay in memory. Clients of several processes may use
  /// one directory. Bodies that are not whole stay there, so that a later try goes on with them.
  std::string spoolDirectory;
  /// A partial body to which nothing has been added for this long is removed.
  std::chrono::hours longestPartialAge{7 * 24};
  /// Bytes that partial bodies may take together; the oldest go first.
  std::int64_t largestPartials = 1024 * 1024 * 1024;

  // --- How to connect ---

  /// URL of the proxy; empty for none; nothing for what the environment says ("https_proxy" ...).
  std::optional<std::string> proxy;
  /// Path of a file with the certificates (PEM) of the authorities to trust, instead of the
  /// system's; empty for the system's.
  std::string certificateAuthoritiesPath;
  /// What the client calls itself.
  std::string userAgent = "KivRESTService/1.0";
  /// Offers HTTP/2 to https servers. Off: the oldest libcurl that the library works with has known
  /// trouble to notice HTTP/2 bodies that are not whole, and to use a stalled connection again.
  bool http2 = false;
  /// How long the transfer threads and their open connections stay when there is nothing to do.
  /// They go at once when the tasks are cancelled.
  std::chrono::seconds idleTime{30};
};
