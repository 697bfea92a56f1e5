#include "Benchmarks/line/Direction.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <unistd.h>
#include <utility>

namespace kiv::bench {

namespace {

constexpr std::size_t largestPacket = 1500;
/// The default length of a device's queue, in packets.
constexpr std::size_t queueLength = 1000;

std::chrono::nanoseconds nanoseconds(double count) {
  return std::chrono::nanoseconds(static_cast<std::int64_t>(count));
}

}  // namespace

void Direction::set(double delayInMilliseconds, double megabitsPerSecond) {
  delay_ = nanoseconds(delayInMilliseconds * 1e6);
  nanosecondsPerByte_ = 8e3 / megabitsPerSecond;
}

void Direction::receive() {
  std::array<char, 65536> buffer;
  const Clock::duration longestQueue =
      nanoseconds(nanosecondsPerByte_ * static_cast<double>(queueLength * largestPacket));
  while (true) {
    const ssize_t length = ::read(from_, buffer.data(), buffer.size());
    if (length <= 0) return;
    const auto now = Clock::now();
    const auto start = std::max(now, free_);
    if (start - now > longestQueue) continue;
    free_ = start + nanoseconds(nanosecondsPerByte_ * static_cast<double>(length));
    packets_.push_back({free_ + delay_, {buffer.data(), static_cast<std::size_t>(length)}});
  }
}

void Direction::deliver() {
  const auto now = Clock::now();
  while (!packets_.empty() && packets_.front().arrival <= now) {
    const std::string& bytes = packets_.front().bytes;
    // A packet that the other end does not take is lost, as on any line.
    [[maybe_unused]] const ssize_t written = ::write(to_, bytes.data(), bytes.size());
    packets_.pop_front();
  }
}

Clock::duration Direction::untilNext() const {
  if (packets_.empty()) return std::chrono::hours(1);
  return std::max(packets_.front().arrival - Clock::now(), Clock::duration::zero());
}

}  // namespace kiv::bench
