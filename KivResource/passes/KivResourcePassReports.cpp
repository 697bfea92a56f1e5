#include "KivResource/passes/KivResourcePassReports.h"

#include <utility>

#include "KivPlatform/Foundation/queues/QueueAssertion.h"
#include "KivResource/passes/KivResourceReportJob.h"

namespace kiv {

namespace {

template <class... Arguments>
void end(PassCollector& collector, const Arguments&... arguments) noexcept {
  if (!contain([&] { collector.end(arguments...); })) collector.noteLackOfMemory();
}

}  // namespace

PassReports::PassReports(std::shared_ptr<const QueueAssertion> queue) : queue_(std::move(queue)) {}

PassReports::~PassReports() {
  if (!running_) return;
  running_->noteAbandoned();
  end(*running_);
  handOver(running_);
}

void PassReports::begin(std::shared_ptr<PassCollector> collector) {
  if (running_) {
    ended_.push_back(running_);
    running_->noteAbandoned();
  }
  running_ = std::move(collector);
}

void PassReports::addEnded(std::shared_ptr<PassCollector> collector) {
  ended_.push_back(std::move(collector));
}

void PassReports::forget(const std::shared_ptr<PassCollector>& collector) noexcept {
  if (running_ == collector) running_ = nullptr;
  std::erase(ended_, collector);
}

void PassReports::endStep(bool isBusy, const ResourceList& registry,
                          const std::optional<Error>& saveError) noexcept {
  for (const auto& collector : std::exchange(ended_, {})) {
    end(*collector, registry, saveError);
    handOver(collector);
  }
  if (isBusy || !running_) return;
  const auto collector = std::exchange(running_, nullptr);
  end(*collector, registry, saveError);
  handOver(collector);
}

void PassReports::handOver(const std::shared_ptr<PassCollector>& collector) const noexcept {
  postReport(*queue_, [collector] { collector->report(); });
}

}  // namespace kiv
