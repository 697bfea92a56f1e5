// A removed resource leaves a gap in the list, so that the places in the indexes stay right. An
// index is made when its question is first asked: a process that only restores its list needs none.
// A changed resource makes all of them invalid; hosts rarely change registered resources.

#include "KivResource/list/KivResourceList.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <utility>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/Foundation/queues/QueueAssertion.h"
#include "KivPlatform/Foundation/text/Unicode.h"
#include "KivResource/KivResourceObject.h"
#include "KivResource/list/KivResourceIndex.h"

namespace kiv {

namespace {

using Aspect = ResourceIndex::Aspect;
using Place = ResourceIndex::Place;

/// The identifiers of the resources with their positions, sorted, so that equal ones are adjacent
/// and in order.
std::vector<std::pair<std::string, std::size_t>> sortedIdentifiers(const ResourceArray& resources) {
  std::vector<std::pair<std::string, std::size_t>> identifiers;
  identifiers.reserve(resources.size());
  for (std::size_t position = 0; position < resources.size(); ++position) {
    if (resources[position]) identifiers.emplace_back(resources[position]->resourceID(), position);
  }
  std::sort(identifiers.begin(), identifiers.end());
  return identifiers;
}

using Entry = decltype(std::declval<const ResourceIndex&>().begin());
/// The entries of one object under one key.
using Occurrences = std::pair<Entry, Entry>;

/// Finds the objects with the key, in the order of their first places, among the entries from
/// `entry` on. Returns the first entry with a greater key.
Entry findObjects(std::string_view key, Entry entry, Entry end, std::vector<Occurrences>& objects) {
  objects.clear();
  while (entry != end && entry->key.stringView() < key)
    ++entry;
  while (entry != end && entry->key.stringView() == key) {
    if (objects.empty() || objects.back().first->resource != entry->resource) {
      objects.emplace_back(entry, entry);
    }
    objects.back().second = ++entry;
  }
  std::sort(objects.begin(), objects.end(), [](const Occurrences& a, const Occurrences& b) {
    return a.first->place < b.first->place;
  });
  return entry;
}

/// True if one of the resource's paths leads to the file at the path. The file system is asked only
/// if the names are equal, or differ in case or Unicode normalization alone.
bool isUsedBy(const KivResource& resource, std::string_view path) {
  const auto leadsToFile = [&](const std::string& used) {
    if (used == path) return true;
    const bool mayBeSame = unicode::foldedName(path::lastPathComponent(used)) ==
                           unicode::foldedName(path::lastPathComponent(path));
    return mayBeSame && FileManager::defaultManager().itemAtPath_isItemAtPath(used, path);
  };
  const auto paths = resource.useFilePaths();
  return std::any_of(paths.begin(), paths.end(), leadsToFile);
}

}  // namespace

/// The indexes of a list, one for each aspect that was asked for.
class ResourceList::Indexes {
 public:
  explicit Indexes(const ResourceArray& places) : places_(places) {}

  /// The index of the resources as they are now.
  const ResourceIndex& of(Aspect aspect) {
    clearIfChanged();
    auto& index = indexes_[static_cast<std::size_t>(aspect)];
    if (!index) index.emplace(aspect, places_);
    return *index;
  }

  /// To be called before the resource is added, so that no change of it is missed.
  void watch(KivResource& resource) { resource.setOnChange(changed_); }

  void add(const KivResource& resource, Place place) noexcept {
    update([&](ResourceIndex& index) { index.add(resource, place); });
  }

  void remove(const KivResource& resource) noexcept {
    update([&](ResourceIndex& index) { index.remove(resource); });
  }

  void clear() noexcept { indexes_ = {}; }

 private:
  /// An index cannot be updated for a resource that has changed since it was added.
  void clearIfChanged() noexcept {
    if (changed_->clear()) clear();
  }

  template <class Update>
  void update(const Update& update) noexcept {
    clearIfChanged();
    try {
      for (auto& index : indexes_) {
        if (index) update(*index);
      }
    } catch (const std::exception&) {
      clear();  // out of memory: the next question makes them again
    }
  }

