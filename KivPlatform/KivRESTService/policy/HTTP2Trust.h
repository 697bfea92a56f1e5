#pragma once

#include <chrono>
#include <map>
#include <string>

namespace kiv {

/// Remembers with which servers HTTP/2 does not work, so that not every file has to find out. A
/// server loses its trust for as long as this object lives.
///
/// A request that offers HTTP/2 waits for a connection that is being made. Without need this would
/// hold up the requests to a server that closes each connection after one response.
class HTTP2Trust {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /// Consecutive failures after which a server is no longer trusted.
  static constexpr int mostFailures = 3;

  [[nodiscard]] bool isTrusted(const std::string& server) const;
  /// Called when a request over HTTP/2 has brought a response.
  void noteSuccess(const std::string& server);
  /// Called when the transport of one, begun at that time, has failed. Those that had begun before
  /// the last failure do not count: they may have shared its connection.
  void noteFailure(const std::string& server, Time begun, Time now);
  /// Called when one has timed out: libcurl keeps the connection, and would send the next requests
  /// over it.
  void noteStall(const std::string& server) { failures_[server].count = mostFailures; }
  /// Called when a request that offered HTTP/2 has got a response over HTTP/1.
  void noteRefusal(const std::string& server) { failures_[server].count = mostFailures; }

 private:
  struct Failures {
    int count = 0;
    Time last = Time::min();
  };

  std::map<std::string, Failures> failures_;
};

}  // namespace kiv
