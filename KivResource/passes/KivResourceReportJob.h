#pragma once

#include "KivPlatform/Foundation/Contain.h"
#include "KivPlatform/Foundation/queues/DispatchQueue.h"
#include "KivPlatform/Foundation/queues/QueueAssertion.h"

namespace kiv {

/// Runs the job, which hands over a report, as a job of the queue. If not even a job can be made,
/// nor a queue is left to run it, it runs here: a report is never lost. What it throws is dropped
/// then.
template <class Job>
void postReport(const QueueAssertion& assertion, const Job& job) noexcept {
  const auto queue = assertion.queue();
  const auto post = [&] { queue->async(job); };
  for (int attempts = queue ? 2 : 0; attempts > 0; --attempts) {
    if (contain(post)) return;
  }
  contain(job);
}

}  // namespace kiv
