// The client retries, follows redirects and uses the mirror. This module only builds the URLs and
// converts the result of a task; a status other than 200 is an error.

#include "KivResource/KivResourceRESTModule.h"

#include <exception>
#include <utility>

#include "KivPlatform/AppConfiguration/KivAppConfiguration.h"
#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/KivRESTService/KivRESTService.h"
#include "KivResource/KivResourceObject.h"
#include "KivResource/NSError+KivResource.h"

namespace {

std::optional<kiv::URL> urlOnServer(const std::optional<std::string>& domain,
                                    std::string_view fileLink) {
  if (!domain) return std::nullopt;
  // An empty domain also gets a "/" before the link, so that a link cannot name a server itself.
  const std::string_view server = domain->empty() ? std::string_view("/") : *domain;
  return kiv::URL::fromString(kiv::path::appendingPathComponent(server, fileLink));
}

kiv::Error invalidStatusError(std::string_view fileLink, std::int64_t statusCode) {
  std::string message = "Error load file \"";
  message.append(kiv::path::lastPathComponent(fileLink));
  message += "\" with invalid response status code " + std::to_string(statusCode) + ".";
  return kiv::Error(KivResourceRESTModuleErrorDomain, InvalidResponseStatusErrorCode, message);
}

void evaluateOutcome(const KivRESTServiceTask& task, std::string_view fileLink,
                     const KivResourceRESTModule::CompletionHandler& completion) {
  constexpr std::int64_t accepted = 200;
  const std::int64_t statusCode = task.response() ? task.response()->statusCode() : 0;
  if (task.responseError() || statusCode == accepted) {
    return completion(task.returnedData(), task.responseError());
  }
  std::optional<kiv::Error> error;
  try {
    error = invalidStatusError(fileLink, statusCode);
  } catch (const std::exception&) {  // out of memory: no data without an error
  }
  completion(std::nullopt, error);
}

}  // namespace

KivResourceRESTModule::KivResourceRESTModule()
    : KivResourceRESTModule(std::make_shared<KivRESTService>()) {}

KivResourceRESTModule::KivResourceRESTModule(std::shared_ptr<KivRESTService> restService)
    : appConfiguration_(KivAppConfiguration::sharedInstance()),
      restService_(std::move(restService)) {}

KivResourceRESTModule::~KivResourceRESTModule() = default;

void KivResourceRESTModule::loadDataForResource_usingFileLink_completionHandler(
    const std::shared_ptr<KivResource>& resource, const std::string& fileLink,
    CompletionHandler completion) {
  auto taskHandler = std::exchange(taskHandler_, nullptr);
  const auto task = std::make_shared<KivRESTServiceTask>();
  task->setValidators(std::exchange(validators_, std::nullopt));
  task->setReturnsValidators(true);
  task->setPriority(resource ? resource->priority() : 0);
  task->setRequest(createGetRequestWithURL(mainURLForFileWithLink(fileLink)));
  if (!completion) completion = [](const auto&, const auto&) {};
  if (!task->request() || !restService_) {
    completion(std::nullopt, createRequestError());
    return;
  }
  task->setRequestMirrorURLs(mirrorURLsForFileWithLink(fileLink));
  task->setCompletionHandler([fileLink, noteTask = std::move(taskHandler),
                              handler = std::move(completion)](KivRESTServiceTask& ended) {
    if (noteTask) noteTask(ended);
    evaluateOutcome(ended, fileLink, handler);
  });
  restService_->queue(task);
}

void KivResourceRESTModule::loadDataForResource_usingFileLink_taskHandler_completionHandler(
    const std::shared_ptr<KivResource>& resource, const std::string& fileLink,
    TaskHandler taskHandler, CompletionHandler completion) {
  loadDataForResource_usingFileLink_validators_taskHandler_completionHandler(
      resource, fileLink, std::nullopt, std::move(taskHandler), std::move(completion));
}

/// Validators and handler reach the override, which has no arguments for them, as members.
void KivResourceRESTModule::
    loadDataForResource_usingFileLink_validators_taskHandler_completionHandler(
        const std::shared_ptr<KivResource>& resource, const std::string& fileLink,
        std::optional<KivRESTServiceValidators> validators, TaskHandler taskHandler,
        CompletionHandler completion) {
  struct Loan {
    explicit Loan(KivResourceRESTModule& owner) noexcept : module(owner) {}
    Loan(const Loan&) = delete;
    Loan& operator=(const Loan&) = delete;
    ~Loan() {
      module.taskHandler_ = nullptr;
      module.validators_.reset();
    }
    KivResourceRESTModule& module;
  };
  const Loan loan(*this);
  taskHandler_ = std::move(taskHandler);
  validators_ = std::move(validators);
  loadDataForResource_usingFileLink_completionHandler(resource, fileLink, std::move(completion));
}

void KivResourceRESTModule::canselLoading() {
  if (!restService_) return;
  // The handlers are removed first, so that a cancelled task cannot call back.
  for (const auto& task : restService_->currentQueue()) {
    if (task) task->setCompletionHandler(nullptr);
  }
  restService_->cancelAllTasks();
}

kiv::Error KivResourceRESTModule::createRequestError() {
  return kiv::Error(KivResourceRESTModuleErrorDomain, CreateURLRequestErrorCode,
                    "Create request error.");
}

std::optional<kiv::URLRequest> KivResourceRESTModule::createGetRequestWithURL(
    const std::optional<kiv::URL>& url) const {
  if (!url) return std::nullopt;
  kiv::URLRequest request(*url);
  request.httpMethod = "GET";
  return request;
}

std::optional<kiv::URL> KivResourceRESTModule::mainURLForFileWithLink(
    std::string_view fileLink) const {
  return urlOnServer(appConfiguration_->mainACSDomain(), fileLink);
}

std::vector<kiv::URL> KivResourceRESTModule::mirrorURLsForFileWithLink(
    std::string_view fileLink) const {
  const auto url = urlOnServer(appConfiguration_->reserveACSDomain(), fileLink);
  return url ? std::vector{*url} : std::vector<kiv::URL>();
}

std::shared_ptr<KivResourceRESTModuleDelegate> KivResourceRESTModule::delegate() const {
  return delegate_.lock();
}

void KivResourceRESTModule::setDelegate(
    const std::shared_ptr<KivResourceRESTModuleDelegate>& delegate) {
  delegate_ = delegate;
}

const std::shared_ptr<KivAppConfiguration>& KivResourceRESTModule::appConfiguration()
    const noexcept {
  return appConfiguration_;
}

void KivResourceRESTModule::setAppConfiguration(
    std::shared_ptr<KivAppConfiguration> configuration) {
  appConfiguration_ =
      configuration ? std::move(configuration) : KivAppConfiguration::sharedInstance();
}

const std::shared_ptr<KivRESTService>& KivResourceRESTModule::restService() const noexcept {
  return restService_;
}

void KivResourceRESTModule::setRestService(std::shared_ptr<KivRESTService> restService) {
  restService_ = std::move(restService);
}