  const ResourceArray& places_;
  const std::shared_ptr<ChangeFlag> changed_ = std::make_shared<ChangeFlag>();
  std::array<std::optional<ResourceIndex>, 3> indexes_;
};

ResourceList::ResourceList() : indexes_(std::make_unique<Indexes>(places_)) {}

ResourceList::ResourceList(ResourceArray resources) : ResourceList() {
  for (auto& resource : resources)
    append(std::move(resource));
}

ResourceList::~ResourceList() = default;

void ResourceList::setQueueAssertion(std::shared_ptr<const QueueAssertion> assertion) {
  queueAssertion_ = std::move(assertion);
}

void ResourceList::assertQueue(const char* call) const {
  if (queueAssertion_) queueAssertion_->check("kiv::ResourceList", call);
}

const ResourceArray& ResourceList::resources() const {
  assertQueue();
  closeGaps();
  return places_;
}

ResourceArray ResourceList::resourcesWithID(std::string_view resourceID) const {
  assertQueue();
  return at(indexes_->of(Aspect::identifier).places(resourceID));
}

ResourceArray ResourceList::resourcesWithType(std::string_view type) const {
  assertQueue();
  return at(indexes_->of(Aspect::type).places(type));
}

ResourceArray ResourceList::at(const std::vector<std::uint32_t>& places) const {
  ResourceArray resources;
  resources.reserve(places.size());
  for (const Place place : places)
    resources.push_back(places_[place]);
  return resources;
}

bool ResourceList::isPathUsedByOthers(std::string_view path, const KivResource& owner) const {
  assertQueue();
  for (const Place place : indexes_->of(Aspect::fileName).places(path)) {
    // nullptr if the resource was removed after its files had changed without a report.
    const auto& other = places_[place];
    if (other && other.get() != &owner && isUsedBy(*other, path)) return true;
  }
  return false;
}

ResourceArray ResourceList::resourcesWithPath(std::string_view path) const {
  assertQueue();
  ResourceArray users;
  for (const Place place : indexes_->of(Aspect::fileName).places(path)) {
    const auto& resource = places_[place];
    if (resource && isUsedBy(*resource, path)) users.push_back(resource);
  }
  return users;
}

ResourceList::Counterparts ResourceList::counterparts(const ResourceArray& resources) const {
  assertQueue();
  const ResourceIndex& index = indexes_->of(Aspect::identifier);
  Counterparts counterparts;
  counterparts.ofEach.resize(resources.size());
  std::vector<bool> isTaken(places_.size());
  // Both are sorted by identifier, so one pass over both finds every counterpart.
  const auto asked = sortedIdentifiers(resources);
  auto entry = index.begin();
  std::vector<Occurrences> objects;
  for (auto first = asked.begin(); first != asked.end();) {
    const std::string& resourceID = first->first;
    entry = findObjects(resourceID, entry, index.end(), objects);
    auto object = objects.begin();
    for (; first != asked.end() && first->first == resourceID; ++first) {
      if (object == objects.end()) continue;
      counterparts.ofEach[first->second] = places_[object->first->place];
      for (; object->first != object->second; ++object->first)
        isTaken[object->first->place] = true;
      ++object;
    }
  }
  for (std::size_t place = 0; place < places_.size(); ++place) {
    if (places_[place] && !isTaken[place]) counterparts.rest.push_back(places_[place]);
  }
  return counterparts;
}

void ResourceList::append(std::shared_ptr<KivResource> resource) {
  assertQueue();
  if (!resource) return;
  KivResource& appended = *resource;
  indexes_->watch(appended);
  places_.push_back(std::move(resource));
  ++size_;
  indexes_->add(appended, static_cast<Place>(places_.size() - 1));
}

void ResourceList::remove(const std::shared_ptr<KivResource>& resource) {
  assertQueue();
  if (!resource) return;
  const auto places = indexes_->of(Aspect::identifier).places(resource->resourceID(), *resource);
  if (places.empty()) return;
  indexes_->remove(*resource);
  // The argument may be an element of the list, so it is not used from here on.
  for (const Place place : places)
    places_[place] = nullptr;
  size_ -= places.size();
  constexpr std::size_t fewGaps = 64;
  if (places_.size() > 2 * size_ + fewGaps) closeGaps();
}

void ResourceList::removeAll(const ResourceArray& resources) {
  assertQueue();
  for (const auto& resource : resources)
    remove(resource);
}

void ResourceList::closeGaps() const {
  if (places_.size() == size_) return;
  std::erase(places_, nullptr);
  indexes_->clear();
}

}  // namespace kiv
