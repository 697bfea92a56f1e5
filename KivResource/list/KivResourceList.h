#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "KivPlatform/Foundation/Export.h"

class KivResource;

namespace kiv {

class QueueAssertion;

/// Resources in order, never null.
using ResourceArray = std::vector<std::shared_ptr<KivResource>>;

/// The registry of loaded resources, in the order of insertion. An object may be in the list more
/// than once. Resources are compared by identity, not by content.
///
/// The list has an index for each kind of query, so that a query takes logarithmic time plus the
/// size of its result. The first query of a kind builds the index, which takes about as long as an
/// iteration. So does the first query after a resource of the list has reported a change of its
/// identifier, type or paths (KivResource::noteChange); passes cause none. To be used on the
/// manager's queue only.
class KIV_EXPORT ResourceList {
 public:
  /// Visits the resources in order; a change of the list makes it invalid.
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

  /// In builds without NDEBUG the program ends if the list is used off that queue. Nothing is
  /// checked until a manager has the list.
  void setQueueAssertion(std::shared_ptr<const QueueAssertion> assertion);

  [[nodiscard]] std::size_t size() const noexcept { return size_; }
  [[nodiscard]] bool empty() const noexcept { return size_ == 0; }
  [[nodiscard]] const std::shared_ptr<KivResource>& operator[](std::size_t index) const {
    return resources()[index];
  }
  [[nodiscard]] const_iterator begin() const { return {places_.data(), pastLastPlace()}; }
  [[nodiscard]] const_iterator end() const { return {pastLastPlace(), pastLastPlace()}; }
  /// The resources; valid until the next change.
  [[nodiscard]] const ResourceArray& resources() const;

  /// The resources with that identifier, in the order of the list.
  [[nodiscard]] ResourceArray resourcesWithID(std::string_view resourceID) const;
  /// The resources of that type, in the order of the list.
  [[nodiscard]] ResourceArray resourcesWithType(std::string_view type) const;
  /// Finds the counterparts of resources: those of the list with the same identifier.
  struct Counterparts {
    /// For each of the given resources the first of the list that has its identifier and is not the
    /// counterpart of an earlier one, or nullptr.
    ResourceArray ofEach;
    /// The resources of the list that are no counterpart, in its order, each as often as the list
    /// has it.
    ResourceArray rest;
  };
  [[nodiscard]] Counterparts counterparts(const ResourceArray& resources) const;
  /// True if a resource of the list other than `owner` uses the file at that path, also by another
  /// path to the same file.
  [[nodiscard]] bool isPathUsedByOthers(std::string_view path, const KivResource& owner) const;

  /// The resources that use the file at that path, also by another path to the same file, in the
  /// order of the list.
  [[nodiscard]] ResourceArray resourcesWithPath(std::string_view path) const;

  /// Adds the resource at the end, also if it is in the list already. nullptr is ignored.
  void append(std::shared_ptr<KivResource> resource);
  /// Removes every occurrence of the object.
  void remove(const std::shared_ptr<KivResource>& resource);
  /// Removes every occurrence of each of those objects.
  void removeAll(const ResourceArray& resources);

 private:
  [[nodiscard]] const_iterator::Place pastLastPlace() const {
    return places_.data() + places_.size();
  }
  void assertQueue(const char* call = __builtin_FUNCTION()) const;
  [[nodiscard]] ResourceArray at(const std::vector<std::uint32_t>& places) const;
  void closeGaps() const;

  // A removed resource leaves a gap, so that the places in the indexes stay right. The gaps are
  // closed when they outnumber the resources, and by resources().
  mutable ResourceArray places_;
  std::size_t size_ = 0;
  std::shared_ptr<const QueueAssertion> queueAssertion_;
  class Indexes;
  std::unique_ptr<Indexes> indexes_;
};

}  // namespace kiv
