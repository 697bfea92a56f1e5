#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kiv::test {

/// A socket of the loopback interface on a port that the system chooses. Ends the test program
/// where there is none to be had.
int boundSocket();
/// The same, listening.
int listeningSocket();
int portOf(int socket);
/// "http://127.0.0.1:port", followed by the path.
std::string loopbackURL(int port, std::string_view path);

/// A port that refuses every connection, for as long as this lives.
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

/// A port that leaves every connection half made, as a host does that has gone.
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
