#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>

namespace kiv {

/// An HTTP server on the loopback interface that serves the files of one directory and can inject
/// faults, for tests and demonstrations of a host.
///
/// It has its own threads. The operations are thread-safe, except that start() and stop() must not
/// be called concurrently. Paths begin with "/", as in a request: "/banners/wide.png".
class ContentServer {
 public:
  /// Creates a server for the directory without starting it. Files outside of the directory are
  /// never served, not even through links.
  explicit ContentServer(std::string directory);
  /// Stops the server.
  ~ContentServer();
  ContentServer(const ContentServer&) = delete;
  ContentServer& operator=(const ContentServer&) = delete;

  /// Starts the server on 127.0.0.1 and `port`, or a free port if it is 0. Responses have ETag and
  /// Last-Modified, so that downloads can be resumed and clients can ask for what has changed.
  /// False if the directory does not exist (not_a_directory) or the port cannot be used (any other
  /// error). Throws std::system_error if a thread cannot be created.
  bool start(int port = 0, std::error_code* error = nullptr);
  /// Closes every connection and the listening socket. Returns when all threads of the server have
  /// ended. A stopped server can be started again.
  void stop();

  /// The server's URL, for example "http://127.0.0.1:41234". It is kept after stop() and is empty
  /// before the first start().
  [[nodiscard]] std::string url() const;

  /// Called before the response to each request, with the method, the path and the status of the
  /// response; if the body is cut off, the status of the complete file. Calls come on the threads
  /// of the server, one at a time. Set it before start().
  using RequestHandler =
      std::function<void(const std::string& method, const std::string& path, int status)>;
  void setRequestHandler(RequestHandler handler);

  /// From now on responds to requests for the path with that status, whether or not the file
  /// exists.
  void failWithStatus(std::string_view path, int status);
  /// From now on declares the whole length of the file at the path and closes the connection
  /// halfway.
  void breakOff(std::string_view path);
  /// Removes the fault of the path.
  void heal(std::string_view path);

  /// The number of requests since the server was created, in total or for one path.
  [[nodiscard]] std::size_t requestCount() const;
  [[nodiscard]] std::size_t requestCount(std::string_view path) const;

 private:
  class Implementation;
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace kiv
