#pragma once

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "Tests/Support/LoopbackServerResponse.h"

namespace kiv::test {

/// A request that the server has received.
struct Request {
  std::string method;
  std::string target;  ///< Unchanged, with the query.
  std::string path;    ///< The target without the query.
  std::vector<std::pair<std::string, std::string>> headers;
  std::size_t connection = 0;  ///< The number of its connection, counted from 1.

  /// The value of the first header with that name, compared without regard to case; nullopt if
  /// there is none.
  [[nodiscard]] std::optional<std::string> header(std::string_view name) const;
};

/// An HTTP server on a port of the loopback interface, chosen by the system. It answers each
/// request with the response that the test set for its path, and records the requests.
///
///     LoopbackServer server;
///     server.serve("/a.png", Response::ok(bytes));
///     ... load server.url("/a.png") ...
///     EXPECT_EQ(server.requests("/a.png").size(), 1u);
///
/// A path without a response gets a 404. The constructor starts listening; the destructor closes
/// every connection and joins every thread. Thread-safe.
class LoopbackServer {
 public:
  using Handler = std::function<Response(const Request&)>;

  LoopbackServer();
  ~LoopbackServer();
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;

  /// Answers requests for the path with this response from now on.
  void serve(const std::string& path, Response response);
  /// Answers successive requests for the path with these responses; the last one is repeated.
  void serve(const std::string& path, std::vector<Response> responses);
  /// The handler returns the response. It is called on the threads of the connections.
  void serve(const std::string& path, Handler handler);

  [[nodiscard]] int port() const noexcept { return port_; }
  /// "http://127.0.0.1:port", followed by the path.
  [[nodiscard]] std::string url(std::string_view path = {}) const;

  /// The requests received so far, in order of arrival: all, or those for one path.
  [[nodiscard]] std::vector<Request> requests() const;
  [[nodiscard]] std::vector<Request> requests(std::string_view path) const;
  /// Waits until that many requests, in total or for one path, have been received; false after the
  /// test time-out.
  [[nodiscard]] bool waitForRequests(std::size_t count) const;
  [[nodiscard]] bool waitForRequests(std::string_view path, std::size_t count) const;

  /// Number of connections accepted so far.
  [[nodiscard]] std::size_t connectionCount() const;
  /// Waits until no connection is open; false after the test time-out.
  [[nodiscard]] bool waitForNoConnection() const;
  /// The largest number of requests that were pending at one time: received, with no response
  /// begun.
  [[nodiscard]] std::size_t mostWaiting() const;

 private:
  class Connection;

  void acceptConnections();
  [[nodiscard]] Response responseTo(const Request& request);
  void noteAnswerBegun();
  void noteClosed();

  int listener_ = -1;
  int port_ = 0;

  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  std::map<std::string, Handler, std::less<>> handlers_;
  std::vector<Request> requests_;
  std::vector<std::unique_ptr<Connection>> connections_;
  std::size_t accepted_ = 0;
  std::size_t open_ = 0;
  std::size_t waiting_ = 0;
  std::size_t mostWaiting_ = 0;

  std::thread acceptor_;
};

}  // namespace kiv::test
