#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <thread>

namespace kiv::fuzz {

/// A server on a free port of the loopback interface, with one thread for all connections. It sends
/// the given bytes unchanged and never waits for a client.
class ScriptedServer {
 public:
  enum class End { keepOpen, close, reset };

  struct Request {
    std::string path;
    std::size_t first = 0;  ///< The first byte that is asked for; 0 for a whole file.
    std::string ifRange;
  };

  /// The reply to a request: the bytes, how many of them are sent first, and whether the connection
  /// is closed.
  struct Reply {
    std::string bytes;
    std::size_t firstPiece = 0;
    End end = End::close;
  };

  /// Called on the server's thread for each request.
  using Script = std::function<Reply(const Request& request)>;

  explicit ScriptedServer(Script script);
  ~ScriptedServer();
  ScriptedServer(const ScriptedServer&) = delete;
  ScriptedServer& operator=(const ScriptedServer&) = delete;

  [[nodiscard]] std::string url(std::string_view path) const;

 private:
  void serve();
  bool receive(int socket, std::string& received);
  bool answer(int socket, std::string_view head);

  const Script script_;
  int listener_ = -1;
  int wakeUp_[2] = {-1, -1};
  int port_ = 0;
  std::map<int, std::string> connections_;  // with what has come of the next request
  std::thread thread_;
};

}  // namespace kiv::fuzz
