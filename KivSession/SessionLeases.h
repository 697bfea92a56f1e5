#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "KivResource/KivResource.h"

namespace kiv::session {

/// The leases of a session, by their numbers. They end with it. Used on the manager's queue.
class SessionLeases {
 public:
  /// Takes a lease of the newest loaded resource with the identifier. Returns its number and the
  /// leased resource, as members of a line.
  Result<Dictionary> take(const KivResourceManager& manager,
                          const std::optional<std::string>& resourceID);
  /// Fails if there is no lease with that number.
  Status end(std::uint64_t number);

 private:
  std::map<std::uint64_t, Lease> leases_;
  std::uint64_t lastNumber_ = 0;
};

}  // namespace kiv::session
