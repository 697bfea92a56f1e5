#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>

namespace kiv {

/// An HTTP server on the loopback interface that serves the files of one directory, and can be told
/// to fail: for trying out a host and for showing what it does.
///
/// It has threads of its own. Its operations may be called from any thread, but start() and stop()
/// from one at a time. Paths begin with "/", as in a request: "/banners/wide.png".
class ContentServer {
 public:
  /// A server for the directory, not started yet. Nothing outside of it is ever served, whatever
  /// paths or links lead there.
  explicit ContentServer(std::string directory);
  /// Stops the server.
  ~ContentServer();
  ContentServer(const ContentServer&) = delete;
  ContentServer& operator=(const ContentServer&) = delete;

  /// Starts to serve on a free port of 127.0.0.1, or on `port` where one is given. Files go with
  /// entity tag and date, so that a download can go on where it broke off. False if the
  /// directory does not exist (not_a_directory) or no port is to be had (any other error). Throws
  /// std::system_error where the system has no thread left.
  bool start(int port = 0, std::error_code* error = nullptr);
  /// Ends every connection and frees the port, so that new connections are refused. Returns when
  /// all threads of the server have ended. A stopped server can be started again.
  void stop();

  /// The server's address, like "http://127.0.0.1:41234"; it stays after stop(), and is empty
  /// before the first start().
  [[nodiscard]] std::string url() const;

  /// Called with each request, before it is answered: method, path, and the status that it will
  /// get; of one that breaks off, that of the file. On the threads of the server, one at a time. To
  /// be set before the server is started.
  using RequestHandler =
      std::function<void(const std::string& method, const std::string& path, int status)>;
  void setRequestHandler(RequestHandler handler);

  /// From now on answers requests for the path with that status, without looking for the file.
  void failWithStatus(std::string_view path, int status);
  /// From now on announces the whole file at the path and breaks the connection in its middle.
  void breakOff(std::string_view path);
  /// Serves the path properly again.
  void heal(std::string_view path);

  /// The requests that came since the server was made, all of them or those for one path.
  [[nodiscard]] std::size_t requestCount() const;
  [[nodiscard]] std::size_t requestCount(std::string_view path) const;

 private:
  class Implementation;
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace kiv
