#include "Tools/kivresource/LineReader.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace tool {

LineReader::LineReader(int descriptor, std::function<void(std::string)> onLine,
                       std::function<void()> onEnd)
    : descriptor_(descriptor), onLine_(std::move(onLine)), onEnd_(std::move(onEnd)) {
  if (pipe2(stop_.data(), O_CLOEXEC) != 0) stop_ = {-1, -1};
  thread_ = std::thread([this] { read(); });
}

LineReader::~LineReader() {
  close(stop_[1]);  // wakes the thread
  thread_.join();
  close(stop_[0]);
}

void LineReader::read() {
  std::vector<char> piece(std::size_t{64} * 1024);
  while (waitForBytes()) {
    const ssize_t length = ::read(descriptor_, piece.data(), piece.size());
    if (length < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (length <= 0) {
      if (!partialLine_.empty()) onLine_(std::move(partialLine_));
      onEnd_();
      return;
    }
    takeBytes(piece.data(), static_cast<std::size_t>(length));
  }
}

/// False if the reader is to stop.
bool LineReader::waitForBytes() const {
  std::array<pollfd, 2> awaited{{{descriptor_, POLLIN, 0}, {stop_[0], POLLIN, 0}}};
  while (poll(awaited.data(), awaited.size(), -1) < 0 && errno == EINTR) {
  }
  return awaited[1].revents == 0;
}

void LineReader::takeBytes(const char* bytes, std::size_t length) {
  const char* const end = bytes + length;
  while (true) {
    const char* const lineEnd = std::find(bytes, end, '\n');
    partialLine_.append(bytes, lineEnd);
    if (lineEnd == end) return;
    onLine_(std::exchange(partialLine_, {}));
    bytes = lineEnd + 1;
  }
}

}  // namespace tool
