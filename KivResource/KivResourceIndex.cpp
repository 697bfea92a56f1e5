#include "KivResource/KivResourceIndex.h"

#include <bit>
#include <string>
#include <typeinfo>
#include <utility>

#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/Foundation/values/KeyedHash.h"
#include "KivResource/KivResourceConstants.h"
#include "KivResource/KivResourceStandard.h"
#include "KivResource/KivResourceVideo.h"
#include "KivResource/KivResourceWeb.h"

namespace kiv {

namespace {

/// Of the resources that may be anything: one hash like any other.
constexpr std::uint32_t unknownHash = 0x756e6b6e;

/// Objects need no secret: nobody but the allocator chooses where they lie.
std::uint32_t hashOfObject(const KivResource& resource) {
  const auto address = reinterpret_cast<std::uintptr_t>(&resource);
  return static_cast<std::uint32_t>((std::uint64_t{address} * 0x9e3779b97f4a7c15) >> 32);
}

/// The name under which the file is stored: that of its directory for the page of an archive, as
/// all pages have one name.
std::string_view storedName(std::string_view path) {
  const std::string_view name = path::lastPathComponent(path);
  if (name != KivResouceArchiveKey[1]) return name;
  return path::lastPathComponent(path::deletingLastPathComponent(path));
}

}  // namespace

bool isOfFrameworkClass(const KivResource& resource) {
  const std::type_info& type = typeid(resource);
  return type == typeid(KivResource) || type == typeid(KivResourceStandard) ||
         type == typeid(KivResourceVideo) || type == typeid(KivResourceWeb);
}

ResourceIndex::ResourceIndex(Aspect aspect, std::size_t size)
    : aspect_(aspect),
      firstNodes_(1, 0),
      buckets_(std::bit_ceil(size + 16), none),
      changesSeen_(KivResource::changesOfListedResources()) {
  nodes_.reserve(size);
  firstNodes_.reserve(size + 1);
}

bool ResourceIndex::isCurrent() const noexcept {
  return changesSeen_ == KivResource::changesOfListedResources();
}

void ResourceIndex::add(const KivResource* resource) {
  if (resource) addNodes(*resource, static_cast<std::uint32_t>(firstNodes_.size() - 1));
  firstNodes_.push_back(static_cast<std::uint32_t>(nodes_.size()));
}

void ResourceIndex::addNodes(const KivResource& resource, std::uint32_t place) {
  if (aspect_ == Aspect::object) {
    addNode(hashOfObject(resource), place);
  } else if (!isOfFrameworkClass(resource)) {
    addNode(unknownHash, place);
  } else if (aspect_ == Aspect::identifier) {
    addNode(hashOf(resource.resourceID_.stringView()), place);
  } else if (aspect_ == Aspect::type) {
    addNode(hashOf(resource.type_.stringView()), place);
  } else {
    for (const std::string& path : resource.useFilePaths())
      addNode(hashOf(storedName(path)), place);
  }
}

void ResourceIndex::remove(std::uint32_t place) {
  for (std::uint32_t node = firstNodes_[place]; node < firstNodes_[place + 1]; ++node)
    unlink(node);
}

bool ResourceIndex::contains(std::uint32_t place) const {
  const std::uint32_t first = firstNodes_[place];
  return first < firstNodes_[place + 1] && nodes_[first].place != none;
}

ResourceIndex::Candidates ResourceIndex::candidates(std::string_view value) const {
  return Candidates(*this, hashOf(aspect_ == Aspect::path ? storedName(value) : value));
}

ResourceIndex::Candidates ResourceIndex::candidates(const KivResource& resource) const {
  return Candidates(*this, hashOfObject(resource));
}

std::uint32_t ResourceIndex::hashOf(std::string_view value) const {
  return static_cast<std::uint32_t>(keyedHash(value, static_cast<std::uint64_t>(aspect_)));
}

// --- The nodes -----------------------------------------------------------------------------------

void ResourceIndex::addNode(std::uint32_t hash, std::uint32_t place) {
  nodes_.push_back({hash, place, none, none});
  if (nodes_.size() > buckets_.size()) {
    growBuckets();
  } else {
    link(static_cast<std::uint32_t>(nodes_.size() - 1));
  }
}

void ResourceIndex::link(std::uint32_t number) {
  Node& node = nodes_[number];
  std::uint32_t& first = bucket(node.hash);
  if (first == none) {
    first = number;
    node.previous = number;
  } else {
    const std::uint32_t last = std::exchange(nodes_[first].previous, number);
    nodes_[last].next = number;
    node.previous = last;
  }
  node.next = none;
}

void ResourceIndex::unlink(std::uint32_t number) {
  const Node& node = nodes_[number];
  std::uint32_t& first = bucket(node.hash);
  const bool isLast = node.next == none;
  if (first == number) {
    first = node.next;
  } else {
    nodes_[node.previous].next = node.next;
  }
  if (!isLast) {
    nodes_[node.next].previous = node.previous;
  } else if (first != none) {
    nodes_[first].previous = node.previous;
  }
  nodes_[number].place = none;
}

void ResourceIndex::growBuckets() {
  buckets_.assign(2 * buckets_.size(), none);
  for (std::uint32_t number = 0; number < nodes_.size(); ++number) {
    if (nodes_[number].place != none) link(number);
  }
}

std::uint32_t ResourceIndex::find(std::uint32_t node, std::uint32_t hash) const {
  while (node != none && nodes_[node].hash != hash)
    node = nodes_[node].next;
  return node;
}

std::uint32_t ResourceIndex::findFirst(std::uint32_t hash) const {
  return find(buckets_[hash & (buckets_.size() - 1)], hash);
}

// --- Candidates ----------------------------------------------------------------------------------

ResourceIndex::Candidates::Candidates(const ResourceIndex& index, std::uint32_t hash)
    : index_(&index),
      hash_(hash),
      node_(index.findFirst(hash)),
      unknownNode_(hash == unknownHash || index.aspect_ == Aspect::object
                       ? none
                       : index.findFirst(unknownHash)) {}

std::optional<std::uint32_t> ResourceIndex::Candidates::next() {
  const auto placeOf = [&](std::uint32_t node) {
    return node == none ? none : index_->nodes_[node].place;
  };
  const auto place = placeOf(node_);
  const auto unknownPlace = placeOf(unknownNode_);
  if (place == none && unknownPlace == none) return std::nullopt;
  const bool takesUnknown = unknownPlace < place;
  std::uint32_t& node = takesUnknown ? unknownNode_ : node_;
  node = index_->find(index_->nodes_[node].next, takesUnknown ? unknownHash : hash_);
  return takesUnknown ? unknownPlace : place;
}

}  // namespace kiv
