#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Foundation/Export.h"

class KivResource;

namespace kiv {

class ResourceIndex;

/// An immutable answer: resources in order, shared, never null.
using ResourceArray = std::vector<std::shared_ptr<KivResource>>;

/// The registry of loaded resources: a list that keeps its order of insertion and takes the same
/// object more than once. Resources have no equality of their own: two of equal content are two.
///
/// Every change goes through this class, which keeps an index for the questions below: they cost
/// what they find, not the length of the list. Used on the manager's queue alone.
class KIV_EXPORT ResourceList {
 public:
  /// Goes through the resources in order; a change of the list ends its use.
  class const_iterator {
   public:
    using Place = const std::shared_ptr<KivResource>*;

    const_iterator(Place place, Place end) : place_(place), end_(end) { skipGaps(); }
    const std::shared_ptr<KivResource>& operator*() const { return *place_; }
    const_iterator& operator++() {
      ++place_;
      skipGaps();
      return *this;
    }
    friend bool operator==(const const_iterator& a, const const_iterator& b) {
      return a.place_ == b.place_;
    }

   private:
    void skipGaps() {
      while (place_ != end_ && !*place_)
        ++place_;
    }

    Place place_;
    Place end_;
  };

  ResourceList();
  explicit ResourceList(ResourceArray resources);
  ResourceList(const ResourceList&) = delete;
  ResourceList& operator=(const ResourceList&) = delete;
  ~ResourceList();

  [[nodiscard]] std::size_t size() const noexcept { return size_; }
  [[nodiscard]] bool empty() const noexcept { return size_ == 0; }
  [[nodiscard]] const std::shared_ptr<KivResource>& operator[](std::size_t index) const {
    return resources()[index];
  }
  [[nodiscard]] const_iterator begin() const { return {places_.data(), pastLastPlace()}; }
  [[nodiscard]] const_iterator end() const { return {pastLastPlace(), pastLastPlace()}; }
  /// The resources as they stand now; valid until the next change.
  [[nodiscard]] const ResourceArray& resources() const;

  /// The resources with that identifier, in the order of the list.
  [[nodiscard]] ResourceArray resourcesWithID(std::string_view resourceID) const;
  /// The resources of that type, in the order of the list.
  [[nodiscard]] ResourceArray resourcesWithType(std::string_view type) const;
  /// True where a resource of the list other than `owner` uses the file at that path.
  [[nodiscard]] bool isPathUsedByOthers(std::string_view path, const KivResource& owner) const;

  /// Adds the resource at the end, also where it is in the list already. Nothing is not added.
  void append(std::shared_ptr<KivResource> resource);
  /// Removes every occurrence of that very object.
  void remove(const std::shared_ptr<KivResource>& resource);
  /// Removes every occurrence of each of those objects.
  void removeAll(const ResourceArray& resources);

 private:
  [[nodiscard]] const_iterator::Place pastLastPlace() const {
    return places_.data() + places_.size();
  }
  void closeGaps() const;
  [[nodiscard]] const ResourceIndex& index() const;
  [[nodiscard]] ResourceArray resourcesAt(const std::vector<std::uint32_t>& places,
                                          std::string_view property, std::string_view value) const;

  // What is removed leaves a gap, so that the places in the index stay right. The gaps are closed
  // when they outnumber the resources, or when somebody wants the plain array.
  mutable ResourceArray places_;
  std::size_t size_ = 0;
  mutable std::unique_ptr<ResourceIndex> index_;  // made when first asked
};

}  // namespace kiv
