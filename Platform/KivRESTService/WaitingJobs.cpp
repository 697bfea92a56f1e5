#include "Platform/KivRESTService/WaitingJobs.h"

#include <utility>

namespace kiv {

bool WaitingJobs::Place::operator<(const Place& other) const noexcept {
  if (priority != other.priority) return priority > other.priority;
  return id < other.id;
}

void WaitingJobs::add(TransferJob job) {
  const Place place{job.priority, job.id};
  jobs_.emplace(place, std::move(job));
}

TransferJob WaitingJobs::takeNext() {
  return std::move(jobs_.extract(jobs_.begin()).mapped());
}

}  // namespace kiv
