// A request that is destroyed without an answer is refused. So requests are let go only after the
// client has a new handler, or none: from then on, their answers have no effect.

#include "KivSession/SessionRequests.h"

#include <optional>
#include <utility>

namespace kiv::session {

namespace {

Error requestError(const std::string& text) {
  return {KivRESTServiceErrorDomain,
          static_cast<std::int64_t>(KivRESTServiceErrorCode::refusedRequest), text};
}

/// The client refuses a request with an invalid header, so it is tried with another request first.
Status validate(const URL& url, const SessionRequests::Headers& headers) {
  std::string problem;
  const KivRESTServiceRequest tried(
      url, 1, 0, [&](const auto&, std::string refusal) { problem = std::move(refusal); });
  if (tried.send(headers)) return {};
  return requestError(problem);
}

}  // namespace

// --- Clients -------------------------------------------------------------------------------------

void SessionRequests::equip(const std::shared_ptr<KivRESTService>& client) {
  if (!client) return;
  clients_.push_back(client);
  if (isAnswering_) setHandler(*client);
  if (!allowsTransfers_) setCondition(*client);
}

std::vector<std::shared_ptr<KivRESTService>> SessionRequests::clients() {
  std::vector<std::shared_ptr<KivRESTService>> clients;
  std::erase_if(clients_, [](const auto& client) { return client.expired(); });
  for (const auto& each : clients_) {
    if (auto client = each.lock()) clients.push_back(std::move(client));
  }
  return clients;
}

/// Requests of a paused client are not announced: they were about to be sent when the pause came,
/// and the client asks again after it.
void SessionRequests::setHandler(KivRESTService& client) {
  if (!isAnswering_) return client.setRequestHandler({});
  client.setRequestHandler([weak = weak_from_this(), &client](const auto& request) {
    const auto self = weak.lock();
    if (self && !client.isPaused()) self->take(request);
  });
}

void SessionRequests::setCondition(KivRESTService& client) const {
  if (allowsTransfers_) return client.setStartCondition({});
  client.setStartCondition([](const auto&, const auto&) { return false; });
}

// --- Requests ------------------------------------------------------------------------------------

void SessionRequests::setAnswering(bool isAnswering) {
  if (isAnswering != std::exchange(isAnswering_, isAnswering)) replaceHandlers();
}

void SessionRequests::take(const KivRESTServiceRequest& request) {
  if (haveAnswersEnded_) return request.refuse();
  wereAnswered_.push_back(false);
  const std::uint64_t number = wereAnswered_.size();
  waiting_.emplace(number, request);
  announce_(number, request.url());
}

Status SessionRequests::send(std::uint64_t number, const Headers& headers) {
  if (Status status = statusOf(number); !status) return status;
  if (Status status = validate(waiting_.at(number).url(), headers); !status) return status;
  return remove(number).send(headers);
}

Status SessionRequests::refuse(std::uint64_t number) {
  if (Status status = statusOf(number); !status) return status;
  remove(number).refuse();
  return {};
}

void SessionRequests::askAgain() {
  if (isAnswering_) replaceHandlers();
}

void SessionRequests::replaceHandlers() {
  for (const auto& client : clients())
    setHandler(*client);
  waiting_.clear();
}

void SessionRequests::endAnswers() {
  haveAnswersEnded_ = true;
  waiting_.clear();
}

Status SessionRequests::statusOf(std::uint64_t number) const {
  if (waiting_.contains(number)) return {};
  const std::string name = "request " + std::to_string(number);
  if (number == 0 || number > wereAnswered_.size()) return requestError("there is no " + name);
  return requestError(
      name + (wereAnswered_[number - 1] ? " was answered already" : " does not wait any more"));
}

KivRESTServiceRequest SessionRequests::remove(std::uint64_t number) {
  wereAnswered_[number - 1] = true;
  return std::move(waiting_.extract(number).mapped());
}

// --- Transfers -----------------------------------------------------------------------------------

void SessionRequests::allowTransfers(bool areAllowed) {
  if (areAllowed == std::exchange(allowsTransfers_, areAllowed)) return;
  for (const auto& client : clients())
    setCondition(*client);
}

}  // namespace kiv::session
