#include "Tools/kivresource/PassOutcome.h"

namespace tool {

std::vector<std::string> PassOutcome::unheardOf(const std::vector<std::string>& expected) const {
  auto heard = loadedByID_;
  for (const auto& resource : failed_)
    ++heard[resource->resourceID()];
  std::vector<std::string> silent;
  for (const std::string& resourceID : expected) {
    auto& count = heard[resourceID];
    if (count == 0) {
      silent.push_back(resourceID);
    } else {
      --count;
    }
  }
  return silent;
}

void PassOutcome::resourceManager_didLoadResource(const std::shared_ptr<KivResourceManager>&,
                                                  const std::shared_ptr<KivResource>& resource) {
  ++loaded_;
  ++loadedByID_[resource->resourceID()];
  if (view_) view_->showLoaded(*resource);
}

void PassOutcome::resourceManager_didFailToLoadResource_withError(
    const std::shared_ptr<KivResourceManager>& manager,
    const std::shared_ptr<KivResource>& resource, const std::optional<kiv::Error>& error) {
  const bool isFirst = failed_.insert(resource).second;
  if (isFirst && view_) view_->showFailed(*manager, *resource, error);
}

}  // namespace tool
