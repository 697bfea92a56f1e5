#pragma once

#include "KivResource/KivResource.h"

namespace tool {

/// Prints each callback of the manager as a JSON line. Registered on the manager's queue, so that
/// it may read all properties of a resource.
class EventLines : public KivResourceManagerObserver {
 public:
  void resourceManager_didLoadResource(const std::shared_ptr<KivResourceManager>& manager,
                                       const std::shared_ptr<KivResource>& resource) override;
  void resourceManager_didFailToLoadResource_withError(
      const std::shared_ptr<KivResourceManager>& manager,
      const std::shared_ptr<KivResource>& resource,
      const std::optional<kiv::Error>& error) override;
  void resourceManagerDidFinishLoading(const std::shared_ptr<KivResourceManager>& manager) override;
};

}  // namespace tool
