#include "Platform/KivRESTService/HostHealth.h"

#include <string_view>

namespace kiv {

std::string serverOf(const URL& url) {
  std::string_view text = url.absoluteString();
  const auto start = text.find("://");
  if (start == std::string_view::npos) return {};
  std::string_view authority = text.substr(start + 3);
  authority = authority.substr(0, authority.find_first_of("/?#"));
  const auto at = authority.rfind('@');
  if (at != std::string_view::npos) authority.remove_prefix(at + 1);
  return (url.scheme() + "://").append(authority);
}

bool HostHealth::isAvoided(const std::string& server, Time now) const {
  const auto found = avoidedUntil_.find(server);
  return found != avoidedUntil_.end() && now < found->second;
}

void HostHealth::noteTry(const std::string& server, Time now) {
  const auto found = avoidedUntil_.find(server);
  if (found != avoidedUntil_.end()) found->second = now + pause_;
}

void HostHealth::noteUnreachable(const std::string& server, Time now) {
  avoidedUntil_[server] = now + pause_;
}

void HostHealth::noteReached(const std::string& server) {
  avoidedUntil_.erase(server);
}

}  // namespace kiv
