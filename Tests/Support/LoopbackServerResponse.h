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

/// A door that a test opens when it has seen what it wanted to see. Copies are the same door. Once
/// open, it stays open.
class Gate {
 public:
  Gate();
  void open() const;
  /// Returns when the door is open, or when a stop is asked for; true if it is open.
  bool wait(const std::stop_token& stop) const;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

/// What the loopback server does with one request: a response, and what goes wrong with it.
///
/// Begins with one of the static functions; the others add to it and may be chained:
/// `Response::ok(bytes).header("ETag", "\"1\"").after(gate)`. Places are counted in bytes of the
/// body, before any chunked coding; in a raw response, in bytes of the whole.
class Response {
 public:
  static Response ok(std::string body);
  static Response status(int code, std::string body = {});
  static Response redirect(int code, std::string location);
  /// Exactly these bytes, headers and all; then the connection is closed.
  static Response raw(std::string bytes);
  /// Not a byte: the connection is closed.
  static Response nothing() { return raw({}); }

  /// Adds a header, also if there is one of the same name already.
  Response& header(std::string name, std::string value);
  /// Sends no Content-Length of its own.
  Response& withoutLength();
  /// Sends the body in chunks of at most that many bytes.
  Response& chunked(std::size_t largestChunk = 1024);
  /// Speaks HTTP/1.0, and closes the connection.
  Response& http10();

  /// Waits for the gate before the first byte.
  Response& after(Gate gate);
  /// Sends the body up to that place, and the rest when the gate is open.
  Response& gateAt(std::size_t place, Gate gate);
  /// Sends the body up to that place, and then nothing until the client goes.
  Response& stallAt(std::size_t place);
  /// Sends the body up to that place and closes the connection.
  Response& closeAt(std::size_t place);
  /// Sends the body up to that place and resets the connection.
  Response& resetAt(std::size_t place);
  /// Closes the connection after the whole response, and says so in its headers.
  Response& thenClose();
  /// Closes the connection after the whole response, which does not say so.
  Response& thenCloseUnannounced();
  /// Sends these bytes too, after the whole response, which does not count them, and keeps the
  /// connection open.
  Response& thenAlso(std::string bytes);
  /// Sends the body in pieces of that size, with a pause after each.
  Response& drip(std::size_t piece, std::chrono::milliseconds pause);
  /// Sends the body again and again until the client goes.
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
  /// `socket` stays the caller's; `stop` ends every wait; `begins` is called once, before the first
  /// byte or where there will be none.
  ResponseWriter(int socket, std::stop_token stop, std::function<void()> begins)
      : socket_(socket), stop_(std::move(stop)), begins_(std::move(begins)) {}

  /// Does what the response says; false if the connection is to be closed.
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
