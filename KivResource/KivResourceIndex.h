#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <unordered_map>
#include <vector>

class KivResource;

namespace kiv {

/// Finds the places of a list at which a resource with a given identifier, type or file stands,
/// without walking the list.
///
/// Invariant: of every resource that was added, the place is among the candidates for its
/// identifier, for its type and for each of the file paths that it uses, as they are now. There may
/// be more candidates than right ones, never fewer: places are never taken out, and hashes may
/// collide, so whoever asks compares what it finds.
///
/// Resources are open objects, whose properties can change under the index. What the index relies
/// on is told to it: a change of these properties through a resource's own operations makes
/// isCurrent() false, and the owner then builds a new index. A resource that could change without
/// telling (one of a host's own class, or one whose list of paths was handed out) is a candidate
/// for everything.
class ResourceIndex {
 public:
  /// Ascending places; may name some twice.
  using Places = std::vector<std::uint32_t>;

  ResourceIndex();

  /// False once a resource of any list has changed what an index relies on.
  [[nodiscard]] bool isCurrent() const noexcept;
  void add(const KivResource& resource, std::uint32_t place);

  [[nodiscard]] Places candidatesForID(std::string_view resourceID) const;
  [[nodiscard]] Places candidatesForType(std::string_view type) const;
  [[nodiscard]] Places candidatesForPath(std::string_view path) const;

 private:
  using PlacesByHash = std::unordered_map<std::size_t, Places>;
  [[nodiscard]] Places candidates(const PlacesByHash& places, std::string_view key) const;

  PlacesByHash byID_;
  PlacesByHash byType_;
  PlacesByHash byPath_;
  Places opaque_;
  std::uint64_t changesSeen_;
};

}  // namespace kiv
