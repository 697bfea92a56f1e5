#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kiv::test {

/// A one-shot event that a test sets to let the server continue. Copies share the same state. A
/// gate that was opened stays open.
class Gate {
 public:
  Gate();
  void open() const;
  /// Blocks until the gate is open or a stop is requested; true if it is open.
  bool wait(const std::stop_token& stop) const;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

/// What the loopback server does with one request: the response and its faults.
///
/// Create one with a static function. The other functions modify it and can be chained:
/// `Response::ok(bytes).header("ETag", "\"1\"").after(gate)`. Offsets count bytes of the body
/// before chunked coding; in a raw response, bytes of the whole message.
class Response {
 public:
  static Response ok(std::string body);
  static Response status(int code, std::string body = {});
  static Response redirect(int code, std::string location);
  /// Sends exactly these bytes, which include the headers, and closes the connection.
  static Response raw(std::string bytes);
  /// Closes the connection without sending a byte.
  static Response nothing() { return raw({}); }

  /// Adds a header even if there is already one with the same name.
  Response& header(std::string name, std::string value);
  /// Omits the Content-Length header.
  Response& withoutLength();
  /// Sends the body in chunks of at most that many bytes.
  Response& chunked(std::size_t largestChunk = 1024);
  /// Responds with HTTP/1.0 and closes the connection.
  Response& http10();

  /// Sends nothing until the gate is open.
  Response& after(Gate gate);
  /// Sends the body up to that offset, and the rest when the gate is open.
  Response& gateAt(std::size_t place, Gate gate);
  /// Sends the body up to that offset and stalls until the client disconnects.
  Response& stallAt(std::size_t place);
  /// Sends the body up to that offset and closes the connection.
  Response& closeAt(std::size_t place);
  /// Sends the body up to that offset and resets the connection.
  Response& resetAt(std::size_t place);
  /// Closes the connection after the response, with "Connection: close".
  Response& thenClose();
  /// Closes the connection after the response, without "Connection: close".
  Response& thenCloseUnannounced();
  /// Sends these bytes after the response, beyond its Content-Length, and keeps the connection
  /// open.
  Response& thenAlso(std::string bytes);
  /// Sends the body in pieces of that size, with a pause after each piece.
  Response& drip(std::size_t piece, std::chrono::milliseconds pause);
  /// Repeats the body until the client disconnects.
  Response& endless();

 private:
  friend class ResponseWriter;
  enum class End { keepOpen, close, reset, stall };

  Response& endAt(std::size_t place, End end);
  [[nodiscard]] std::string head() const;

  std::string version_ = "HTTP/1.1";
  int status_ = 200;
  std::vector<std::pair<std::string, std::string>> headers_;
  std::string body_;
  bool isRaw_ = false;
  bool tellsLength_ = true;
  std::optional<std::size_t> largestChunk_;
  std::optional<Gate> before_;
  std::optional<std::pair<std::size_t, Gate>> gate_;
  std::size_t endPlace_ = std::string::npos;
  End end_ = End::keepOpen;
  std::string surplus_;
  std::size_t piece_ = 64 * 1024;
  std::chrono::milliseconds pause_{0};
  bool isEndless_ = false;
};

/// Sends responses over one connection.
class ResponseWriter {
 public:
  /// `socket` remains owned by the caller. `stop` ends every wait. `begins` is called once: before
  /// the first byte, or when no byte will be sent.
  ResponseWriter(int socket, std::stop_token stop, std::function<void()> begins)
      : socket_(socket), stop_(std::move(stop)), begins_(std::move(begins)) {}

  /// Sends the response; false if the connection is to be closed.
  bool write(const Response& response);

 private:
  bool writeBody(const Response& response);
  bool writeUpTo(const Response& response, std::size_t place);
  bool writePiece(const Response& response, std::string_view piece);
  bool send(std::string_view bytes) const;
  void reset() const;
  void waitForTheClientToGo() const;

  int socket_;
  std::stop_token stop_;
  std::function<void()> begins_;
  std::size_t place_ = 0;
};

}  // namespace kiv::test
