#pragma once

#include <chrono>
#include <map>
#include <string>

namespace kiv {

/// Remembers with which servers HTTP/2 does not work, so that not every file has to find out. A
/// server that has lost trust never regains it while this object lives.
///
/// A request that offers HTTP/2 waits while another one makes a connection. With a server that
/// lacks HTTP/2 and closes each connection after one response, requests would wait for nothing.
class HTTP2Trust {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /// Consecutive failures after which a server is no longer trusted.
  static constexpr int mostFailures = 3;

  [[nodiscard]] bool isTrusted(const std::string& server) const;
  /// Called when a request over HTTP/2 has brought a response.
  void noteSuccess(const std::string& server);
  /// Called when the connection of a request over HTTP/2 that began at `begun` has failed. Requests
  /// that began before the last failure do not count: they may have shared its connection.
  void noteFailure(const std::string& server, Time begun, Time now);
  /// Called when a request over HTTP/2 has timed out. Trust is lost at once, because libcurl would
  /// keep the connection and send further requests over it.
  void noteStall(const std::string& server) { failures_[server].count = mostFailures; }
  /// Called when a request that offered HTTP/2 got a response over HTTP/1.
  void noteRefusal(const std::string& server) { failures_[server].count = mostFailures; }

 private:
  struct Failures {
    int count = 0;
    Time last = Time::min();
  };

  std::map<std::string, Failures> failures_;
};

}  // namespace kiv
