#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string_view>
#include <vector>

#include "KivPlatform/Foundation/values/Value.h"

class KivResource;

namespace kiv {

/// Finds the places of a list at which resources with a given identifier, type or file stand.
///
/// An ordered tree, as nobody can choose keys that make one slow: identifiers and paths come from
/// servers. Adding, removing and finding cost the logarithm of the number of resources.
///
/// The index holds what each resource answered when it was added. Its owner makes a new one when a
/// resource has changed since (KivResource::setOnChange).
class ResourceIndex {
 public:
  enum class Aspect : std::uint8_t {
    identifier,
    type,
    /// The names under which the files are stored. Not their paths: one file has several, where a
    /// link leads to its directory. A kind that changed its paths without noteChange() is missed.
    fileName,
  };
  using Place = std::uint32_t;
  using Places = std::vector<Place>;

  /// An index of the resources at their places in the list; nullptr is a gap.
  ResourceIndex(Aspect aspect, const std::vector<std::shared_ptr<KivResource>>& list);

  void add(const KivResource& resource, Place place);
  /// Removes the resource from all places at which it was added.
  void remove(const KivResource& resource);

  /// The places, in ascending order, of the resources with that identifier, type or path of a file.
  /// In an index of file names the resources may use another file of the same name.
  [[nodiscard]] Places places(std::string_view value) const;
  /// The places, in ascending order, of that very object, which has this value.
  [[nodiscard]] Places places(std::string_view value, const KivResource& resource) const;
  /// The same as places(value), but of each object only the first.
  [[nodiscard]] Places firstPlaces(std::string_view value) const;

 private:
  /// The object comes before the place, so that one of many resources with one value is found
  /// without a look at the others. It is only compared, never looked into.
  struct Entry {
    Value key;
    const KivResource* resource;
    Place place;
  };
  /// The first entry of a key, or of a resource under that key.
  struct Start {
    std::string_view key;
    const KivResource* resource = nullptr;
  };
  struct Order {
    using is_transparent = void;
    bool operator()(const Entry& a, const Entry& b) const noexcept;
    bool operator()(const Entry& a, const Start& b) const noexcept;
  };

  template <class Use>
  void forEachKey(const KivResource& resource, const Use& use) const;
  /// The part of the value that is the key.
  [[nodiscard]] std::string_view keyOf(std::string_view value) const;

  Aspect aspect_;
  std::set<Entry, Order> entries_;
};

}  // namespace kiv
