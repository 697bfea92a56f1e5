#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "KivPlatform/KivRESTService/KivRESTService.h"
#include "Tests/Support/MainQueue.h"

namespace kiv::test {

/// A task of a given client, and its result.
class Load {
 public:
  /// Creates a task for the URLs and queues it.
  Load(KivRESTService& client, const std::vector<std::string>& urls, std::uint64_t priority = 0)
      : task_(makeTask(urls, priority)) {
    task_->setCompletionHandler([count = completions_](KivRESTServiceTask&) { ++*count; });
    client.queue(task_);
  }
  Load(KivRESTService& client, const std::string& url, std::uint64_t priority = 0)
      : Load(client, std::vector{url}, priority) {}

  /// A task for the URLs that is not queued. The first URL is that of its request.
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

/// Queues that many tasks for one path, each with a different query, so that no two share a
/// transfer. `urls` are the URLs of the path on a server and its mirrors.
inline std::vector<Load> makeLoads(KivRESTService& client, const std::vector<std::string>& urls,
                                   std::size_t count) {
  std::vector<Load> loads;
  while (loads.size() < count) {
    std::vector<std::string> queried;
    for (const auto& url : urls)
      queried.push_back(url + "?" + std::to_string(loads.size()));
    loads.emplace_back(client, queried);
  }
  return loads;
}
inline std::vector<Load> makeLoads(KivRESTService& client, const std::string& url,
                                   std::size_t count) {
  return makeLoads(client, std::vector{url}, count);
}

/// Drains the main queue until all have ended.
[[nodiscard]] inline bool waitForEnd(const std::vector<Load>& loads) {
  return std::all_of(loads.begin(), loads.end(),
                     [](const Load& load) { return load.waitForEnd(); });
}

/// Waits for all tasks. Expects that each was completed once with that body.
inline void expectBodies(const std::vector<Load>& loads, std::string_view body) {
  for (const auto& load : loads) {
    ASSERT_TRUE(load.waitForEnd());
    EXPECT_TRUE(load.body() == body) << load.message() << load.body().substr(0, 100);
    EXPECT_EQ(load.completions(), 1);
  }
}

/// Waits for all tasks. Expects that each was completed once with that error and without a body.
inline void expectErrors(const std::vector<Load>& loads, KivRESTServiceErrorCode code) {
  for (const auto& load : loads) {
    ASSERT_TRUE(load.waitForEnd());
    EXPECT_EQ(load.errorCode(), static_cast<std::int64_t>(code)) << load.message();
    EXPECT_FALSE(load.hasBody());
    EXPECT_EQ(load.completions(), 1);
  }
}

/// The code as it appears in the error of a task.
constexpr std::int64_t codeOf(KivRESTServiceErrorCode code) {
  return static_cast<std::int64_t>(code);
}

}  // namespace kiv::test
