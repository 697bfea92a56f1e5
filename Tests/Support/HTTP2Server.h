#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "Tests/Support/HTTP2Frames.h"
#include "Tests/Support/NginxServer.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace kiv::test {

/// A request over HTTP/2. What it asks for is not decoded.
struct HTTP2Request {
  std::size_t connection;  ///< The number of its connection, counted from 1.
  std::uint32_t stream;    ///< The identifier of its stream.
  std::size_t number;      ///< Its number on the connection, counted from 1.
};

/// What the server sends for a request: any frames, of other streams too.
struct HTTP2Answer {
  enum class Then { goOn, close, closeUnannounced };

  std::string frames;
  Then then = Then::goOn;  ///< close sends close_notify before the connection ends.
  std::string later = {};  ///< Frames that are sent when the client has read the first ones.
};

/// An https server on a port of the loopback interface, chosen by the system. Clients that offer
/// HTTP/2 get the frames that the test gives it, others a response over HTTP/1.1.
///
/// The constructor starts listening; the destructor closes every connection and joins every thread.
class HTTP2Server {
 public:
  using Handler = std::function<HTTP2Answer(const HTTP2Request&)>;
  /// Gets the head of a request over HTTP/1.1 and returns the bytes of the response. With the
  /// header "Connection: close" the connection ends after it.
  using PlainHandler = std::function<std::string(std::string_view head)>;
  /// What the server chooses of the protocols that a client offers (ALPN).
  enum class Choice { http2, http1, nothing };

  /// The handlers are called on the threads of the connections, the first one for one request at a
  /// time.
  HTTP2Server(Handler handler, PlainHandler plainHandler, Choice choice = Choice::http2);
  ~HTTP2Server();
  HTTP2Server(const HTTP2Server&) = delete;
  HTTP2Server& operator=(const HTTP2Server&) = delete;

  /// "https://127.0.0.1:port", followed by the path.
  [[nodiscard]] std::string url(std::string_view path = {}) const;
  /// The certificate that a client must trust.
  [[nodiscard]] std::string certificatePath() const { return certificate_.certificate.string(); }
  /// The requests received so far over HTTP/2, and over HTTP/1.1.
  [[nodiscard]] std::size_t requests() const;
  [[nodiscard]] std::size_t plainRequests() const;
  /// The connections accepted so far.
  [[nodiscard]] std::size_t connections() const;
  /// Those whose client offered HTTP/2, unless the choice is `nothing`.
  [[nodiscard]] std::size_t offersOfHTTP2() const;

 private:
  class Connection;
  struct Context;

  void acceptConnections();
  HTTP2Answer answerTo(const HTTP2Request& request);
  std::string plainAnswerTo(std::string_view head);

  const TemporaryDirectory directory_;
  const SelfSignedCertificate certificate_;
  const Handler handler_;
  const PlainHandler plainHandler_;
  std::unique_ptr<Context> context_;
  int listener_;

  mutable std::mutex mutex_;
  std::size_t requests_ = 0;
  std::size_t plainRequests_ = 0;
  std::vector<std::unique_ptr<Connection>> connections_;

  std::thread acceptor_;
};

}  // namespace kiv::test
