#pragma once

#include <chrono>
#include <map>
#include <string>

#include "Platform/Foundation/Export.h"
#include "Platform/Foundation/URL.h"

namespace kiv {

/// The server of a URL, scheme, host and port, as far as it has one.
KIV_EXPORT std::string serverOf(const URL& url);

/// Remembers which servers could not be reached, so that not every task has to find out anew.
///
/// Such a server is avoided for a pause, as long as there is another one. The first that tries it
/// when the pause is over probes it for all: the pause begins again at that moment, and ends when
/// the server answers.
class KIV_EXPORT HostHealth {
 public:
  using Time = std::chrono::steady_clock::time_point;

  explicit HostHealth(std::chrono::milliseconds pause) noexcept : pause_(pause) {}

  /// True where the server is better tried after others.
  [[nodiscard]] bool isAvoided(const std::string& server, Time now) const;
  /// A try begins.
  void noteTry(const std::string& server, Time now);
  /// The server could not be reached.
  void noteUnreachable(const std::string& server, Time now);
  /// The server was reached, whatever it answered.
  void noteReached(const std::string& server);

 private:
  const std::chrono::milliseconds pause_;
  std::map<std::string, Time> avoidedUntil_;
};

}  // namespace kiv
