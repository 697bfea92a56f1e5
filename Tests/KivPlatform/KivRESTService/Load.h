#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "KivPlatform/KivRESTService/KivRESTService.h"
#include "Tests/Support/MainQueue.h"

namespace kiv::test {

/// A task with a given client, and what became of it.
class Load {
 public:
  /// Makes a task for the URLs and queues it.
  Load(KivRESTService& client, const std::vector<std::string>& urls, std::uint64_t priority = 0)
      : task_(makeTask(urls, priority)) {
    task_->setCompletionHandler([count = completions_](KivRESTServiceTask&) { ++*count; });
    client.queue(task_);
  }
  Load(KivRESTService& client, const std::string& url, std::uint64_t priority = 0)
      : Load(client, std::vector{url}, priority) {}

  /// A task for the URLs, the first that of its request, not queued.
  static std::shared_ptr<KivRESTServiceTask> makeTask(const std::vector<std::string>& urls,
                                                      std::uint64_t priority = 0) {
    auto task = std::make_shared<KivRESTServiceTask>();
    std::vector<URL> parsed;
    parsed.reserve(urls.size());
    for (const auto& url : urls)
      parsed.push_back(URL::fromString(url).value());
    task->setRequest(URLRequest(parsed.front()));
    parsed.erase(parsed.begin());
    task->setRequestMirrorURLs(std::move(parsed));
    task->setPriority(priority);
    return task;
  }

  [[nodiscard]] bool hasEnded() const { return *completions_ > 0; }
  /// Drains the main queue until the task has ended.
  [[nodiscard]] bool waitForEnd() const {
    return waitUntil([this] { return hasEnded(); });
  }

  [[nodiscard]] const std::shared_ptr<KivRESTServiceTask>& task() const { return task_; }
  [[nodiscard]] int completions() const { return *completions_; }
  /// The status of the response, or 0.
  [[nodiscard]] std::int64_t status() const {
    return task_->response() ? task_->response()->statusCode() : 0;
  }
  /// The code of the error, or 0.
  [[nodiscard]] std::int64_t errorCode() const {
    return task_->responseError() ? task_->responseError()->code : 0;
  }
  [[nodiscard]] std::string message() const {
    return task_->responseError() ? task_->responseError()->localizedDescription() : std::string();
  }
  [[nodiscard]] bool hasBody() const { return task_->returnedData().has_value(); }
  [[nodiscard]] std::string body() const {
    return hasBody() ? std::string(task_->returnedData()->view()) : std::string();
  }

 private:
  std::shared_ptr<int> completions_ = std::make_shared<int>(0);
  std::shared_ptr<KivRESTServiceTask> task_;
};

/// Queues that many tasks for one path, each with a query of its own: no two share a transfer.
inline std::vector<Load> makeLoads(KivRESTService& client, const std::string& url,
                                   std::size_t count) {
  std::vector<Load> loads;
  loads.reserve(count);
  while (loads.size() < count)
    loads.emplace_back(client, url + "?" + std::to_string(loads.size()));
  return loads;
}

/// The code as the task's error has it.
constexpr std::int64_t codeOf(KivRESTServiceErrorCode code) {
  return static_cast<std::int64_t>(code);
}

}  // namespace kiv::test
