// A circuit breaker for each server: closed while it is good, open for a pause after a failure to
// reach it, half open while one attempt probes it.

#include "KivPlatform/KivRESTService/policy/HostHealth.h"

namespace kiv {

ServerState HostHealth::state(const std::string& server, Time now) const {
  const auto found = unreachable_.find(server);
  if (found == unreachable_.end()) return ServerState::good;
  if (found->second.probe) return ServerState::probed;
  return now < found->second.avoidedUntil ? ServerState::avoided : ServerState::good;
}

bool HostHealth::isUnreachable(const std::string& server) const {
  return unreachable_.contains(server);
}

bool HostHealth::isProbe(const std::string& server, std::uint64_t downloadID) const {
  const auto found = unreachable_.find(server);
  return found != unreachable_.end() && found->second.probe == downloadID;
}

std::vector<std::string> HostHealth::probed() const {
  std::vector<std::string> servers;
  for (const auto& [server, unreachable] : unreachable_) {
    if (unreachable.probe) servers.push_back(server);
  }
  return servers;
}

void HostHealth::noteTry(const std::string& server, std::uint64_t downloadID) {
  const auto found = unreachable_.find(server);
  if (found != unreachable_.end() && !found->second.probe) found->second.probe = downloadID;
}

void HostHealth::noteUnreachable(const std::string& server, std::uint64_t downloadID, Time now) {
  unreachable_[server].avoidedUntil = now + pause_;
  noteEnd(server, downloadID);
}

void HostHealth::noteEnd(const std::string& server, std::uint64_t downloadID) {
  if (isProbe(server, downloadID)) unreachable_.at(server).probe.reset();
}

bool HostHealth::noteReached(const std::string& server) {
  return unreachable_.erase(server) > 0;
}

void HostHealth::forgetProbes() noexcept {
  for (auto& [server, unreachable] : unreachable_)
    unreachable.probe.reset();
}

}  // namespace kiv
