#include "KivResource/KivResourceIndex.h"

#include <algorithm>
#include <functional>
#include <iterator>
#include <typeinfo>

#include "KivResource/KivResourceStandard.h"
#include "KivResource/KivResourceVideo.h"
#include "KivResource/KivResourceWeb.h"

namespace kiv {

namespace {

std::size_t hashOf(std::string_view key) {
  return std::hash<std::string_view>()(key);
}

/// A class of a host's own may answer differently every time it is asked.
bool isOfOurOwnClass(const KivResource& resource) {
  const std::type_info& type = typeid(resource);
  return type == typeid(KivResource) || type == typeid(KivResourceStandard) ||
         type == typeid(KivResourceVideo) || type == typeid(KivResourceWeb);
}

}  // namespace

ResourceIndex::ResourceIndex() : changesSeen_(KivResource::changesOfListedResources()) {}

bool ResourceIndex::isCurrent() const noexcept {
  return changesSeen_ == KivResource::changesOfListedResources();
}

void ResourceIndex::add(const KivResource& resource, std::uint32_t place) {
  if (!isOfOurOwnClass(resource) || resource.isExposed()) {
    opaque_.push_back(place);
    return;
  }
  byID_[hashOf(resource.resourceID())].push_back(place);
  byType_[hashOf(resource.type())].push_back(place);
  for (const std::string& path : resource.useFilePaths()) {
    byPath_[hashOf(path)].push_back(place);
  }
}

ResourceIndex::Places ResourceIndex::candidatesForID(std::string_view resourceID) const {
  return candidates(byID_, resourceID);
}

ResourceIndex::Places ResourceIndex::candidatesForType(std::string_view type) const {
  return candidates(byType_, type);
}

ResourceIndex::Places ResourceIndex::candidatesForPath(std::string_view path) const {
  return candidates(byPath_, path);
}

ResourceIndex::Places ResourceIndex::candidates(const PlacesByHash& places,
                                                std::string_view key) const {
  const auto found = places.find(hashOf(key));
  if (found == places.end()) return opaque_;
  if (opaque_.empty()) return found->second;
  Places merged;
  std::merge(found->second.begin(), found->second.end(), opaque_.begin(), opaque_.end(),
             std::back_inserter(merged));
  return merged;
}

}  // namespace kiv
