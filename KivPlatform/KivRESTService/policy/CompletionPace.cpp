// Measured with 100 files of 50 KB over 5 Mbit/s into a list of 10,000 entries: completing each
// file at once writes 277 MB, with 250 ms between two jobs it is 112 MB, with 1 s 35 MB. The pass
// takes the same time. The processor time tells how much is written, also where the disk is fast:
// such a job takes 12 ms there, and a job with one file and a short list 0.3 ms.

#include "KivPlatform/KivRESTService/policy/CompletionPace.h"

#include <algorithm>

namespace kiv {

bool CompletionPace::isDue(const Waiting& waiting, Time now) const noexcept {
  if (waiting.tasks == 0) return false;
  const bool areMany = waiting.tasks >= manyTasks || waiting.bytes >= manyBytes;
  return waiting.inFlight == 0 || areMany || now >= next_;
}

void CompletionPace::jobEnded(Cost cost, Time now, bool isCut) noexcept {
  constexpr int pauseForTime = 20;
  constexpr int pauseForProcessorTime = 100;
  constexpr Time::duration shortest = std::chrono::milliseconds(3);
  constexpr Time::duration longest = std::chrono::seconds(1);
  // A greater cost could overflow.
  const Time::duration pause =
      std::max(std::min(cost.time, longest) * pauseForTime,
               std::min(cost.processorTime, longest) * pauseForProcessorTime);
  next_ = isCut ? now : now + std::clamp(pause, shortest, longest);
}

}  // namespace kiv
