#include "KivSession/LineQueue.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <unistd.h>
#include <utility>

namespace kiv::session {

namespace {

constexpr std::string_view lossLine = R"({"error":"memory ran out, and lines were lost"})";

LineQueue::Text copyOf(std::string_view line) noexcept {
  LineQueue::Text text(static_cast<char*>(std::malloc(line.size() + 1)));
  if (!text) return nullptr;
  std::memcpy(text.get(), line.data(), line.size());
  text.get()[line.size()] = '\0';
  return text;
}

}  // namespace

std::unique_ptr<LineQueue> LineQueue::create() {
  std::array<int, 2> pipe{-1, -1};
  if (::pipe2(pipe.data(), O_CLOEXEC | O_NONBLOCK) != 0) return nullptr;
  try {
    return std::unique_ptr<LineQueue>(new LineQueue(pipe));
  } catch (const std::bad_alloc&) {
    ::close(pipe[0]);
    ::close(pipe[1]);
    throw;
  }
}

LineQueue::~LineQueue() {
  ::close(pipe_[0]);
  ::close(pipe_[1]);
}

void LineQueue::push(std::string_view line) noexcept {
  auto text = copyOf(line);
  const MutexLock lock(mutex_);
  add(std::move(text), false);
}

void LineQueue::pushProgress(std::string_view line) noexcept {
  auto text = copyOf(line);
  const MutexLock lock(mutex_);
  std::erase_if(lines_, [](const Line& other) { return other.isProgress; });
  add(std::move(text), true);
}

void LineQueue::pushLoss() noexcept {
  const MutexLock lock(mutex_);
  add(nullptr, false);
}

void LineQueue::close() noexcept {
  const MutexLock lock(mutex_);
  isClosed_ = true;
  lines_.clear();
  arrived_.notify_all();
}

void LineQueue::add(Text text, bool isProgress) noexcept {
  if (isClosed_) return;
  try {
    // After a loss nothing is added until the host has been told.
    if (!text || linesWereLost_) throw std::bad_alloc();
    lines_.push_back({std::move(text), isProgress});
  } catch (const std::bad_alloc&) {
    linesWereLost_ = true;
  }
  updateDescriptor();
  arrived_.notify_one();
}

LineQueue::Outcome LineQueue::pop(std::optional<std::chrono::milliseconds> timeout, Text& line) {
  const auto deadline = timeout ? std::optional(Clock::now() + *timeout) : std::nullopt;
  MutexLock lock(mutex_);
  while (!isClosed_ && isEmpty()) {
    if (!deadline) {
      lock.wait(arrived_);
    } else if (Clock::now() >= *deadline) {
      return Outcome::timeout;
    } else {
      lock.waitUntil(arrived_, *deadline);
    }
  }
  if (isClosed_) return Outcome::closed;
  if (!takeFirst(line)) return Outcome::noMemory;
  updateDescriptor();
  return Outcome::line;
}

/// False if there is no memory to tell the host that there was none.
bool LineQueue::takeFirst(Text& line) {
  if (lines_.empty()) {
    line = copyOf(lossLine);
    linesWereLost_ = !line;
    return line != nullptr;
  }
  line = std::move(lines_.front().text);
  lines_.pop_front();
  return true;
}

void LineQueue::updateDescriptor() noexcept {
  if (isReadable_ != isEmpty()) return;
  char byte = 0;
  while ((isReadable_ ? ::read(pipe_[0], &byte, 1) : ::write(pipe_[1], &byte, 1)) < 0 &&
         errno == EINTR) {
  }
  isReadable_ = !isReadable_;
}

}  // namespace kiv::session
