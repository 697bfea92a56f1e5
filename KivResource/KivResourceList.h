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

/// An immutable answer: resources in order, shared, never null.
using ResourceArray = std::vector<std::shared_ptr<KivResource>>;

/// The registry of loaded resources: a list that keeps its order of insertion and takes the same
/// object more than once. Resources have no equality of their own: two of equal content are two.
///
/// Every change goes through this class, which keeps an index for each question below, so that an
/// answer costs what it finds and the logarithm of the list's length. The first question of a sort
/// makes its index, which costs about as much as a walk. So does the first question after a listed
/// resource has reported a change of its identifier, its type or its paths
/// (KivResource::noteChange); no pass of the manager causes one. To be used on the manager's queue
/// alone.
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

  /// Builds with assertions end the program when the list is used off that queue; nothing is
  /// checked as long as no manager has the list.
  void setQueueAssertion(std::shared_ptr<const QueueAssertion> assertion);

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
  /// Pairs resources with those of the list that have the same identifier.
  struct Counterparts {
    /// For each of the given resources the first of the list that has its identifier and is not the
    /// counterpart of an earlier one, or nullptr.
    ResourceArray ofEach;
    /// The resources of the list that are no counterpart, in its order, each as often as the list
    /// has it.
    ResourceArray rest;
  };
  [[nodiscard]] Counterparts counterparts(const ResourceArray& resources) const;
  /// True if a resource of the list other than `owner` uses the file at that path, be it by
  /// another path that leads to the same file.
  [[nodiscard]] bool isPathUsedByOthers(std::string_view path, const KivResource& owner) const;

  /// Adds the resource at the end, also if it is in the list already. nullptr is ignored.
  void append(std::shared_ptr<KivResource> resource);
  /// Removes every occurrence of that very object.
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
