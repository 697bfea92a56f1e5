#include "Tests/Support/LineReader.h"

#include <array>
#include <cerrno>
#include <poll.h>
#include <unistd.h>
#include <utility>

namespace kiv::test {

namespace {

// In milliseconds. Generous: a correct test never reaches it.
constexpr int patience = 60'000;

}  // namespace

LineReader::~LineReader() {
  if (descriptor_ >= 0) close(descriptor_);
}

LineReader::LineReader(LineReader&& other) noexcept
    : descriptor_(std::exchange(other.descriptor_, -1)),
      hasEnded_(other.hasEnded_),
      read_(std::move(other.read_)) {}

LineReader& LineReader::operator=(LineReader&& other) noexcept {
  std::swap(descriptor_, other.descriptor_);
  std::swap(hasEnded_, other.hasEnded_);
  std::swap(read_, other.read_);
  return *this;
}

std::optional<std::string> LineReader::readLine() {
  while (true) {
    if (const auto end = read_.find('\n'); end != std::string::npos) {
      std::string line = read_.substr(0, end);
      read_.erase(0, end + 1);
      return line;
    }
    pollfd awaited{descriptor_, POLLIN, 0};
    const int ready = poll(&awaited, 1, patience);
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) return std::nullopt;
    std::array<char, 65536> piece{};
    const ssize_t length = read(descriptor_, piece.data(), piece.size());
    hasEnded_ = length == 0;
    if (length <= 0) return std::nullopt;
    read_.append(piece.data(), static_cast<std::size_t>(length));
  }
}

}  // namespace kiv::test
