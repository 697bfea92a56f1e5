#include "Tests/Support/LoopbackServerResponse.h"

#include <algorithm>
#include <array>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <sys/socket.h>

namespace kiv::test {

struct Gate::State {
  std::mutex mutex;
  std::condition_variable_any changed;
  bool isOpen = false;
};

Gate::Gate() : state_(std::make_shared<State>()) {}

void Gate::open() const {
  {
    const std::lock_guard lock(state_->mutex);
    state_->isOpen = true;
  }
  state_->changed.notify_all();
}

bool Gate::wait(const std::stop_token& stop) const {
  std::unique_lock lock(state_->mutex);
  return state_->changed.wait(lock, stop, [this] { return state_->isOpen; });
}

Response Response::ok(std::string body) {
  return status(200, std::move(body));
}

Response Response::status(int code, std::string body) {
  Response response;
  response.status_ = code;
  response.body_ = std::move(body);
  return response;
}

Response Response::redirect(int code, std::string location) {
  return status(code).header("Location", std::move(location));
}

Response Response::raw(std::string bytes) {
  Response response;
  response.isRaw_ = true;
  response.body_ = std::move(bytes);
  response.end_ = End::close;
  return response;
}

Response& Response::header(std::string name, std::string value) {
  headers_.emplace_back(std::move(name), std::move(value));
  return *this;
}

Response& Response::withoutLength() {
  tellsLength_ = false;
  return *this;
}

Response& Response::chunked(std::size_t largestChunk) {
  largestChunk_ = largestChunk;
  return withoutLength().header("Transfer-Encoding", "chunked");
}

Response& Response::http10() {
  version_ = "HTTP/1.0";
  return thenCloseUnannounced();
}

Response& Response::after(Gate gate) {
  before_ = std::move(gate);
  return *this;
}

Response& Response::gateAt(std::size_t place, Gate gate) {
  gate_.emplace(place, std::move(gate));
  return *this;
}

Response& Response::endAt(std::size_t place, End end) {
  endPlace_ = place;
  end_ = end;
  return *this;
}

Response& Response::stallAt(std::size_t place) {
  return endAt(place, End::stall);
}

Response& Response::closeAt(std::size_t place) {
  return endAt(place, End::close);
}

Response& Response::resetAt(std::size_t place) {
  return endAt(place, End::reset);
}

Response& Response::thenClose() {
  return header("Connection", "close").thenCloseUnannounced();
}

Response& Response::thenCloseUnannounced() {
  return endAt(std::string::npos, End::close);
}

Response& Response::thenAlso(std::string bytes) {
  surplus_ = std::move(bytes);
  return *this;
}

Response& Response::drip(std::size_t piece, std::chrono::milliseconds pause) {
  piece_ = piece;
  pause_ = pause;
  return *this;
}

Response& Response::endless() {
  isEndless_ = true;
  return withoutLength();
}

std::string Response::head() const {
  if (isRaw_) return {};
  std::string head = version_ + " " + std::to_string(status_) + " Scripted\r\n";
  if (tellsLength_ && status_ != 204 && status_ != 304) {
    head += "Content-Length: " + std::to_string(body_.size()) + "\r\n";
  }
  for (const auto& [name, value] : headers_)
    head.append(name).append(": ").append(value).append("\r\n");
  return head + "\r\n";
}

bool ResponseWriter::write(const Response& response) {
  const bool mayBegin = !response.before_ || response.before_->wait(stop_);
  begins_();
  if (!mayBegin || !send(response.head()) || !writeBody(response)) return false;
  switch (response.end_) {
    case Response::End::keepOpen:
      return send(response.surplus_);
    case Response::End::close:
      return false;
    case Response::End::reset:
      reset();
      return false;
    case Response::End::stall:
      waitForTheClientToGo();
      return false;
  }
  return false;
}

bool ResponseWriter::writeBody(const Response& response) {
  const bool isWhole = response.endPlace_ >= response.body_.size();
  const std::size_t end = std::min(response.endPlace_, response.body_.size());
  do {
    place_ = 0;
    if (response.gate_) {
      if (!writeUpTo(response, std::min(response.gate_->first, end))) return false;
      if (!response.gate_->second.wait(stop_)) return false;
    }
    if (!writeUpTo(response, end)) return false;
  } while (response.isEndless_ && !stop_.stop_requested());
  return !isWhole || !response.largestChunk_ || send("0\r\n\r\n");
}

bool ResponseWriter::writeUpTo(const Response& response, std::size_t place) {
  const std::size_t piece = response.largestChunk_.value_or(response.piece_);
  while (place_ < place) {
    const auto bytes =
        std::string_view(response.body_).substr(place_, std::min(piece, place - place_));
    if (!writePiece(response, bytes)) return false;
    place_ += bytes.size();
  }
  return true;
}

bool ResponseWriter::writePiece(const Response& response, std::string_view piece) {
  if (response.largestChunk_) {
    std::array<char, 32> size{};
    std::snprintf(size.data(), size.size(), "%zx\r\n", piece.size());
    if (!send(std::string(size.data()).append(piece).append("\r\n"))) return false;
  } else if (!send(piece)) {
    return false;
  }
  if (response.pause_.count() == 0) return true;
  std::mutex mutex;
  std::condition_variable_any never;
  std::unique_lock lock(mutex);
  never.wait_for(lock, stop_, response.pause_, [] { return false; });
  return !stop_.stop_requested();
}

bool ResponseWriter::send(std::string_view bytes) const {
  while (!bytes.empty()) {
    const auto sent = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

void ResponseWriter::reset() const {
  // With a linger time of 0, close() sends RST instead of FIN.
  const linger atOnce{1, 0};
  setsockopt(socket_, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
}

void ResponseWriter::waitForTheClientToGo() const {
  std::array<char, 1024> ignored{};
  while (recv(socket_, ignored.data(), ignored.size(), 0) > 0) {
  }
}

}  // namespace kiv::test
