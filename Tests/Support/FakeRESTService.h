#pragma once

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "KivPlatform/KivRESTService/KivRESTService.h"

namespace kiv::test {

/// A client without a network: it keeps each task until the test completes it, on the thread of the
/// test.
class FakeRESTService final : public KivRESTService {
 public:
  void queue(std::shared_ptr<KivRESTServiceTask> task) override {
    urls.push_back(task->request() ? task->request()->url.absoluteString() : "");
    tasks.push_back(std::move(task));
  }

  [[nodiscard]] std::vector<std::shared_ptr<KivRESTServiceTask>> currentQueue() const override {
    return tasks;
  }

  void cancelAllTasks() override {
    ++cancellations;
    tasks.clear();
  }

  /// Completes the first pending task whose URL ends with `urlEnd`. False if there is none.
  bool end(const std::string& urlEnd, std::optional<kiv::HTTPResponse> response,
           std::optional<kiv::Data> data, std::optional<kiv::Error> error = std::nullopt) {
    const auto found = std::find_if(tasks.begin(), tasks.end(), [&](const auto& task) {
      return task->request()->url.absoluteString().ends_with(urlEnd);
    });
    if (found == tasks.end()) return false;
    const auto task = *found;
    tasks.erase(found);
    endTask(*task, response, std::move(data), std::move(error));
    return true;
  }

  /// Completes it with status 200 and the bytes.
  bool succeed(const std::string& urlEnd, std::string bytes = "bytes") {
    return end(urlEnd, kiv::HTTPResponse(200), kiv::Data(std::move(bytes)));
  }

  /// Completes it with a status and no body.
  bool answer(const std::string& urlEnd, std::int64_t statusCode) {
    return end(urlEnd, kiv::HTTPResponse(statusCode), std::nullopt);
  }

  /// Completes it with a transfer error.
  bool fail(const std::string& urlEnd) {
    return end(urlEnd, std::nullopt, std::nullopt, transferError());
  }

  static kiv::Error transferError() {
    return {KivRESTServiceErrorDomain, static_cast<int>(KivRESTServiceErrorCode::cannotConnect),
            "Could not connect."};
  }

  static void endTask(KivRESTServiceTask& task, std::optional<kiv::HTTPResponse> response,
                      std::optional<kiv::Data> data, std::optional<kiv::Error> error) {
    task.setResponse(response);
    task.setReturnedData(std::move(data));
    task.setResponseError(std::move(error));
    const auto completion = task.completionHandler();
    if (completion) completion(task);
  }

  std::vector<std::shared_ptr<KivRESTServiceTask>> tasks;  ///< Pending, in order of queuing.
  std::vector<std::string> urls;                           ///< Of every task ever queued.
  int cancellations = 0;
};

}  // namespace kiv::test
