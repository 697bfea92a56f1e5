#include "KivPlatform/KivRESTService/KivRESTServiceRequest.h"

#include <atomic>
#include <utility>

#include "KivPlatform/KivRESTService/http/RequestHeaders.h"
#include "KivPlatform/KivRESTService/http/TransferErrors.h"

/// The state that copies share. Its destructor refuses a request that was not answered.
class KivRESTServiceRequest::State {
 public:
  State(kiv::URL requestURL, int tryCount, int redirectCount, AnswerHandler answered)
      : url(std::move(requestURL)),
        tries(tryCount),
        redirects(redirectCount),
        answered_(std::move(answered)) {}
  State(const State&) = delete;
  State& operator=(const State&) = delete;
  ~State() { answer(std::nullopt, {}); }

  void answer(std::optional<Headers> headers, std::string refusal) const {
    if (!isAnswered_.exchange(true)) answered_(std::move(headers), std::move(refusal));
  }

  const kiv::URL url;
  const int tries;
  const int redirects;

 private:
  const AnswerHandler answered_;
  mutable std::atomic<bool> isAnswered_ = false;
};

KivRESTServiceRequest::KivRESTServiceRequest(kiv::URL url, int tries, int redirects,
                                             AnswerHandler answered)
    : state_(std::make_shared<State>(std::move(url), tries, redirects, std::move(answered))) {}

const kiv::URL& KivRESTServiceRequest::url() const noexcept {
  return state_->url;
}

int KivRESTServiceRequest::tries() const noexcept {
  return state_->tries;
}

int KivRESTServiceRequest::redirects() const noexcept {
  return state_->redirects;
}

kiv::Status KivRESTServiceRequest::send(Headers headers) const {
  std::string problem = kiv::validateRequestHeaders(headers);
  if (problem.empty()) {
    state_->answer(std::move(headers), {});
    return {};
  }
  auto error = kiv::transferError(KivRESTServiceErrorCode::refusedRequest,
                                  state_->url.absoluteString(), problem);
  state_->answer(std::nullopt, std::move(problem));
  return error;
}

void KivRESTServiceRequest::refuse() const {
  state_->answer(std::nullopt, {});
}
