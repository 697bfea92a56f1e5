#include "Tests/Support/HTTP2Server.h"

#include <array>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <openssl/ssl.h>
#include <optional>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>

#include "Tests/Support/LoopbackServerSockets.h"

namespace kiv::test {

namespace {

using http2::Type;

constexpr std::size_t headLength = 9;  // of a frame

[[noreturn]] void giveUp(const char* what) {
  std::fprintf(stderr, "%s\n", what);
  std::abort();
}

/// Protocols as ALPN writes them (RFC 7301, 3.1).
constexpr std::string_view http2Protocol = "\x02h2";
constexpr std::string_view http1Protocol = "\x08http/1.1";

struct ProtocolChoice {
  std::string preferred;
  std::atomic<std::size_t> offersOfHTTP2 = 0;
};

int chooseProtocol(SSL*, const unsigned char** chosen, unsigned char* length,
                   const unsigned char* offered, unsigned int offeredLength, void* choice) {
  auto& [preferred, offersOfHTTP2] = *static_cast<ProtocolChoice*>(choice);
  const std::string_view offer(reinterpret_cast<const char*>(offered), offeredLength);
  if (offer.find(http2Protocol) != offer.npos) ++offersOfHTTP2;
  auto* out = const_cast<unsigned char*>(*chosen);
  const int result =
      SSL_select_next_proto(&out, length, reinterpret_cast<const unsigned char*>(preferred.data()),
                            static_cast<unsigned int>(preferred.size()), offered, offeredLength);
  *chosen = out;
  return result == OPENSSL_NPN_NEGOTIATED ? SSL_TLSEXT_ERR_OK : SSL_TLSEXT_ERR_NOACK;
}

std::uint32_t numberFrom(std::string_view bytes) {
  std::uint32_t number = 0;
  for (const char byte : bytes)
    number = number << 8 | static_cast<unsigned char>(byte);
  return number;
}

/// A write to a connection that the client has closed must not end the program.
void blockBrokenPipeSignal() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

}  // namespace

struct HTTP2Server::Context {
  Context(const SelfSignedCertificate& certificate, Choice choice)
      : handle(SSL_CTX_new(TLS_server_method()), &SSL_CTX_free) {
    const bool isReady =
        handle &&
        SSL_CTX_use_certificate_file(handle.get(), certificate.certificate.c_str(),
                                     SSL_FILETYPE_PEM) == 1 &&
        SSL_CTX_use_PrivateKey_file(handle.get(), certificate.key.c_str(), SSL_FILETYPE_PEM) == 1;
    if (!isReady) giveUp("The TLS library does not take the certificate.");
    if (choice == Choice::nothing) return;
    if (choice == Choice::http2) protocols.preferred += http2Protocol;
    protocols.preferred += http1Protocol;
    SSL_CTX_set_alpn_select_cb(handle.get(), &chooseProtocol, &protocols);
  }

  std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> handle;
  ProtocolChoice protocols;
};

/// A connection and the thread that serves it.
class HTTP2Server::Connection {
 public:
  Connection(HTTP2Server& server, int socket, std::size_t number)
      : server_(server),
        socket_(socket),
        number_(number),
        tls_(SSL_new(server.context_->handle.get()), &SSL_free),
        thread_([this] { serve(); }) {}

  ~Connection() {
    shutdown(socket_, SHUT_RDWR);
    thread_.join();
    close(socket_);
  }

  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

 private:
  void serve() {
    blockBrokenPipeSignal();
    SSL_set_fd(tls_.get(), socket_);
    if (SSL_accept(tls_.get()) == 1) {
      const unsigned char* protocol = nullptr;
      unsigned int length = 0;
      SSL_get0_alpn_selected(tls_.get(), &protocol, &length);
      constexpr unsigned int lengthOfH2 = 2;
      length == lengthOfH2 ? serveHTTP2() : serveHTTP1();
    }
    shutdown(socket_, SHUT_WR);
    drain();
  }

  void serveHTTP1() {
    constexpr std::string_view end = "\r\n\r\n";
    while (true) {
      while (received_.find(end) == std::string::npos) {
        if (!receive()) return;
      }
      const auto length = received_.find(end) + end.size();
      const std::string head = received_.substr(0, length);
      received_.erase(0, length);
      const std::string answer = server_.plainAnswerTo(head);
      if (!send(answer) || answer.find("\r\nConnection: close\r\n") != std::string::npos) return;
    }
  }

