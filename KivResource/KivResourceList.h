#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "Platform/Foundation/Export.h"

class KivResource;

namespace kiv {

/// An immutable answer: resources in order, shared, never null.
using ResourceArray = std::vector<std::shared_ptr<KivResource>>;

/// The registry of loaded resources: a list that keeps its order of insertion and takes the same
/// object more than once. Resources have no equality of their own: two of equal content are two.
///
/// Used on the manager's queue alone.
class KIV_EXPORT ResourceList {
 public:
  using const_iterator = ResourceArray::const_iterator;

  ResourceList() = default;
  explicit ResourceList(ResourceArray resources);

  [[nodiscard]] std::size_t size() const noexcept { return resources_.size(); }
  [[nodiscard]] bool empty() const noexcept { return resources_.empty(); }
  [[nodiscard]] const std::shared_ptr<KivResource>& operator[](std::size_t index) const noexcept {
    return resources_[index];
  }
  [[nodiscard]] const_iterator begin() const noexcept { return resources_.begin(); }
  [[nodiscard]] const_iterator end() const noexcept { return resources_.end(); }
  /// The resources as they stand now.
  [[nodiscard]] const ResourceArray& resources() const noexcept { return resources_; }

  /// Adds the resource at the end, also where it is in the list already. Nothing is not added.
  void append(std::shared_ptr<KivResource> resource);
  /// Removes every occurrence of that very object.
  void remove(const std::shared_ptr<KivResource>& resource);
  /// Removes every occurrence of each of those objects.
  void removeAll(const ResourceArray& resources);

 private:
  ResourceArray resources_;
};

}  // namespace kiv
