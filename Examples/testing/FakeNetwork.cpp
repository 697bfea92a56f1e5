#include "FakeNetwork.h"

#include <algorithm>
#include <functional>
#include <utility>

namespace {

kiv::Error transferError(KivRESTServiceErrorCode code, const kiv::URL& url) {
  return {KivRESTServiceErrorDomain, static_cast<std::int64_t>(code),
          std::string(kiv::nameOf(code)) + ": " + url.absoluteString()};
}

}  // namespace

void FakeNetwork::queue(std::shared_ptr<KivRESTServiceTask> task) {
  waiting_.push_back({std::move(task), clock_->now()});
}

std::vector<std::shared_ptr<KivRESTServiceTask>> FakeNetwork::currentQueue() const {
  std::vector<std::shared_ptr<KivRESTServiceTask>> tasks;
  for (const Waiting& waiting : waiting_)
    tasks.push_back(waiting.task);
  return tasks;
}

const FakeNetwork::Answer& FakeNetwork::answerOf(const std::string& url) const {
  static const Answer notFound = status(404);
  const auto answer = answers_.find(url);
  return answer == answers_.end() ? notFound : answer->second;
}

bool FakeNetwork::answer() {
  if (due().empty()) return false;
  queue_->async([weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->answerDue();
  });
  return true;
}

std::vector<FakeNetwork::Waiting> FakeNetwork::due() const {
  if (isPaused()) return {};
  // Equal ones stay in their order.
  std::multimap<std::uint64_t, Waiting, std::greater<>> byPriority;
  for (const Waiting& waiting : waiting_) {
    const std::string& url = waiting.task->request()->url.absoluteString();
    const bool isHeld = std::any_of(held_.begin(), held_.end(),
                                    [&](const auto& urlEnd) { return url.ends_with(urlEnd); });
    const bool isOver = waiting.since + answerOf(url).takes <= clock_->now();
    if (!isHeld && isOver) byPriority.emplace(waiting.task->priority(), waiting);
  }
  std::vector<Waiting> tasks;
  for (auto& [priority, waiting] : byPriority)
    tasks.push_back(std::move(waiting));
  return tasks;
}

void FakeNetwork::answerDue() {
  for (const Waiting& waiting : due()) {
    // The completion of an earlier one may have cancelled it.
    const auto erased =
        std::erase_if(waiting_, [&](const Waiting& other) { return other.task == waiting.task; });
    if (erased > 0) end(waiting);
  }
}

void FakeNetwork::end(const Waiting& waiting) {
  KivRESTServiceTask& task = *waiting.task;
  KivRESTServiceMetrics metrics;
  bool hasEnded = ask(task.request()->url, task, metrics);
  for (const kiv::URL& mirror : task.requestMirrorURLs())
    hasEnded = hasEnded || ask(mirror, task, metrics);
  if (task.response()) task.setResponseError(std::nullopt);
  metrics.totalTime = clock_->now() - waiting.since;
  task.setMetrics(std::move(metrics));
  if (const auto completion = task.takeCompletionHandler()) completion(task);
}

bool FakeNetwork::ask(const kiv::URL& url, KivRESTServiceTask& task,
                      KivRESTServiceMetrics& metrics) {
  constexpr std::int64_t ok = 200;
  constexpr std::int64_t notModified = 304;
  requests_.push_back(url.absoluteString());
  ++metrics.tries;
  const Answer& answer = answerOf(url.absoluteString());
  if (answer.error) {  // the error of the task is that of its own server
    if (!task.responseError()) task.setResponseError(transferError(*answer.error, url));
    metrics.failedTries.push_back({url, answer.error});
    return false;
  }
  const KivRESTServiceValidators validators{url.absoluteString(), answer.entityTag, ""};
  const bool isUnchanged = answer.status == ok && !validators.isEmpty() &&
                           task.validators() == std::optional(validators);
  if (answer.status == ok || !task.response()) {
    task.setResponse(kiv::HTTPResponse(isUnchanged ? notModified : answer.status));
    metrics.server = url;
  }
  if (answer.status != ok) {
    metrics.failedTries.push_back({url, std::nullopt, answer.status});
    return false;
  }
  if (task.validators() || task.returnsValidators()) task.setReturnedValidators(validators);
  if (isUnchanged) return true;
  task.setReturnedData(kiv::Data(answer.body));
  metrics.bytes = static_cast<std::int64_t>(answer.body.size());
  bodyBytes_ += answer.body.size();
  return true;
}
