#include "Platform/KivRESTService/TransferPlan.h"

#include <utility>

namespace kiv {

TransferPlan::TransferPlan(std::size_t servers) : outcomes_(servers) {}

std::optional<std::size_t> TransferPlan::nextServer() const noexcept {
  if (success_) return std::nullopt;
  for (std::size_t server = 0; server < outcomes_.size(); ++server) {
    if (!outcomes_[server]) return server;
  }
  return std::nullopt;
}

void TransferPlan::record(std::size_t server, TransferOutcome outcome) {
  if (outcome.body) success_ = server;
  outcomes_[server] = std::move(outcome);
}

TransferOutcome TransferPlan::takeOutcome() {
  if (success_) return std::move(*outcomes_[*success_]);
  for (auto& outcome : outcomes_) {
    if (outcome && outcome->response) return std::move(*outcome);
  }
  return std::move(*outcomes_.front());
}

}  // namespace kiv
