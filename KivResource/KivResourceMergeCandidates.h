#pragma once

#include <cstdint>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "KivResource/KivResourceList.h"
#include "Platform/Foundation/Value.h"

namespace kiv {

/// The loaded resources that a merge has found no counterpart for yet: at first the whole registry,
/// as it stood when the merge began.
class MergeCandidates {
 public:
  explicit MergeCandidates(const ResourceList& registry);

  /// The first candidate, in the registry's order, with the identifier, or nullptr. It is a
  /// candidate no longer, at none of the places where it stands.
  std::shared_ptr<KivResource> take(std::string_view resourceID);

  /// The candidates left, in the registry's order, as often as they stand in it.
  [[nodiscard]] ResourceArray rest() const;

 private:
  /// A loaded resource; the same object at a later place points to its first one.
  struct Candidate {
    std::shared_ptr<KivResource> resource;
    std::size_t firstPlace;
    Value resourceID;
    bool isTaken = false;
  };
  /// The first places of the resources with one identifier; those before `next` are taken.
  struct Places {
    std::vector<std::size_t> places;
    std::size_t next = 0;
  };

  std::vector<Candidate> candidates_;
  std::unordered_map<std::string_view, Places> placesByID_;
};

}  // namespace kiv
