#pragma once

#include <chrono>
#include <deque>
#include <string>

namespace kiv::bench {

using Clock = std::chrono::steady_clock;

/// One direction of a line: packets leave one after the other at the line's rate, and arrive after
/// its delay. As many as Linux queues for a device by default wait for the line, and others are
/// dropped.
class Direction {
 public:
  /// Descriptors that give and take one packet at a time, without blocking.
  Direction(int from, int to) : from_(from), to_(to) {}

  void set(double delayInMilliseconds, double megabitsPerSecond);
  /// Takes what has come.
  void receive();
  /// Hands over what has arrived.
  void deliver();
  /// Until deliver() is to be called; an hour if nothing is on the line.
  [[nodiscard]] Clock::duration untilNext() const;

 private:
  struct Packet {
    Clock::time_point arrival;
    std::string bytes;
  };

  int from_;
  int to_;
  Clock::duration delay_{};
  double nanosecondsPerByte_ = 0;
  /// When the line has sent what waits for it.
  Clock::time_point free_;
  std::deque<Packet> packets_;
};

}  // namespace kiv::bench
