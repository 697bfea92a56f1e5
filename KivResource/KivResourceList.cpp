#include "KivResource/KivResourceList.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

#include "KivResource/KivResourceObject.h"

namespace kiv {

ResourceList::ResourceList(ResourceArray resources) : resources_(std::move(resources)) {
  std::erase(resources_, nullptr);
}

void ResourceList::append(std::shared_ptr<KivResource> resource) {
  if (resource) resources_.push_back(std::move(resource));
}

void ResourceList::remove(const std::shared_ptr<KivResource>& resource) {
  std::erase(resources_, resource);
}

void ResourceList::removeAll(const ResourceArray& resources) {
  const std::unordered_set<std::shared_ptr<KivResource>> removed(resources.begin(),
                                                                 resources.end());
  std::erase_if(resources_, [&](const auto& resource) { return removed.contains(resource); });
}

}  // namespace kiv
