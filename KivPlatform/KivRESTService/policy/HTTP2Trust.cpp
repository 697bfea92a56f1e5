#include "KivPlatform/KivRESTService/policy/HTTP2Trust.h"

namespace kiv {

bool HTTP2Trust::isTrusted(const std::string& server) const {
  const auto found = failures_.find(server);
  return found == failures_.end() || found->second.count < mostFailures;
}

void HTTP2Trust::noteSuccess(const std::string& server) {
  if (isTrusted(server)) failures_.erase(server);
}

void HTTP2Trust::noteFailure(const std::string& server, Time begun, Time now) {
  Failures& failures = failures_[server];
  if (begun <= failures.last) return;
  ++failures.count;
  failures.last = now;
}

}  // namespace kiv
