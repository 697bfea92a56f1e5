#include "Fuzz/ScriptedServer.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "Fuzz/Require.h"

namespace kiv::fuzz {

namespace {

/// The value of a header as libcurl writes it; empty without one.
std::string_view headerOf(std::string_view head, std::string_view name) {
  const auto at = head.find(name);
  if (at == head.npos) return {};
  const auto value = head.substr(at + name.size());
  return value.substr(0, value.find('\r'));
}

ScriptedServer::Request parsed(std::string_view head) {
  ScriptedServer::Request request;
  const auto target = head.substr(std::min(head.size(), std::string_view("GET ").size()));
  request.path = target.substr(0, target.find(' '));
  const auto range = headerOf(head, "\r\nRange: bytes=");
  std::from_chars(range.data(), range.data() + range.size(), request.first);
  request.ifRange = headerOf(head, "\r\nIf-Range: ");
  return request;
}

bool sendAll(int socket, std::string_view bytes) {
  while (!bytes.empty()) {
    const auto sent = send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

void resetAtClose(int socket) {
  const linger atOnce{1, 0};
  setsockopt(socket, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
}

}  // namespace

ScriptedServer::ScriptedServer(Script script) : script_(std::move(script)) {
  listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  require(listener_ >= 0 && bind(listener_, generic, size) == 0 &&
              listen(listener_, SOMAXCONN) == 0 && getsockname(listener_, generic, &size) == 0 &&
              pipe(wakeUp_) == 0,
          "there is a port to listen on");
  port_ = ntohs(address.sin_port);
  thread_ = std::thread([this] { serve(); });
}

ScriptedServer::~ScriptedServer() {
  close(wakeUp_[1]);
  thread_.join();
  close(wakeUp_[0]);
  close(listener_);
}

std::string ScriptedServer::url(std::string_view path) const {
  return "http://127.0.0.1:" + std::to_string(port_).append(path);
}

void ScriptedServer::serve() {
  while (true) {
    std::vector<pollfd> ready{{wakeUp_[0], POLLIN, 0}, {listener_, POLLIN, 0}};
    for (const auto& [socket, received] : connections_)
      ready.push_back({socket, POLLIN, 0});
    poll(ready.data(), ready.size(), -1);
    if (ready[0].revents != 0) break;
    for (std::size_t index = 2; index < ready.size(); ++index) {
      const int socket = ready[index].fd;
      if (ready[index].revents == 0 || receive(socket, connections_[socket])) continue;
      close(socket);
      connections_.erase(socket);
    }
    if (ready[1].revents == 0) continue;
    const int socket = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    const int now = 1;
    setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &now, sizeof now);
    if (socket >= 0) connections_.emplace(socket, std::string());
  }
  for (const auto& [socket, received] : connections_)
    close(socket);
}

/// Reads, and answers complete requests; false if the connection has to be closed.
bool ScriptedServer::receive(int socket, std::string& received) {
  constexpr std::string_view end = "\r\n\r\n";
  std::array<char, 4096> bytes{};
  const auto count = recv(socket, bytes.data(), bytes.size(), 0);
  if (count <= 0) return false;
  received.append(bytes.data(), static_cast<std::size_t>(count));
  for (auto at = received.find(end); at != received.npos; at = received.find(end)) {
    if (!answer(socket, std::string_view(received).substr(0, at + 2))) return false;
    received.erase(0, at + end.size());
  }
  return true;
}

bool ScriptedServer::answer(int socket, std::string_view head) {
  const Reply reply = script_(parsed(head));
  const auto bytes = std::string_view(reply.bytes);
  const auto first = bytes.substr(0, reply.firstPiece);
  const bool isSent = sendAll(socket, first) && sendAll(socket, bytes.substr(first.size()));
  if (reply.end == End::reset) resetAtClose(socket);
  return isSent && reply.end == End::keepOpen;
}

}  // namespace kiv::fuzz
