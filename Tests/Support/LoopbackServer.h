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
  std::string target;  ///< As it came, with the query.
  std::string path;    ///< The target without the query.
  std::vector<std::pair<std::string, std::string>> headers;
  std::size_t connection = 0;  ///< The number of its connection: 1 for the first that came.

  /// The value of the first header of that name, in whatever case it came; nothing without one.
  [[nodiscard]] std::optional<std::string> header(std::string_view name) const;
};

/// An HTTP server on the loopback interface and a port of its own, which does to each request what
/// the test has written for it, and remembers what it has been asked.
///
///     LoopbackServer server;
///     server.serve("/a.png", Response::ok(bytes));
///     ... load server.url("/a.png") ...
///     EXPECT_EQ(server.requests("/a.png").size(), 1u);
///
/// A path for which nothing is written gets a 404. Listens as soon as it is made; its destruction
/// closes every connection and joins every thread. May be used from any thread.
class LoopbackServer {
 public:
  using Handler = std::function<Response(const Request&)>;

  LoopbackServer();
  ~LoopbackServer();
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;

  /// What requests for the path get, from now on.
  void serve(const std::string& path, Response response);
  /// What they get one after the other; the last goes for all that follow.
  void serve(const std::string& path, std::vector<Response> responses);
  /// The handler decides. It is called on the threads of the connections.
  void serve(const std::string& path, Handler handler);

  [[nodiscard]] int port() const noexcept { return port_; }
  /// "http://127.0.0.1:port", followed by the path.
  [[nodiscard]] std::string url(std::string_view path = {}) const;

  /// The requests received so far, in order of arrival: all, or those for one path.
  [[nodiscard]] std::vector<Request> requests() const;
  [[nodiscard]] std::vector<Request> requests(std::string_view path) const;
  /// Waits until that many requests, in all or for one path, have been received; false if the
  /// patience of a test ends before.
  [[nodiscard]] bool waitForRequests(std::size_t count) const;
  [[nodiscard]] bool waitForRequests(std::string_view path, std::size_t count) const;

  /// Connections taken so far.
  [[nodiscard]] std::size_t connectionCount() const;
  /// Waits until no connection is open any more; false if the patience of a test ends before.
  [[nodiscard]] bool waitForNoConnection() const;
  /// The most requests at one time that had been received and whose answer had not yet begun.
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
