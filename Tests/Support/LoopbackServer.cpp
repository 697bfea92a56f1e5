#include "Tests/Support/LoopbackServer.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include "Tests/Support/LoopbackServerSockets.h"
#include "Tests/Support/MainQueue.h"

namespace kiv::test {

namespace {

char lower(char character) {
  return character >= 'A' && character <= 'Z' ? static_cast<char>(character + 32) : character;
}

bool equalNames(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return lower(x) == lower(y); });
}

/// Removes the text before the separator, and the separator, from `text` and returns the former.
std::string_view takeUpTo(std::string_view& text, std::string_view separator) {
  const auto end = std::min(text.find(separator), text.size());
  const auto part = text.substr(0, end);
  text.remove_prefix(std::min(end + separator.size(), text.size()));
  return part;
}

Request parse(std::string_view head) {
  Request request;
  auto line = takeUpTo(head, "\r\n");
  request.method = takeUpTo(line, " ");
  request.target = takeUpTo(line, " ");
  request.path = request.target.substr(0, request.target.find('?'));
  while (!head.empty()) {
    auto header = takeUpTo(head, "\r\n");
    const auto name = takeUpTo(header, ": ");
    request.headers.emplace_back(name, header);
  }
  return request;
}

}  // namespace

std::optional<std::string> Request::header(std::string_view name) const {
  for (const auto& [key, value] : headers) {
    if (equalNames(key, name)) return value;
  }
  return std::nullopt;
}

/// A connection and the thread that serves it.
class LoopbackServer::Connection {
 public:
  Connection(LoopbackServer& server, int socket, std::size_t number)
      : server_(server),
        socket_(socket),
        number_(number),
        thread_([this](const std::stop_token& stop) { serve(stop); }) {}

  ~Connection() {
    thread_.request_stop();
    {
      const std::lock_guard lock(socketMutex_);
      if (socket_ >= 0) shutdown(socket_, SHUT_RDWR);
    }
    thread_.join();
  }

  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  [[nodiscard]] bool hasEnded() const noexcept { return hasEnded_; }

 private:
  void serve(const std::stop_token& stop) {
    while (const auto request = receive()) {
      const auto response = server_.responseTo(*request);
      ResponseWriter writer(socket_, stop, [this] { server_.noteAnswerBegun(); });
      const bool goesOn = writer.write(response);
      if (!goesOn) break;
    }
    close();
    server_.noteClosed();
    hasEnded_ = true;
  }

  /// The next request; nullopt if the client has closed the connection.
  std::optional<Request> receive() {
    constexpr std::string_view end = "\r\n\r\n";
    std::array<char, 4096> bytes{};
    while (received_.find(end) == std::string::npos) {
      const auto count = recv(socket_, bytes.data(), bytes.size(), 0);
      if (count <= 0) return std::nullopt;
      received_.append(bytes.data(), static_cast<std::size_t>(count));
    }
    const auto size = received_.find(end);
    auto request = parse(std::string_view(received_).substr(0, size));
    request.connection = number_;
    received_.erase(0, size + end.size());
    return request;
  }

  void close() {
    const std::lock_guard lock(socketMutex_);
    ::close(socket_);
    socket_ = -1;
  }

  LoopbackServer& server_;
  std::mutex socketMutex_;  // guards close() against a concurrent shutdown()
  int socket_;
  const std::size_t number_;
  std::string received_;
  std::atomic<bool> hasEnded_ = false;
  std::jthread thread_;
};

LoopbackServer::LoopbackServer() {
  listener_ = listeningSocket();
  port_ = portOf(listener_);
  acceptor_ = std::thread([this] { acceptConnections(); });
}

LoopbackServer::~LoopbackServer() {
  shutdown(listener_, SHUT_RDWR);
  acceptor_.join();
  ::close(listener_);
  std::vector<std::unique_ptr<Connection>> connections;
  {
    const std::lock_guard lock(mutex_);
    connections.swap(connections_);
  }
}

void LoopbackServer::acceptConnections() {
  while (true) {
    const int socket = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (socket < 0) return;
    const int now = 1;
    setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &now, sizeof now);
    const std::lock_guard lock(mutex_);
    std::erase_if(connections_, [](const auto& connection) { return connection->hasEnded(); });
    ++open_;
    connections_.push_back(std::make_unique<Connection>(*this, socket, ++accepted_));
  }
}

void LoopbackServer::serve(const std::string& path, Response response) {
  serve(path, std::vector{std::move(response)});
}

void LoopbackServer::serve(const std::string& path, std::vector<Response> responses) {
  auto next = std::make_shared<std::atomic<std::size_t>>(0);
  serve(path, [responses = std::move(responses), next](const Request&) {
    return responses[std::min(next->fetch_add(1), responses.size() - 1)];
  });
}

void LoopbackServer::serve(const std::string& path, Handler handler) {
  const std::lock_guard lock(mutex_);
  handlers_[path] = std::move(handler);
}

std::string LoopbackServer::url(std::string_view path) const {
  return loopbackURL(port_, path);
}

Response LoopbackServer::responseTo(const Request& request) {
  Handler handler;
  {
    const std::lock_guard lock(mutex_);
    requests_.push_back(request);
    mostWaiting_ = std::max(mostWaiting_, ++waiting_);
    const auto place = handlers_.find(request.path);
    if (place != handlers_.end()) handler = place->second;
  }
  changed_.notify_all();
  return handler ? handler(request) : Response::status(404, "not here");
}

void LoopbackServer::noteAnswerBegun() {
  const std::lock_guard lock(mutex_);
  --waiting_;
}

void LoopbackServer::noteClosed() {
  {
    const std::lock_guard lock(mutex_);
    --open_;
  }
  changed_.notify_all();
}

std::vector<Request> LoopbackServer::requests() const {
  const std::lock_guard lock(mutex_);
  return requests_;
}

std::vector<Request> LoopbackServer::requests(std::string_view path) const {
  auto all = requests();
  std::erase_if(all, [path](const Request& request) { return request.path != path; });
  return all;
}

bool LoopbackServer::waitForRequests(std::size_t count) const {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, patience, [&] { return requests_.size() >= count; });
}

bool LoopbackServer::waitForRequests(std::string_view path, std::size_t count) const {
  const auto isForPath = [path](const Request& request) { return request.path == path; };
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, patience, [&] {
    const auto received = std::count_if(requests_.begin(), requests_.end(), isForPath);
    return static_cast<std::size_t>(received) >= count;
  });
}

std::size_t LoopbackServer::connectionCount() const {
  const std::lock_guard lock(mutex_);
  return accepted_;
}

bool LoopbackServer::waitForNoConnection() const {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, patience, [&] { return open_ == 0; });
}

std::size_t LoopbackServer::mostWaiting() const {
  const std::lock_guard lock(mutex_);
  return mostWaiting_;
}

}  // namespace kiv::test
