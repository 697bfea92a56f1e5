#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/Foundation/values/Data.h"
#include "KivPlatform/Foundation/values/Error.h"
#include "KivPlatform/Foundation/values/URL.h"
#include "KivPlatform/KivRESTService/KivRESTServiceMetrics.h"
#include "KivPlatform/KivRESTService/KivRESTServiceValidators.h"

namespace kiv {

/// The status of an HTTP response.
class HTTPResponse {
 public:
  explicit HTTPResponse(std::int64_t statusCode) noexcept : statusCode_(statusCode) {}
  [[nodiscard]] std::int64_t statusCode() const noexcept { return statusCode_; }

 private:
  std::int64_t statusCode_;
};

}  // namespace kiv

/// One GET of a file: the request, the mirrors and, after the end, the outcome.
///
/// Create and configure it, then pass it to KivRESTService::queue(). From then on it is used on the
/// client's queue alone, where the client sets the outcome and calls the completion handler.
class KIV_EXPORT KivRESTServiceTask {
 public:
  using CompletionHandler = std::function<void(KivRESTServiceTask& task)>;

  KivRESTServiceTask() = default;
  KivRESTServiceTask(const KivRESTServiceTask&) = delete;
  KivRESTServiceTask& operator=(const KivRESTServiceTask&) = delete;

  /// Waiting tasks with the highest priority start first.
  [[nodiscard]] std::uint64_t priority() const noexcept { return priority_; }
  void setPriority(std::uint64_t priority) noexcept { priority_ = priority; }

  [[nodiscard]] const std::optional<kiv::URLRequest>& request() const noexcept { return request_; }
  void setRequest(std::optional<kiv::URLRequest> request);

  /// The URLs to try, in this order, if the request's own server fails.
  [[nodiscard]] const std::vector<kiv::URL>& requestMirrorURLs() const noexcept { return mirrors_; }
  void setRequestMirrorURLs(std::vector<kiv::URL> urls);

  /// Makes the request conditional (RFC 9110, 13): the server at `validators->url` is asked for the
  /// file only if it has changed. If it has not, the task ends with the status 304 and without a
  /// body, and no mirror is tried. Other URLs are asked for the whole file. Validators with neither
  /// an ETag nor a date make no condition, but make the client return those of the response. By
  /// default there are none, and 304 is a status like any other.
  ///
  /// A task with validators does not continue the partial body of an earlier attempt.
  [[nodiscard]] const std::optional<KivRESTServiceValidators>& validators() const noexcept {
    return validators_;
  }
  void setValidators(std::optional<KivRESTServiceValidators> validators);

  /// True if the client is to return the validators of the response even if none were set. Unlike
  /// empty validators, this changes nothing else. The default is false.
  [[nodiscard]] bool returnsValidators() const noexcept { return returnsValidators_; }
  void setReturnsValidators(bool returns) noexcept { returnsValidators_ = returns; }

  /// Called once on the client's queue when the task has ended, and then released; never called if
  /// the task was cancelled. An empty handler removes it.
  [[nodiscard]] const CompletionHandler& completionHandler() const noexcept { return completion_; }
  void setCompletionHandler(CompletionHandler handler);
  /// Removes the handler and returns it.
  [[nodiscard]] CompletionHandler takeCompletionHandler() noexcept;

  /// The HTTP response of the task, or nothing if no server gave one.
  [[nodiscard]] const std::optional<kiv::HTTPResponse>& response() const noexcept {
    return response_;
  }
  /// The transfer error, or nothing if a server answered.
  [[nodiscard]] const std::optional<kiv::Error>& responseError() const noexcept { return error_; }
  /// The body of the response, or nothing.
  [[nodiscard]] const std::optional<kiv::Data>& returnedData() const noexcept { return data_; }

  /// The validators of a response with the status 200 or 304, if validators were set or
  /// returnsValidators() is true.
  [[nodiscard]] const std::optional<KivRESTServiceValidators>& returnedValidators() const noexcept {
    return returnedValidators_;
  }

  /// Updated at most ten times a second while the client has a progress handler.
  [[nodiscard]] const KivRESTServiceTaskProgress& progress() const noexcept { return progress_; }
  /// Set when the task has ended.
  [[nodiscard]] const KivRESTServiceMetrics& metrics() const noexcept { return metrics_; }

  /// Set by the client.
  void setProgress(KivRESTServiceTaskProgress progress);
  void setMetrics(KivRESTServiceMetrics metrics);

  /// Set by the client when the task ends.
  void setResponse(std::optional<kiv::HTTPResponse> response) noexcept;
  void setResponseError(std::optional<kiv::Error> error);
  void setReturnedData(std::optional<kiv::Data> data) noexcept;
  void setReturnedValidators(std::optional<KivRESTServiceValidators> validators) noexcept;

 private:
  std::uint64_t priority_ = 0;
  std::optional<kiv::URLRequest> request_;
  std::vector<kiv::URL> mirrors_;
  std::optional<KivRESTServiceValidators> validators_;
  bool returnsValidators_ = false;
  CompletionHandler completion_;
  std::optional<kiv::HTTPResponse> response_;
  std::optional<kiv::Error> error_;
  std::optional<kiv::Data> data_;
  std::optional<KivRESTServiceValidators> returnedValidators_;
  KivRESTServiceTaskProgress progress_;
  KivRESTServiceMetrics metrics_;
};
