#include "KivResource/KivResourceList.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <utility>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/files/Path.h"
#include "KivResource/KivResourceIndex.h"
#include "KivResource/KivResourceObject.h"

namespace kiv {

namespace {

using Aspect = ResourceIndex::Aspect;

// An index only names candidates: the resource itself is asked, as a plain walk would.

bool has(const KivResource& resource, std::string_view property, std::string_view value) {
  const auto answer = resource.valueForProperty(property);
  return answer && answer->isString() && answer->stringView() == value;
}

/// A file, which may have several paths.
class FileAtPath {
 public:
  explicit FileAtPath(std::string_view path) : path_(path) {}

  [[nodiscard]] bool isUsedBy(const KivResource& resource) {
    const auto paths = resource.useFilePaths();
    return std::any_of(paths.begin(), paths.end(),
                       [this](const std::string& path) { return isAt(path); });
  }

 private:
  /// The system is asked only if another path may lead to the file.
  [[nodiscard]] bool isAt(std::string_view path) {
    if (path == path_) return true;
    if (path::lastPathComponent(path) != path::lastPathComponent(path_)) return false;
    FileManager& files = FileManager::defaultManager();
    if (!resolvedPath_) resolvedPath_ = files.resolvedPathOfItemAtPath(path_).value_or("");
    return !resolvedPath_->empty() && files.resolvedPathOfItemAtPath(path) == *resolvedPath_;
  }

  const std::string_view path_;
  std::optional<std::string> resolvedPath_;  // empty if nothing is there
};

}  // namespace

/// The indexes of a list, one for each aspect that was asked for.
class ResourceList::Indexes {
 public:
  explicit Indexes(const ResourceArray& places) : places_(places) {}

  /// The index as the resources are now.
  const ResourceIndex& of(Aspect aspect) {
    auto& index = indexes_[static_cast<std::size_t>(aspect)];
    if (index && !index->isCurrent()) clear();
    if (!index) {
      ResourceIndex made(aspect, places_.size());
      for (const auto& resource : places_)
        made.add(resource.get());
      index = std::move(made);
    }
    return *index;
  }

  void add(const KivResource& resource, bool mayBeThereAlready) noexcept {
    mayRepeat_ = mayRepeat_ || mayBeThereAlready;
    try {
      for (auto& index : indexes_) {
        if (index) index->add(&resource);
      }
    } catch (const std::exception&) {
      clear();  // memory has run out: they are made when they are asked for
    }
  }

  void remove(std::uint32_t place) {
    for (auto& index : indexes_) {
      if (index) index->remove(place);
    }
  }

  void clear() { indexes_ = {}; }

  [[nodiscard]] std::vector<std::uint32_t> placesOf(const KivResource& object) {
    std::vector<std::uint32_t> places;
    auto candidates = of(Aspect::object).candidates(object);
    while (const auto place = candidates.next()) {
      if (places_[*place].get() == &object) places.push_back(*place);
    }
    return places;
  }

  [[nodiscard]] ResourceArray select(Aspect aspect, std::string_view property,
                                     std::string_view value) {
    ResourceArray found;
    auto candidates = of(aspect).candidates(value);
    while (const auto place = candidates.next()) {
      if (has(*places_[*place], property, value)) found.push_back(places_[*place]);
    }
    return found;
  }

  /// The first resource with the identifier in the given index, which it leaves, at all its places.
  [[nodiscard]] std::shared_ptr<KivResource> take(std::string_view resourceID,
                                                  ResourceIndex& identifiers) {
    auto candidates = identifiers.candidates(resourceID);
    while (const auto place = candidates.next()) {
      const auto& resource = places_[*place];
      if (!has(*resource, "resourceID", resourceID)) continue;
      if (mayRepeat_) {
        for (const std::uint32_t taken : placesOf(*resource))
          identifiers.remove(taken);
      } else {
        identifiers.remove(*place);
      }
      return resource;
    }
    return nullptr;
  }

 private:
  const ResourceArray& places_;
  bool mayRepeat_ = false;  // whether some object may stand at several places
  std::array<std::optional<ResourceIndex>, 4> indexes_;
};

ResourceList::ResourceList() : indexes_(std::make_unique<Indexes>(places_)) {}

ResourceList::ResourceList(ResourceArray resources) : ResourceList() {
  for (auto& resource : resources)
    append(std::move(resource));
}

ResourceList::~ResourceList() = default;

const ResourceArray& ResourceList::resources() const {
  closeGaps();
  return places_;
}

ResourceArray ResourceList::resourcesWithID(std::string_view resourceID) const {
  return indexes_->select(Aspect::identifier, "resourceID", resourceID);
}

ResourceArray ResourceList::resourcesWithType(std::string_view type) const {
  return indexes_->select(Aspect::type, "type", type);
}

bool ResourceList::isPathUsedByOthers(std::string_view path, const KivResource& owner) const {
  FileAtPath file(path);
  auto candidates = indexes_->of(Aspect::path).candidates(path);
  while (const auto place = candidates.next()) {
    const KivResource& other = *places_[*place];
    if (&other != &owner && file.isUsedBy(other)) return true;
  }
  return false;
}

ResourceList::Counterparts ResourceList::counterparts(const ResourceArray& resources) const {
  Counterparts counterparts;
  counterparts.ofEach.reserve(resources.size());
  ResourceIndex remaining = indexes_->of(Aspect::identifier);
  for (const auto& resource : resources) {
    counterparts.ofEach.push_back(resource ? indexes_->take(resource->resourceID(), remaining)
                                           : nullptr);
  }
  for (std::uint32_t place = 0; place < places_.size(); ++place) {
    if (remaining.contains(place)) counterparts.rest.push_back(places_[place]);
  }
  return counterparts;
}

void ResourceList::append(std::shared_ptr<KivResource> resource) {
  if (!resource) return;
  KivResource& appended = *resource;
  places_.push_back(std::move(resource));
  ++size_;
  const bool wasListed = appended.isListed_;
  if (!wasListed) appended.noteListed();
  indexes_->add(appended, wasListed);
}

void ResourceList::remove(const std::shared_ptr<KivResource>& resource) {
  if (!resource) return;
  const auto places = indexes_->placesOf(*resource);
  for (const std::uint32_t place : places) {
    indexes_->remove(place);
    places_[place] = nullptr;
  }
  size_ -= places.size();
  constexpr std::size_t fewGaps = 64;
  if (places_.size() > 2 * size_ + fewGaps) closeGaps();
}

void ResourceList::removeAll(const ResourceArray& resources) {
  for (const auto& resource : resources)
    remove(resource);
}

void ResourceList::closeGaps() const {
  if (places_.size() == size_) return;
  std::erase(places_, nullptr);
  indexes_->clear();
}

}  // namespace kiv
