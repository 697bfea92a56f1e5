#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "KivPlatform/Foundation/values/Value.h"

class KivResource;

namespace kiv {

/// Maps an identifier, a type or a file name to the positions of the resources that have it.
///
/// It is an ordered tree: identifiers and paths come from servers, which could choose keys that
/// make a hash table slow. All operations take logarithmic time.
///
/// The keys are those that each resource had when it was added. If a resource has changed since,
/// the owner has to build a new index (KivResource::setOnChange).
class ResourceIndex {
 public:
  enum class Aspect : std::uint8_t {
    identifier,
    type,
    /// The names under which the files are stored, without case and Unicode normalization, which a
    /// file system may ignore. Not their paths, since a file has several if a link leads to its
    /// directory. A kind that changed its paths without noteChange() is not found.
    fileName,
  };
  using Place = std::uint32_t;
  using Places = std::vector<Place>;

  /// Sorted by object before place, so that one of many resources with the same key is found
  /// directly. The pointer is only compared, never dereferenced.
  struct Entry {
    Value key;
    const KivResource* resource;
    Place place;
  };

  /// An index of the resources at their places in the list; nullptr is a gap.
  ResourceIndex(Aspect aspect, const std::vector<std::shared_ptr<KivResource>>& list);

  void add(const KivResource& resource, Place place);
  /// Removes the resource from all places at which it was added.
  void remove(const KivResource& resource);

  /// The places, in ascending order, of the resources with that identifier, type or path of a file.
  /// In an index of file names the resources may use another file, whose name folds to the same.
  [[nodiscard]] Places places(std::string_view value) const;
  /// The places, in ascending order, of the object, which has this value.
  [[nodiscard]] Places places(std::string_view value, const KivResource& resource) const;

  /// The entries in ascending order of their keys; valid until the next change.
  [[nodiscard]] auto begin() const { return entries_.begin(); }
  [[nodiscard]] auto end() const { return entries_.end(); }

 private:
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
  /// The key that the value has, or that is made of it in `buffer`.
  std::string_view keyOf(std::string_view value, std::string& buffer) const;

  Aspect aspect_;
  std::set<Entry, Order> entries_;
};

}  // namespace kiv
