#include "Tests/Support/LoopbackServerSockets.h"

#include <cstdlib>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace kiv::test {

namespace {

/// Tests connect only to this machine, so a proxy in the environment must not apply.
class WithoutProxy final : public testing::Environment {
 public:
  void SetUp() override { setenv("no_proxy", "*", 1); }
};

testing::Environment* const withoutProxy = testing::AddGlobalTestEnvironment(new WithoutProxy);

[[noreturn]] void giveUp(const char* what) {
  std::perror(what);
  std::abort();
}

sockaddr_in loopbackAddress(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

int newSocket(int flags = 0) {
  const int made = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | flags, 0);
  if (made < 0) giveUp("socket");
  return made;
}

}  // namespace

int boundSocket() {
  const int made = newSocket();
  const auto address = loopbackAddress(0);
  if (bind(made, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) giveUp("bind");
  return made;
}

int listeningSocket() {
  const int made = boundSocket();
  if (listen(made, SOMAXCONN) != 0) giveUp("listen");
  return made;
}

int portOf(int socket) {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  if (getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) != 0) giveUp("getsockname");
  return ntohs(address.sin_port);
}

std::string loopbackURL(int port, std::string_view path) {
  return "http://127.0.0.1:" + std::to_string(port).append(path);
}

// A socket that is bound but does not listen keeps the port in use and refuses connections.
RefusingServer::RefusingServer() : socket_(boundSocket()) {}

RefusingServer::~RefusingServer() {
  close(socket_);
}

std::string RefusingServer::url(std::string_view path) const {
  return loopbackURL(portOf(socket_), path);
}

UnreachableServer::UnreachableServer() : listener_(boundSocket()) {
  // A listening socket completes no further connection while its backlog is full.
  if (listen(listener_, 0) != 0) giveUp("listen");
  const auto address = loopbackAddress(portOf(listener_));
  for (int filler = 0; filler < 3; ++filler) {
    fillers_.push_back(newSocket(SOCK_NONBLOCK));
    (void)connect(fillers_.back(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
  }
}

UnreachableServer::~UnreachableServer() {
  for (const int filler : fillers_)
    close(filler);
  close(listener_);
}

std::string UnreachableServer::url(std::string_view path) const {
  return loopbackURL(portOf(listener_), path);
}

}  // namespace kiv::test
