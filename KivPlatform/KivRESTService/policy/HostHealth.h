#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace kiv {

/// Whether a server may be tried.
enum class ServerState {
  good,
  avoided,  ///< Unreachable a short while ago: try others first.
  probed,   ///< A running attempt probes it: start no other.
};

/// Remembers which servers are unreachable, so that not every task has to find out: a circuit
/// breaker.
///
/// An unreachable server is avoided for a while if there are others. One attempt at a time probes
/// it for all tasks, until an attempt reaches it.
class HostHealth {
 public:
  using Time = std::chrono::steady_clock::time_point;

  explicit HostHealth(std::chrono::milliseconds pause) noexcept : pause_(pause) {}

  [[nodiscard]] ServerState state(const std::string& server, Time now) const;
  /// True from the first failure to reach the server until an attempt reaches it.
  [[nodiscard]] bool isUnreachable(const std::string& server) const;
  /// True if this attempt is probing the server.
  [[nodiscard]] bool isProbe(const std::string& server, std::uint64_t downloadID) const;
  /// The servers that an attempt is probing.
  [[nodiscard]] std::vector<std::string> probed() const;

  /// Called when an attempt starts; `downloadID` identifies it. It becomes the probe of an
  /// unreachable server that has none.
  void noteTry(const std::string& server, std::uint64_t downloadID);
  /// Called when an attempt has not reached the server.
  void noteUnreachable(const std::string& server, std::uint64_t downloadID, Time now);
  /// Called when an attempt has ended without telling whether the server is reachable.
  void noteEnd(const std::string& server, std::uint64_t downloadID);
  /// Called when the server was reached, whatever it answered. True if it was unreachable before.
  bool noteReached(const std::string& server);
  /// Called when all attempts have been dropped.
  void forgetProbes() noexcept;

 private:
  struct Unreachable {
    Time avoidedUntil;
    std::optional<std::uint64_t> probe;
  };

  const std::chrono::milliseconds pause_;
  std::map<std::string, Unreachable> unreachable_;
};

}  // namespace kiv
