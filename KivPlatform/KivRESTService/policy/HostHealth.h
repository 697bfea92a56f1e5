#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/Foundation/values/URL.h"

namespace kiv {

/// The server of a URL, scheme, host and port, as far as it has one.
KIV_EXPORT std::string originOf(const URL& url);

/// Whether a server is to be tried.
enum class ServerState {
  good,
  avoided,  ///< It could not be reached: others come first.
  probed,   ///< A try that runs will tell whether it can be reached again: no other may begin.
};

/// Remembers which servers could not be reached, so that not every task has to find out anew.
///
/// Such a server is avoided for a pause, as long as there is another one. From then on one try at a
/// time, during the pause or after it, probes the server for all, until one reaches it.
class KIV_EXPORT HostHealth {
 public:
  using Time = std::chrono::steady_clock::time_point;

  explicit HostHealth(std::chrono::milliseconds pause) noexcept : pause_(pause) {}

  [[nodiscard]] ServerState state(const std::string& server, Time now) const;
  /// True from when the server could not be reached until it is, also when the pause is over.
  [[nodiscard]] bool isUnreachable(const std::string& server) const;
  /// True where the try is the probe of the server.
  [[nodiscard]] bool isProbe(const std::string& server, std::uint64_t attemptID) const;
  /// The servers that are probed now.
  [[nodiscard]] std::vector<std::string> probed() const;

  /// A try begins. The number tells it from others of the server at the same time.
  void noteTry(const std::string& server, std::uint64_t attemptID);
  /// The try has ended, without reaching the server.
  void noteUnreachable(const std::string& server, std::uint64_t attemptID, Time now);
  /// The try has ended, and says nothing of the server.
  void noteEnd(const std::string& server, std::uint64_t attemptID);
  /// The server was reached, whatever it answered. True where it was unreachable before.
  bool noteReached(const std::string& server);
  /// No try runs any more.
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
