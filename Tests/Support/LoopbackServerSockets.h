#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kiv::test {

/// Returns a socket that is bound to a port of the loopback interface, chosen by the system. Aborts
/// the test program if that fails.
int boundSocket();
/// Returns such a socket in the listening state.
int listeningSocket();
int portOf(int socket);
/// "http://127.0.0.1:port", followed by the path.
std::string loopbackURL(int port, std::string_view path);

/// A port that refuses every connection for the lifetime of this object.
class RefusingServer {
 public:
  RefusingServer();
  ~RefusingServer();
  RefusingServer(const RefusingServer&) = delete;
  RefusingServer& operator=(const RefusingServer&) = delete;

  [[nodiscard]] std::string url(std::string_view path = {}) const;

 private:
  int socket_;
};

/// A port that never completes a connection, like a host that is down.
class UnreachableServer {
 public:
  UnreachableServer();
  ~UnreachableServer();
  UnreachableServer(const UnreachableServer&) = delete;
  UnreachableServer& operator=(const UnreachableServer&) = delete;

  [[nodiscard]] std::string url(std::string_view path = {}) const;

 private:
  int listener_;
  std::vector<int> fillers_;
};

}  // namespace kiv::test
