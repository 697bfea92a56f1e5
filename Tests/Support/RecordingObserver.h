#pragma once

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "KivResource/KivResourceManager.h"

namespace kiv::test {

/// Records every callback: as text, to check the order, and with its objects.
class RecordingObserver final : public KivResourceManagerObserver {
 public:
  struct Failure {
    std::shared_ptr<KivResource> resource;
    std::optional<kiv::Error> error;
  };

  void resourceManager_didLoadResource(const std::shared_ptr<KivResourceManager>&,
                                       const std::shared_ptr<KivResource>& resource) override {
    events.push_back("loaded " + resource->resourceID());
    loaded.push_back(resource);
  }

  void resourceManager_didFailToLoadResource_withError(
      const std::shared_ptr<KivResourceManager>&, const std::shared_ptr<KivResource>& resource,
      const std::optional<kiv::Error>& error) override {
    events.push_back("failed " + resource->resourceID());
    failures.push_back({resource, error});
  }

  void resourceManagerDidFinishLoading(const std::shared_ptr<KivResourceManager>&) override {
    events.emplace_back("finished");
  }

  [[nodiscard]] std::size_t count(const std::string& event) const {
    return static_cast<std::size_t>(std::count(events.begin(), events.end(), event));
  }

  void clear() {
    events.clear();
    loaded.clear();
    failures.clear();
  }

  std::vector<std::string> events;
  std::vector<std::shared_ptr<KivResource>> loaded;
  std::vector<Failure> failures;
};

}  // namespace kiv::test
