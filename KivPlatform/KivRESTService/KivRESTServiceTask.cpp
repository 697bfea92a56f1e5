#include "KivPlatform/KivRESTService/KivRESTServiceTask.h"

#include <utility>

void KivRESTServiceTask::setRequest(std::optional<kiv::URLRequest> request) {
  request_ = std::move(request);
}

void KivRESTServiceTask::setRequestMirrorURLs(std::vector<kiv::URL> urls) {
  mirrors_ = std::move(urls);
}

void KivRESTServiceTask::setValidators(std::optional<KivRESTServiceValidators> validators) {
  validators_ = std::move(validators);
}

void KivRESTServiceTask::setCompletionHandler(CompletionHandler handler) {
  completion_ = std::move(handler);
}

KivRESTServiceTask::CompletionHandler KivRESTServiceTask::takeCompletionHandler() noexcept {
  return std::exchange(completion_, nullptr);
}

void KivRESTServiceTask::setResponse(std::optional<kiv::HTTPResponse> response) noexcept {
  response_ = response;
}

void KivRESTServiceTask::setResponseError(std::optional<kiv::Error> error) {
  error_ = std::move(error);
}

void KivRESTServiceTask::setReturnedData(std::optional<kiv::Data> data) noexcept {
  data_ = std::move(data);
}

void KivRESTServiceTask::setReturnedValidators(
    std::optional<KivRESTServiceValidators> validators) noexcept {
  returnedValidators_ = std::move(validators);
}

void KivRESTServiceTask::setProgress(KivRESTServiceTaskProgress progress) {
  progress_ = std::move(progress);
}

void KivRESTServiceTask::setMetrics(KivRESTServiceMetrics metrics) {
  metrics_ = std::move(metrics);
}