  void serveHTTP2() {
    constexpr std::size_t preface = 24;
    if (!take(preface) || !send(http2::frame(Type::settings, 0, 0, {}))) return;
    while (const auto head = take(headLength)) {
      const auto type = static_cast<Type>((*head)[3]);
      const auto payload = take(numberFrom(head->substr(0, 3)));
      if (!payload) return;
      const bool isAck = ((*head)[4] & http2::ack) != 0;
      if (type == Type::goAway) return;
      if (type == Type::headers) {
        if (!answer(numberFrom(head->substr(5)))) return;
      } else if ((type == Type::settings || type == Type::ping) && !isAck) {
        const std::string_view echoed = type == Type::ping ? *payload : std::string_view();
        if (!send(http2::frame(type, http2::ack, 0, echoed))) return;
      }
    }
  }

  /// False if the connection ends.
  bool answer(std::uint32_t stream) {
    const auto answer = server_.answerTo({number_, stream, ++requests_});
    if (!send(answer.frames)) return false;
    if (!answer.later.empty() && (!waitUntilRead() || !send(answer.later))) return false;
    if (answer.then == HTTP2Answer::Then::close) SSL_shutdown(tls_.get());
    return answer.then == HTTP2Answer::Then::goOn;
  }

  /// A client acknowledges a ping after it has read what came before. Other frames are left to
  /// serveHTTP2().
  bool waitUntilRead() {
    if (!send(http2::frame(Type::ping, 0, 0, "12345678"))) return false;
    std::string others;
    while (const auto head = take(headLength)) {
      const auto payload = take(numberFrom(head->substr(0, 3)));
      if (!payload) return false;
      if (static_cast<Type>((*head)[3]) == Type::ping) {
        received_.insert(0, others);
        return true;
      }
      others += *head + *payload;
    }
    return false;
  }

  bool receive() {
    std::array<char, 16'384> bytes{};
    const int count = SSL_read(tls_.get(), bytes.data(), static_cast<int>(bytes.size()));
    if (count <= 0) return false;
    received_.append(bytes.data(), static_cast<std::size_t>(count));
    return true;
  }

  /// The next bytes; nothing if the client has closed the connection.
  std::optional<std::string> take(std::size_t count) {
    while (received_.size() < count) {
      if (!receive()) return std::nullopt;
    }
    std::string bytes = received_.substr(0, count);
    received_.erase(0, count);
    return bytes;
  }

  bool send(std::string_view bytes) {
    return bytes.empty() || SSL_write(tls_.get(), bytes.data(), static_cast<int>(bytes.size())) > 0;
  }

  /// If bytes were left unread, the system would send a reset.
  void drain() const {
    std::array<char, 4096> bytes{};
    while (recv(socket_, bytes.data(), bytes.size(), 0) > 0) {
    }
  }

  HTTP2Server& server_;
  const int socket_;
  const std::size_t number_;
  std::unique_ptr<SSL, decltype(&SSL_free)> tls_;
  std::string received_;
  std::size_t requests_ = 0;
  std::thread thread_;
};

HTTP2Server::HTTP2Server(Handler handler, PlainHandler plainHandler, Choice choice)
    : certificate_(directory_.path()),
      handler_(std::move(handler)),
      plainHandler_(std::move(plainHandler)),
      context_(std::make_unique<Context>(certificate_, choice)),
      listener_(listeningSocket()),
      acceptor_([this] { acceptConnections(); }) {}

HTTP2Server::~HTTP2Server() {
  shutdown(listener_, SHUT_RDWR);
  acceptor_.join();
  connections_.clear();
  close(listener_);
}

void HTTP2Server::acceptConnections() {
  while (true) {
    const int accepted = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (accepted < 0) return;
    const std::lock_guard lock(mutex_);
    connections_.push_back(std::make_unique<Connection>(*this, accepted, connections_.size() + 1));
  }
}

HTTP2Answer HTTP2Server::answerTo(const HTTP2Request& request) {
  const std::lock_guard lock(mutex_);
  ++requests_;
  return handler_(request);
}

std::string HTTP2Server::plainAnswerTo(std::string_view head) {
  {
    const std::lock_guard lock(mutex_);
    ++plainRequests_;
  }
  return plainHandler_(head);
}

std::string HTTP2Server::url(std::string_view path) const {
  return loopbackURL(portOf(listener_), path).insert(4, "s");
}

std::size_t HTTP2Server::requests() const {
  const std::lock_guard lock(mutex_);
  return requests_;
}

std::size_t HTTP2Server::plainRequests() const {
  const std::lock_guard lock(mutex_);
  return plainRequests_;
}

std::size_t HTTP2Server::offersOfHTTP2() const {
  return context_->protocols.offersOfHTTP2;
}

std::size_t HTTP2Server::connections() const {
  const std::lock_guard lock(mutex_);
  return connections_.size();
}

}  // namespace kiv::test
