#include "KivSession/SessionLeases.h"

#include <algorithm>
#include <utility>

#include "KivSession/ResourceJSON.h"

namespace kiv::session {

Result<Dictionary> SessionLeases::take(const KivResourceManager& manager,
                                       const std::optional<std::string>& resourceID) {
  const auto found = manager.loadedResourcesWithID(resourceID);
  const auto newest = std::max_element(
      found.begin(), found.end(),
      [](const auto& resource, const auto& other) { return other->isNewerThan(*resource); });
  if (newest == found.end()) {
    return Error(KivResourceLeaseErrorDomain,
                 static_cast<std::int64_t>(KivResourceLeaseErrorCode::filesMissing),
                 "no resource with that identifier is loaded");
  }
  std::optional<Error> error;
  auto lease = Lease::take(**newest, &error);
  if (!lease) return *std::move(error);
  Dictionary members{{"lease", lastNumber_ + 1}, {"resource", resourceJSON(*lease->resource())}};
  leases_.emplace(lastNumber_ + 1, *std::move(lease));
  ++lastNumber_;
  return members;
}

Status SessionLeases::end(std::uint64_t number) {
  if (leases_.erase(number) > 0) return {};
  return Error(KivResourceLeaseErrorDomain, 0, "there is no lease " + std::to_string(number));
}

}  // namespace kiv::session
