#include "KivResource/KivResourceList.h"

#include <algorithm>
#include <utility>

#include "KivResource/KivResourceIndex.h"
#include "KivResource/KivResourceObject.h"

namespace kiv {

ResourceList::ResourceList() = default;

ResourceList::ResourceList(ResourceArray resources) {
  for (auto& resource : resources)
    append(std::move(resource));
}

ResourceList::~ResourceList() = default;

const ResourceArray& ResourceList::resources() const {
  closeGaps();
  return places_;
}

ResourceArray ResourceList::resourcesWithID(std::string_view resourceID) const {
  return resourcesAt(index().candidatesForID(resourceID), "resourceID", resourceID);
}

ResourceArray ResourceList::resourcesWithType(std::string_view type) const {
  return resourcesAt(index().candidatesForType(type), "type", type);
}

bool ResourceList::isPathUsedByOthers(std::string_view path, const KivResource& owner) const {
  const auto candidates = index().candidatesForPath(path);
  return std::any_of(candidates.begin(), candidates.end(), [&](std::uint32_t place) {
    const KivResource* other = places_[place].get();
    if (!other || other == &owner) return false;
    const auto paths = other->useFilePaths();
    return std::find(paths.begin(), paths.end(), path) != paths.end();
  });
}

void ResourceList::append(std::shared_ptr<KivResource> resource) {
  if (!resource) return;
  resource->noteListed();
  if (index_) index_->add(*resource, static_cast<std::uint32_t>(places_.size()));
  places_.push_back(std::move(resource));
  ++size_;
}

void ResourceList::remove(const std::shared_ptr<KivResource>& resource) {
  if (!resource) return;
  for (const std::uint32_t place : index().candidatesForID(resource->resourceID())) {
    if (places_[place] != resource) continue;
    places_[place] = nullptr;
    --size_;
  }
  constexpr std::size_t fewGaps = 64;
  if (places_.size() > 2 * size_ + fewGaps) closeGaps();
}

void ResourceList::removeAll(const ResourceArray& resources) {
  for (const auto& resource : resources)
    remove(resource);
}

void ResourceList::closeGaps() const {
  if (places_.size() == size_) return;
  std::erase(places_, nullptr);
  index_ = nullptr;
}

const ResourceIndex& ResourceList::index() const {
  if (index_ && index_->isCurrent()) return *index_;
  std::erase(places_, nullptr);
  index_ = std::make_unique<ResourceIndex>();
  for (std::size_t place = 0; place < places_.size(); ++place) {
    index_->add(*places_[place], static_cast<std::uint32_t>(place));
  }
  return *index_;
}

ResourceArray ResourceList::resourcesAt(const std::vector<std::uint32_t>& places,
                                        std::string_view property, std::string_view value) const {
  ResourceArray found;
  for (const std::uint32_t place : places) {
    if (!places_[place]) continue;
    const auto answer = places_[place]->valueForProperty(property);
    if (answer && answer->isString() && answer->stringView() == value) {
      found.push_back(places_[place]);
    }
  }
  return found;
}

}  // namespace kiv
