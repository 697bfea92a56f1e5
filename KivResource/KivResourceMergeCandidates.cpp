#include "KivResource/KivResourceMergeCandidates.h"

#include "KivResource/KivResourceObject.h"

namespace kiv {

MergeCandidates::MergeCandidates(const ResourceList& registry) {
  candidates_.reserve(registry.size());
  std::unordered_map<const KivResource*, std::size_t> firstPlaces;
  for (const auto& resource : registry) {
    const std::size_t place = candidates_.size();
    const auto [known, isFirst] = firstPlaces.emplace(resource.get(), place);
    candidates_.push_back(
        {resource, known->second, resource->valueForProperty("resourceID").value_or(Value())});
    if (isFirst && candidates_.back().resourceID.isString()) {
      placesByID_[candidates_.back().resourceID.stringView()].places.push_back(place);
    }
  }
}

std::shared_ptr<KivResource> MergeCandidates::take(std::string_view resourceID) {
  const auto found = placesByID_.find(resourceID);
  if (found == placesByID_.end()) return nullptr;
  Places& places = found->second;
  if (places.next == places.places.size()) return nullptr;
  Candidate& candidate = candidates_[places.places[places.next++]];
  candidate.isTaken = true;
  return candidate.resource;
}

ResourceArray MergeCandidates::rest() const {
  ResourceArray rest;
  for (const Candidate& candidate : candidates_) {
    if (!candidates_[candidate.firstPlace].isTaken) rest.push_back(candidate.resource);
  }
  return rest;
}

}  // namespace kiv
