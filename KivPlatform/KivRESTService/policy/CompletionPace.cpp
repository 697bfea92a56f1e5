// Measured with 100 files of 50 KB over 5 Mbit/s, each of which rewrites a list of 10,000 entries:
// completing each file at once writes 277 MB, jobs 250 ms apart write 112 MB, and 1 s apart 35 MB.
// The download takes the same time. Processor time shows how much is written even where the disk is
// fast: such a job takes 12 ms there, and a job with one file and a short list 0.3 ms.

#include "KivPlatform/KivRESTService/policy/CompletionPace.h"

#include <algorithm>

namespace kiv {

bool CompletionPace::isDue(const Waiting& waiting, Time now) const noexcept {
  if (waiting.tasks == 0) return false;
  const bool areMany = waiting.tasks >= manyTasks || waiting.bytes >= manyBytes;
  return waiting.inFlight == 0 || areMany || now >= next_;
}

void CompletionPace::jobEnded(Cost cost, Time now, bool hasMore) noexcept {
  constexpr int pauseForTime = 20;
  constexpr int pauseForProcessorTime = 100;
  constexpr Time::duration shortest = std::chrono::milliseconds(3);
  constexpr Time::duration longest = std::chrono::seconds(1);
  // The cost is bounded so that the products cannot overflow.
  const Time::duration pause =
      std::max(std::min(cost.time, longest) * pauseForTime,
               std::min(cost.processorTime, longest) * pauseForProcessorTime);
  next_ = hasMore ? now : now + std::clamp(pause, shortest, longest);
}

}  // namespace kiv
